// The site's "ClockAssignments.txt": one ClockAssignment per T4 clock, found by the clock's name
// (letter case ignored). A clock without a line has the defaults.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/line_problem.h"
#include "core/log_sink.h"
#include "t4/clock_assignment.h"

namespace clockcomm::t4 {

inline constexpr const char* kClockAssignmentsFile = "ClockAssignments.txt";

// The text of a settings file of the installation folder; nothing when it is missing, and
// nothing with an event ("System error", naming the file and what is used instead) when it is
// there but cannot be read.
std::optional<std::string> ReadSiteFile(const std::filesystem::path& file, core::LogSink& log,
                                        std::string_view instead);
// A line of a split text without the CR of a CR LF line end.
std::string_view WithoutLineEnd(std::string_view line);
// "<file> line <n>: <what>" as an event of type "Configuration error".
void LogBadLine(core::LogSink& log, const std::filesystem::path& file, int line_number,
                std::string_view what);

class ClockAssignments {
 public:
  // No assignments: every clock has the defaults.
  ClockAssignments() = default;
  // Reads "ClockAssignments.txt" of the installation folder when it exists. Each bad line is
  // logged as an event naming the file and line, and left out; so is a file that cannot be read.
  ClockAssignments(const std::filesystem::path& program_folder, core::LogSink& log);
  // The lines of a text in the file's format that reading it would log: what a site is told
  // before it saves the file.
  static std::vector<core::LineProblem> Problems(std::string_view text);

  int Count() const { return static_cast<int>(assignments_.size()); }
  // The clock's assignment, or the defaults for a clock without a line.
  const ClockAssignment& Get(std::string_view clock_name) const;

  bool IncludeSeconds(std::string_view clock_name) const {
    return Get(clock_name).IncludeSeconds();
  }
  std::optional<int64_t> GetDepartmentFromWorkCode(std::string_view clock_name,
                                                   long work_code) const {
    return Get(clock_name).GetEffectiveDepartment(work_code);
  }
  std::string GetJobFromWorkCode(std::string_view clock_name, long work_code) const {
    return Get(clock_name).GetEffectiveJob(work_code);
  }

 private:
  // Reads the assignments of text; each line left out or replaced goes to bad_line.
  void Parse(std::string_view text, const std::function<void(core::LineProblem)>& bad_line);

  std::vector<ClockAssignment> assignments_;
};

}  // namespace clockcomm::t4
