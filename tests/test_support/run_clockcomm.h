// Runs the built clockcomm binary with a program folder, as an operator would from a shell.
#pragma once

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "core/durable_file.h"

namespace clockcomm::test {

struct CommandResult {
  int exit_code = -1;
  std::string out;
  std::string err;
};

inline CommandResult RunClockcomm(const std::filesystem::path& home, const std::string& args,
                                  const std::string& input = "") {
  auto scratch = [] {
    std::string name = (std::filesystem::temp_directory_path() / "clockcomm-run-XXXXXX").string();
    const int fd = mkstemp(name.data());
    if (fd >= 0) close(fd);
    return name;
  };
  const std::string in_file = scratch(), out_file = scratch(), err_file = scratch();
  if (std::FILE* in = std::fopen(in_file.c_str(), "w")) {
    std::fputs(input.c_str(), in);
    std::fclose(in);
  }
  const std::string command = std::string(CLOCKCOMM_BINARY_DIR "/clockcomm --home '") +
                              home.string() + "' " + args + " <" + in_file + " >" + out_file +
                              " 2>" + err_file;
  const int status = std::system(command.c_str());
  CommandResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, core::ReadWholeFile(out_file),
                       core::ReadWholeFile(err_file)};
  for (const auto& f : {in_file, out_file, err_file}) std::filesystem::remove(f);
  return result;
}

}  // namespace clockcomm::test
