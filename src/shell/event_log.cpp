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

// The WHERE clause of a query, its values appended to params.
std::string Where(const EventQuery& query, db::Params& params) {
  params = DateRange(query.from, query.to);
  std::string where = " WHERE [DateTime] >= ? AND [DateTime] <= ?";
  if (query.clock_name) {
    where += " AND UPPER(ClockName) = UPPER(?)";
    params.emplace_back(*query.clock_name);
  }
  if (query.event_type) {
    where += " AND EventType = ?";
    params.emplace_back(*query.event_type);
  }
  if (query.after_counter > 0) {
    where += " AND Counter > ?";
    params.emplace_back(query.after_counter);
  }
  return where;
}

}  // namespace

std::string PurgeQuestion(const core::Date& from, const core::Date& to) {
  return "Purge From " + from.Format(core::kFormatSqlDate) + " to " +
         to.Format(core::kFormatSqlDate) + ". Are you sure?";
}

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

std::vector<EventLogEntry> EventLog::Find(const EventQuery& query, int64_t offset, int64_t limit) {
  db::Params params;
  const std::string where = Where(query, params);
  params.emplace_back(limit);
  params.emplace_back(offset);
  std::lock_guard lock(mutex_);
  return Rows(db_->Query(
      "SELECT Counter, [DateTime], ClockName, ClockNumber, EventType, EventDes FROM LogTable" +
          where + " ORDER BY Counter LIMIT ? OFFSET ?",
      params));
}

int64_t EventLog::Count(const EventQuery& query) {
  db::Params params;
  const std::string where = Where(query, params);
  std::lock_guard lock(mutex_);
  return db_->Query("SELECT COUNT(*) FROM LogTable" + where, params).Field(0).AsInt();
}

std::vector<std::string> EventLog::EventTypes(const EventQuery& query) {
  db::Params params;
  const std::string where = Where(query, params);
  std::lock_guard lock(mutex_);
  auto rs =
      db_->Query("SELECT DISTINCT EventType FROM LogTable" + where + " ORDER BY EventType", params);
  std::vector<std::string> types;
  for (; !rs.Eof(); rs.MoveNext()) types.push_back(rs.Field(0).AsText());
  return types;
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
