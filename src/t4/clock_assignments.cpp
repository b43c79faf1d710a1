#include "t4/clock_assignments.h"

#include <cerrno>
#include <system_error>

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::t4 {

std::optional<std::string> ReadSiteFile(const std::filesystem::path& file, core::LogSink& log,
                                        std::string_view instead) {
  std::error_code ec;
  const auto status = std::filesystem::status(file, ec);
  if (status.type() == std::filesystem::file_type::not_found) return std::nullopt;
  std::string why;
  if (ec) {
    why = ec.message();
  } else if (status.type() != std::filesystem::file_type::regular) {
    why = "it is not a file";
  } else {
    try {
      return core::ReadWholeFile(file);
    } catch (const core::SystemError& e) {
      why = e.Description();
    }
  }
  log.Event("System error",
            "Couldn't read " + file.string() + " (" + why + "); " + std::string(instead));
  return std::nullopt;
}

std::string_view WithoutLineEnd(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

void LogBadLine(core::LogSink& log, const std::filesystem::path& file, int line_number,
                std::string_view what) {
  log.Event("Configuration error", file.filename().string() + " line " +
                                       std::to_string(line_number) + ": " + std::string(what));
}

ClockAssignments::ClockAssignments(const std::filesystem::path& program_folder,
                                   core::LogSink& log) {
  const auto file = program_folder / kClockAssignmentsFile;
  const auto text = ReadSiteFile(file, log, "every clock has the default assignment");
  if (!text) return;
  Parse(*text, [&](const core::LineProblem& p) { LogBadLine(log, file, p.line, p.what); });
}

std::vector<core::LineProblem> ClockAssignments::Problems(std::string_view text) {
  std::vector<core::LineProblem> problems;
  ClockAssignments().Parse(text, [&](core::LineProblem p) { problems.push_back(std::move(p)); });
  return problems;
}

void ClockAssignments::Parse(std::string_view text,
                             const std::function<void(core::LineProblem)>& bad_line) {
  int line_number = 0;
  for (const auto& raw : core::Split(text, '\n')) {
    ++line_number;
    std::string line = core::Trim(WithoutLineEnd(raw));
    if (const auto comment = line.find(';'); comment != std::string::npos) {
      line = core::Trim(std::string_view(line).substr(0, comment));
    }
    if (line.empty()) continue;
    ClockAssignment assignment;
    std::string error;
    if (!assignment.TryParse(line, error)) {
      bad_line({line_number, error + "; the line is ignored"});
      continue;
    }
    bool replaced = false;
    for (auto& known : assignments_) {
      if (core::EqualsIgnoreCase(known.ClockName(), assignment.ClockName())) {
        bad_line({line_number,
                  "clock " + assignment.ClockName() + " again; this line replaces the earlier"});
        known = assignment;
        replaced = true;
      }
    }
    if (!replaced) assignments_.push_back(std::move(assignment));
  }
}

const ClockAssignment& ClockAssignments::Get(std::string_view clock_name) const {
  static const ClockAssignment kDefaults;
  for (const auto& assignment : assignments_) {
    if (core::EqualsIgnoreCase(assignment.ClockName(), clock_name)) return assignment;
  }
  return kDefaults;
}

}  // namespace clockcomm::t4
