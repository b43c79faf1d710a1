// The printed event-log report as plain text pages: a heading with the period and the page
// number, the column lines, then two lines per event (date, clock, number, type; description).
#pragma once

#include <string>
#include <vector>

#include "core/date_time.h"
#include "shell/event_log.h"

namespace clockcomm::shell {

inline constexpr int kReportLinesPerPage = 60;
inline constexpr char kFormFeed = '\f';

// The report built one event at a time. Pages are separated by a form feed; an event is never
// split across two pages. Dates in the heading are "yyyy/mm/dd".
class EventLogReportPages {
 public:
  EventLogReportPages(const core::Date& from, const core::Date& to,
                      int lines_per_page = kReportLinesPerPage);
  // The text of one more event, after a new page's heading when it does not fit on this one.
  std::string Add(const EventLogEntry& entry);
  // What is left once every event is added: the heading of a report without events.
  std::string Finish();

 private:
  std::string StartPage();

  std::string period_;
  int lines_per_page_;
  int page_ = 0;
  int used_;
};

std::string FormatEventLogReport(const std::vector<EventLogEntry>& entries, const core::Date& from,
                                 const core::Date& to, int lines_per_page = kReportLinesPerPage);

// The report of a period read from the log a batch of rows at a time, so that a long period
// never sits in memory whole.
class EventLogReportReader {
 public:
  static constexpr int64_t kBatchRows = 500;

  EventLogReportReader(EventLog& log, const core::Date& from, const core::Date& to,
                       int lines_per_page = kReportLinesPerPage);
  // The next piece of the report; empty once the report is complete.
  std::string Next();

 private:
  EventLog& log_;
  EventQuery query_;
  EventLogReportPages pages_;
  bool done_ = false;
};

}  // namespace clockcomm::shell
