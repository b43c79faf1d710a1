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

// Pages are separated by a form feed; an event is never split across two pages. Dates in the
// heading are "yyyy/mm/dd".
std::string FormatEventLogReport(const std::vector<EventLogEntry>& entries, const core::Date& from,
                                 const core::Date& to, int lines_per_page = kReportLinesPerPage);

}  // namespace clockcomm::shell
