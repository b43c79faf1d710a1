#include "shell/event_log.h"

#include "db/open.h"
#include "db/schema.h"

namespace clockcomm::shell {
namespace {

std::string_view Cut(std::string_view text) { return text.substr(0, kEventTextLimit); }

// The date condition shared by the viewer, the printer and the purge: whole days, inclusive.
db::Params DateRange(const core::Date& from, const core::Date& to) {
  return {from.Format(core::kFormatIsoDate) + " 00:00:00",
          to.Format(core::kFormatIsoDate) + " 23:59:59"};
}

}  // namespace

EventLog::EventLog(std::unique_ptr<db::Database> db) : db_(std::move(db)) {
  db::CreateEventLogSchema(*db_);
}

std::unique_ptr<EventLog> EventLog::Open(const std::filesystem::path& file,
                                         std::chrono::milliseconds busy_wait) {
  return std::make_unique<EventLog>(db::Open(file, db::OpenMode::kCreate, busy_wait));
}

void EventLog::Write(const core::DateTime& when, std::string_view clock_name, int clock_number,
                     std::string_view event_type, std::string_view description) {
  std::lock_guard lock(mutex_);
  db_->Execute(
      "INSERT INTO LogTable ([DateTime], ClockName, ClockNumber, EventType, EventDes) "
      "VALUES (?, ?, ?, ?, ?)",
      {when, clock_name, clock_number, Cut(event_type), Cut(description)});
}

std::vector<EventLogEntry> EventLog::Entries(const core::Date& from, const core::Date& to) {
  std::lock_guard lock(mutex_);
  return Rows(db_->Query(
      "SELECT Counter, [DateTime], ClockName, ClockNumber, EventType, EventDes FROM LogTable "
      "WHERE [DateTime] >= ? AND [DateTime] <= ? ORDER BY Counter",
      DateRange(from, to)));
}

std::vector<EventLogEntry> EventLog::LastOfEachClock() {
  std::lock_guard lock(mutex_);
  return Rows(db_->Query(
      "SELECT Counter, [DateTime], ClockName, ClockNumber, EventType, EventDes FROM LogTable "
      "WHERE Counter IN (SELECT MAX(Counter) FROM LogTable WHERE ClockName <> '' "
      "GROUP BY UPPER(ClockName)) ORDER BY Counter"));
}

std::vector<EventLogEntry> EventLog::LastOfClock(std::string_view clock_name, int limit) {
  std::lock_guard lock(mutex_);
  return Rows(db_->Query(
      "SELECT Counter, [DateTime], ClockName, ClockNumber, EventType, EventDes FROM LogTable "
      "WHERE UPPER(ClockName) = UPPER(?) ORDER BY Counter DESC LIMIT ?",
      {db::Value(std::string(clock_name)), db::Value(int64_t{limit})}));
}

std::vector<EventLogEntry> EventLog::Rows(db::Recordset rs) {
  std::vector<EventLogEntry> entries;
  for (; !rs.Eof(); rs.MoveNext()) {
    EventLogEntry e;
    e.counter = rs.Field("Counter").AsInt();
    e.date_time = rs.Field("DateTime").AsDateTime().value_or(core::DateTime());
    e.clock_name = rs.Field("ClockName").AsText();
    e.clock_number = static_cast<int>(rs.Field("ClockNumber").AsInt());
    e.event_type = rs.Field("EventType").AsText();
    e.description = rs.Field("EventDes").AsText();
    entries.push_back(std::move(e));
  }
  return entries;
}

int64_t EventLog::Purge(const core::Date& from, const core::Date& to) {
  std::lock_guard lock(mutex_);
  return db_->Execute("DELETE FROM LogTable WHERE [DateTime] >= ? AND [DateTime] <= ?",
                      DateRange(from, to));
}

}  // namespace clockcomm::shell
