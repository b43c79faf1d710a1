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
constexpr int kHeadingLines = 6;

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

EventLogReportPages::EventLogReportPages(const core::Date& from, const core::Date& to,
                                         int lines_per_page)
    : period_("For Period " + from.Format(core::kFormatSqlDate) + " to " +
              to.Format(core::kFormatSqlDate)),
      lines_per_page_(lines_per_page),
      used_(lines_per_page) {}  // the first event starts a page

std::string EventLogReportPages::StartPage() {
  std::string out = page_ > 0 ? std::string(1, kFormFeed) : std::string();
  ++page_;
  out += period_ + "\n";
  out += "Page " + std::to_string(page_) + "\n";
  out += "\n";
  out += "Date & Time          Clock Name  CLK#  Event Type\n";
  out += " Description\n";
  out += "\n";
  used_ = kHeadingLines;
  return out;
}

std::string EventLogReportPages::Add(const EventLogEntry& entry) {
  const std::vector<std::string> lines = EntryLines(entry);
  std::string out;
  if (used_ + static_cast<int>(lines.size()) > lines_per_page_) out = StartPage();
  for (const std::string& line : lines) out += line + "\n";
  used_ += static_cast<int>(lines.size());
  return out;
}

std::string EventLogReportPages::Finish() { return page_ == 0 ? StartPage() : std::string(); }

std::string FormatEventLogReport(const std::vector<EventLogEntry>& entries, const core::Date& from,
                                 const core::Date& to, int lines_per_page) {
  EventLogReportPages pages(from, to, lines_per_page);
  std::string out;
  for (const EventLogEntry& e : entries) out += pages.Add(e);
  return out + pages.Finish();
}

EventLogReportReader::EventLogReportReader(EventLog& log, const core::Date& from,
                                           const core::Date& to, int lines_per_page)
    : log_(log), query_{.from = from, .to = to}, pages_(from, to, lines_per_page) {}

std::string EventLogReportReader::Next() {
  std::string out;
  while (out.empty() && !done_) {
    const auto batch = log_.Find(query_, 0, kBatchRows);
    for (const EventLogEntry& e : batch) out += pages_.Add(e);
    if (!batch.empty()) query_.after_counter = batch.back().counter;
    if (static_cast<int64_t>(batch.size()) < kBatchRows) {
      out += pages_.Finish();
      done_ = true;
    }
  }
  return out;
}

}  // namespace clockcomm::shell
