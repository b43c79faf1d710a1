// What a simulated T4 terminal holds when it starts: its user table, a log of punches made by
// those users, the option table matching its record layout, and the bad records a field terminal
// has been seen to hold.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "core/date_time.h"
#include "t4/net/t4_records.h"
#include "t4/net/t4_user_records.h"

namespace clockcomm::sim {

// count users: uid 1, 2, ..., enrolment numbers 1001, 1002, ... (string terminals hold them as
// text, numeric ones as numbers; the same digits either way).
std::vector<t4::net::T4UserRecord> GenerateT4Users(size_t count);

// count punches of the users in turn, the latest just before `now`, consecutive ones a few
// seconds apart so that one user's punches are at least a minute apart; no two alike.
std::vector<t4::net::T4Record> GenerateT4Records(size_t count,
                                                 const std::vector<t4::net::T4UserRecord>& users,
                                                 const core::DateTime& now);

// Records a client must log and skip rather than store, those the layout can carry: 30 February,
// a year past 2099, encoded time 0, badge 0, state 255 and 7, and for text ids an empty id, "0",
// letters, 24 characters, "007"; for 8-byte records a uid with no user. Appended to the log.
std::vector<t4::net::T4Record> BadT4Records(size_t record_size, const core::DateTime& now);

// ~Platform, ~SSR, ~ExtendFmt, ~SerialNumber and the rest, as a terminal with this layout answers
// them; `contradict` makes the id-kind options claim the other kind.
std::map<std::string, std::string> T4OptionTable(size_t record_size,
                                                 const std::string& serial_number, bool contradict);

// 36 for 40/49-byte terminals, 12 for 16, 10 for 8.
size_t DefaultEventLength(size_t record_size);
// 72 for text ids, 28 for numeric ones.
size_t UserRecordSize(size_t record_size);

}  // namespace clockcomm::sim
