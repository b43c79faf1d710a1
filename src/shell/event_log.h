// The event log: table LogTable of TCLOG.db, one row per event, listed, printed and purged by date.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/date_time.h"
#include "db/database.h"
#include "db/open.h"

namespace clockcomm::shell {

// EventType and EventDes keep at most this many characters; longer texts are cut.
inline constexpr size_t kEventTextLimit = 255;

struct EventLogEntry {
  int64_t counter = 0;
  core::DateTime date_time;
  std::string clock_name;
  int clock_number = 0;
  std::string event_type;
  std::string description;
};

// The rows a listing takes: the days from `from` 00:00:00 to `to` 23:59:59, and where given one
// clock (ASCII letters ignoring case), one event type, and only rows after a Counter.
struct EventQuery {
  core::Date from;
  core::Date to;
  std::optional<std::string> clock_name;
  std::optional<std::string> event_type;
  int64_t after_counter = 0;
};

// What the purge asks before it deletes the rows of a period.
inline constexpr const char* kPurgeTitle = "Confirm Deletion";
std::string PurgeQuestion(const core::Date& from, const core::Date& to);

class EventLog {
 public:
  // Takes an open database and creates LogTable when it is missing.
  explicit EventLog(std::unique_ptr<db::Database> db);
  // Opens (or creates) the database file; a write waits up to busy_wait for another connection's
  // lock. Throws db::DatabaseError naming the file.
  static std::unique_ptr<EventLog> Open(const std::filesystem::path& file,
                                        std::chrono::milliseconds busy_wait = db::kDefaultBusyWait);

  // Appends one row. Safe to call from several threads.
  void Write(const core::DateTime& when, std::string_view clock_name, int clock_number,
             std::string_view event_type, std::string_view description);
  // The rows from `from` 00:00:00 to `to` 23:59:59 inclusive, in Counter order.
  std::vector<EventLogEntry> Entries(const core::Date& from, const core::Date& to);
  // The last row of each clock name (ignoring case), in Counter order.
  std::vector<EventLogEntry> LastOfEachClock();
  // The rows of the query in Counter order, skipping `offset`, at most `limit`.
  std::vector<EventLogEntry> Find(const EventQuery& query, int64_t offset, int64_t limit);
  int64_t Count(const EventQuery& query);
  // The distinct event types of the query's rows, in order.
  std::vector<std::string> EventTypes(const EventQuery& query);
  // The last `limit` rows of one clock (its name ignoring case), newest first.
  std::vector<EventLogEntry> LastOfClock(std::string_view clock_name, int limit);
  // Deletes the same rows as Entries(from, to) would list; returns how many.
  int64_t Purge(const core::Date& from, const core::Date& to);

  const std::string& Name() const { return db_->Name(); }

 private:
  static std::vector<EventLogEntry> Rows(db::Recordset rs);
  std::mutex mutex_;
  std::unique_ptr<db::Database> db_;
};

}  // namespace clockcomm::shell
