#include "shell/install_information.h"

#include <gtest/gtest.h>

#include <fstream>

#include "core/durable_file.h"
#include "shell/my_static.h"
#include "shell/port_names.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {

void WriteText(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

TEST(InstallInformationTest, TrailingSeparatorIsAddedOnlyWhenMissing) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"/opt/clock", "/opt/clock/"},
      {"/opt/clock/", "/opt/clock/"},  // already there: unchanged, not doubled
      {"/", "/"},
      {"data", "data/"},
      {"", ""},  // a missing directory stays empty
  };
  for (const Case& c : cases) {
    EXPECT_EQ(WithTrailingSeparator(c.in), c.out) << c.in;
    InstallInformation info("/tmp");
    info.SetDataDirectory(c.in);
    info.SetProgramDirectory(c.in);
    EXPECT_EQ(info.DataDirectory(), c.out);
    EXPECT_EQ(info.ProgramDirectory(), c.out);
  }
}

TEST(InstallInformationTest, CurrentVersionChoosesTheInstallDataKeyAndNamesIgnoreCase) {
  const std::string key = "[SOFTWARE\\Brenmor Time Systems\\Clockwyn\\";
  struct Case {
    std::string ini, version, program, data;
  } cases[] = {
      {key + "2.5\\Install Data]\nProgramDir=/wrong\n" + key +
           "3.0\\Install Data]\nProgramDir=/opt/clock\nDataDir = /srv/clockdata/ \n",
       "3.0", "/opt/clock/", "/srv/clockdata/"},  // no CurrentVersion: the 3.0 key
      {"; written by hand\n[software\\brenmor time systems\\clockwyn]\ncurrentversion=4.1\n" + key +
           "3.0\\Install Data]\nDataDir=/old/\n" + key + "4.1\\Install Data]\nDataDir=/new\n",
       "4.1", "", "/new/"},
  };
  for (const Case& c : cases) {
    test::TempDir home;
    WriteText(home.path() / "registry.ini", c.ini);
    InstallInformation info(home.path());
    info.Load();
    EXPECT_EQ(info.CurrentVersion(), c.version);
    EXPECT_EQ(info.ProgramDirectory(), c.program);
    EXPECT_EQ(info.DataDirectory(), c.data);
  }
}

TEST(InstallInformationTest, SaveKeepsSectionsItDoesNotOwn) {
  test::TempDir home;
  WriteText(home.path() / "registry.ini", "[Ports]\nCOM3=/dev/ttyUSB0\n");
  InstallInformation info(home.path());
  info.Load();
  info.SetProgramDirectory("/opt/clock");
  info.SetDataDirectory("/srv/data");
  info.Save();

  InstallInformation again(home.path());
  again.Load();
  EXPECT_EQ(again.ProgramDirectory(), "/opt/clock/");
  EXPECT_EQ(again.DataDirectory(), "/srv/data/");
  EXPECT_EQ(again.CurrentVersion(), "3.0");
  EXPECT_EQ(again.Value("Ports", "COM3"), "/dev/ttyUSB0");
  EXPECT_EQ(again.Value("SOFTWARE\\Brenmor Time Systems\\Clockwyn", "CurrentVersion"), "3.0");
}

TEST(MyStaticTest, DataDirectoryDefaultsUnderTheProgramFolderAndPathsFollowIt) {
  test::TempDir home;
  auto config = MyStatic::Load(home.path());
  const MyPaths paths = config->Paths();
  const std::string program = WithTrailingSeparator(home.path().string());
  EXPECT_EQ(paths.ProgramDirectory().string(), program);
  EXPECT_EQ(paths.DataDirectory().string(), program + "data/");
  EXPECT_EQ(paths.EventLogDatabase().string(), program + "data/TCLOG.db");
  EXPECT_EQ(paths.DebugLogDirectory().string(), program + "data/Debug Logs");
  EXPECT_EQ(paths.CompanyDatabase("Acme").string(), program + "data/Acme/Company.db");
  EXPECT_EQ(paths.CompanyDatabase("/srv/acme").string(), "/srv/acme/Company.db");
  EXPECT_EQ(config->Settings().TerminalCount(), 1);  // no clockcomm.dta yet: the defaults
}

TEST(MyStaticTest, ProgramFolderComesFromOptionThenEnvironmentThenCurrentDirectory) {
  test::TempDir dir;
  const char* saved = getenv("CLOCKCOMM_HOME");
  setenv("CLOCKCOMM_HOME", "/from/env", 1);
  EXPECT_EQ(ResolveProgramFolder("/from/option").string(), "/from/option/");
  EXPECT_EQ(ResolveProgramFolder("").string(), "/from/env/");
  unsetenv("CLOCKCOMM_HOME");
  const auto cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  EXPECT_EQ(ResolveProgramFolder("").string(),
            WithTrailingSeparator(std::filesystem::current_path().string()));
  std::filesystem::current_path(cwd);
  if (saved != nullptr) setenv("CLOCKCOMM_HOME", saved, 1);
}

TEST(PortNames, MappedInRegistryElseTheStandardSerialDevice) {
  test::TempDir dir;
  std::ofstream(dir.path() / "registry.ini") << "[Ports]\nCOM3=/dev/ttyUSB0\n";
  InstallInformation install(dir.path());
  install.Load();
  EXPECT_EQ(PortDevice(install, 3), "/dev/ttyUSB0");
  EXPECT_EQ(PortDevice(install, 1), "/dev/ttyS0");
  EXPECT_EQ(PortDevice(install, 4), "/dev/ttyS3");
}

}  // namespace
}  // namespace clockcomm::shell
