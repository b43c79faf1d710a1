#include "shell/event_log_report.h"

#include <fmt/format.h>

namespace clockcomm::shell {
namespace {

// Column widths of "Date & Time          Clock Name  CLK#  Event Type".
constexpr size_t kDateWidth = 21;
constexpr size_t kClockNameWidth = 12;
constexpr size_t kClockNumberWidth = 6;
// Descriptions (up to 255 characters) are wrapped at this width under a one-space indent.
constexpr size_t kDescriptionWidth = 78;

std::vector<std::string> EntryLines(const EventLogEntry& e) {
  std::string clock_name = e.clock_name.substr(0, kClockNameWidth - 1);
  std::vector<std::string> lines = {
      fmt::format("{:<{}}{:<{}}{:<{}}{}", e.date_time.Format("yyyy/mm/dd HH:nn:ss"), kDateWidth,
                  clock_name, kClockNameWidth, e.clock_number, kClockNumberWidth, e.event_type)};
  std::string_view rest = e.description;
  do {
    lines.push_back(" " + std::string(rest.substr(0, kDescriptionWidth)));
    rest.remove_prefix(std::min(rest.size(), kDescriptionWidth));
  } while (!rest.empty());
  return lines;
}

}  // namespace

std::string FormatEventLogReport(const std::vector<EventLogEntry>& entries, const core::Date& from,
                                 const core::Date& to, int lines_per_page) {
  const std::string period =
      "For Period " + from.Format(core::kFormatSqlDate) + " to " + to.Format(core::kFormatSqlDate);
  std::string out;
  int page = 0;
  int used = lines_per_page;  // forces the first heading
  auto start_page = [&] {
    if (page > 0) out += kFormFeed;
    ++page;
    out += period + "\n";
    out += "Page " + std::to_string(page) + "\n";
    out += "\n";
    out += "Date & Time          Clock Name  CLK#  Event Type\n";
    out += " Description\n";
    out += "\n";
    used = 6;
  };
  if (entries.empty()) start_page();
  for (const EventLogEntry& e : entries) {
    std::vector<std::string> lines = EntryLines(e);
    if (used + static_cast<int>(lines.size()) > lines_per_page) start_page();
    for (const std::string& line : lines) out += line + "\n";
    used += static_cast<int>(lines.size());
  }
  return out;
}

}  // namespace clockcomm::shell
