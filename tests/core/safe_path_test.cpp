#include "core/safe_path.h"

#include <gtest/gtest.h>

#include "test_support/temp_dir.h"

namespace clockcomm::core {
namespace {
namespace fs = std::filesystem;

TEST(SafeFileName, KeepsPlainNamesAndReplacesEverythingElse) {
  struct Row {
    std::string name;
    std::string expected;
  };
  const Row rows[] = {
      {"Dock 7-East_2.log", "Dock 7-East_2.log"},
      {"../../etc/passwd", ".._.._etc_passwd"},
      {R"(C:\x\y)", "C__x_y"},
      {"a*b?c\"d<e>f|g", "a_b_c_d_e_f_g"},
      {std::string("t\x01\t\n\x7f", 5), "t____"},
      {std::string("nul\0x", 5), "nul_x"},  // a NUL would cut the name short in a system call
      {"Caf\xE9 Z\xFCrich \xC0\xFF", "Caf\xE9 Z\xFCrich \xC0\xFF"},  // Windows-1252 letters
      {"2\xD7"
       "3\xF7\x80\xA9\xBF",
       "2_3____"},  // signs and symbols of the upper half are not letters
      {"", "_"},
      {"..", "_"},
      {"..a", "..a"},
      {std::string(70, 'a'), std::string(64, 'a')},
      {std::string(64, '.') + "abc", "_"},  // only dots once cut
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(SafeFileName(row.name), row.expected);
  }
}

TEST(IsInside, ComparesResolvedPathsComponentByComponent) {
  test::TempDir dir;
  const fs::path data = dir.path() / "data";
  fs::create_directories(data / "acme");
  fs::create_directories(dir.path() / "outside");
  fs::create_symlink(dir.path() / "outside", data / "link");
  fs::create_symlink(data, dir.path() / "data-link");
  struct Row {
    fs::path base;
    fs::path candidate;
    bool inside;
  };
  const Row rows[] = {
      {data, data, true},
      {data, data / "", true},
      {data / "", data / "acme", true},
      {data, data / "new" / "deeper", true},  // need not exist
      {data, data / "acme" / ".." / "other", true},
      {data, data / ".." / "data" / "x", true},
      {data, data / ".." / "x", false},
      {data, data / "acme" / ".." / ".." / "x", false},
      {data, dir.path() / "database", false},  // a longer name, not a folder below
      {data, dir.path(), false},
      {data, "/etc", false},
      {data, data / "link" / "x", false},               // a link that leads out
      {dir.path() / "data-link", data / "acme", true},  // a linked base is the same folder
      {"/", data, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.base.string() + " / " + row.candidate.string());
    EXPECT_EQ(IsInside(row.base, row.candidate), row.inside);
  }
}

}  // namespace
}  // namespace clockcomm::core
