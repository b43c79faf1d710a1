// What /proc tells of a program a benchmark runs: memory, threads and CPU time.
#pragma once

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace clockcomm::bench {

// A number of /proc/PID/status ("VmRSS" and "VmHWM" in kB, "Threads").
inline double StatusValue(pid_t pid, const std::string& field) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(field + ":")) return std::stod(line.substr(field.size() + 1));
  }
  return 0;
}

// User and system CPU seconds of a process.
inline double CpuSeconds(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string skip;
  for (int i = 0; i < 11; ++i) fields >> skip;  // state .. cmajflt
  double utime = 0, stime = 0;
  fields >> utime >> stime;
  return (utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace clockcomm::bench
