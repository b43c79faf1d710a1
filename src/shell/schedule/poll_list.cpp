#include "shell/schedule/poll_list.h"

#include <fmt/format.h>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::shell {
namespace {

constexpr const char* kSelectColumns =
    "SELECT LocationID, LocationName, LocationPhone, DialTime, SelectToDial, TerminalID, "
    "TerminalType FROM PollT";

PollRow RowOf(const db::Recordset& rs) {
  PollRow row =
      PollList::RowFromFields(rs.Field("LocationID").AsInt(), rs.Field("LocationName").AsText(),
                              rs.Field("LocationPhone").AsText(), rs.Field("DialTime"),
                              rs.Field("SelectToDial").AsBool(), rs.Field("TerminalID").AsText());
  // A number no terminal type has is read as none: the settings' type serves the location.
  if (!rs.Field("TerminalType").IsNull()) {
    row.terminal_type =
        terminal::TerminalTypeFromNumber(static_cast<int>(rs.Field("TerminalType").AsInt()));
  }
  return row;
}

// The phone number goes into the dial command and the terminal id into the poll header, where a
// control character would end the command or break the frame; the name goes into log lines.
void RequireNoControlCharacters(std::string_view text, const char* field, const char* param) {
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x20 || c == 0x7F) {
      throw core::ArgumentException(fmt::format("{} cannot hold control characters (0x{:02X} at "
                                                "position {}).",
                                                field, c, i + 1),
                                    param);
    }
  }
}

db::Value DialTimeValue(const std::optional<core::TimeOfDay>& time) {
  if (!time) return db::Value();
  return db::Value(PollList::DialTimeText(*time));
}

}  // namespace

std::optional<core::TimeOfDay> PollList::ParseDialTime(std::string_view text) {
  // A date alone reads as its midnight, which no one means as a call time.
  const auto parsed = core::ParseDateTime(core::TrimView(text));
  if (!parsed || parsed->GetDate() != core::Date()) return std::nullopt;
  return parsed->GetTime();
}

std::string PollList::DialTimeText(const core::TimeOfDay& time) {
  return time.Format(time.Second() == 0 ? core::kFormatHourMinute : core::kFormatHourMinuteSecond);
}

PollRow PollList::RowFromFields(int64_t location_id, std::string name, std::string phone,
                                const db::Value& dial_time, bool select_to_dial,
                                std::string terminal_id) {
  PollRow row;
  row.location_id = location_id;
  row.location_name = std::move(name);
  row.location_phone = std::move(phone);
  row.dial_time_text = core::Trim(dial_time.AsText());
  if (!row.dial_time_text.empty()) row.dial_time = core::ParseTime(row.dial_time_text);
  row.select_to_dial = select_to_dial;
  row.terminal_id = std::move(terminal_id);
  return row;
}

std::vector<PollRow> PollList::ReadPollRows() {
  db::Recordset rs = db_.Query(std::string(kSelectColumns) + " ORDER BY LocationID");
  std::vector<PollRow> rows;
  for (; !rs.Eof(); rs.MoveNext()) rows.push_back(RowOf(rs));
  return rows;
}

std::optional<PollRow> PollList::Find(int64_t location_id) {
  db::Recordset rs =
      db_.Query(std::string(kSelectColumns) + " WHERE LocationID = ?", {db::Value(location_id)});
  if (rs.Eof()) return std::nullopt;
  return RowOf(rs);
}

void PollList::RequireValid(const PollRow& row) {
  if (core::Trim(row.location_name).empty()) {
    throw core::ArgumentException("LocationName cannot be empty.", "location_name");
  }
  RequireNoControlCharacters(row.location_name, "LocationName", "location_name");
  RequireNoControlCharacters(row.location_phone, "LocationPhone", "location_phone");
  RequireNoControlCharacters(row.terminal_id, "TerminalID", "terminal_id");
}

int64_t PollList::Add(const PollRow& row) {
  RequireValid(row);
  if (row.location_id != 0 && Find(row.location_id)) {
    throw core::ArgumentException(
        "LocationID " + std::to_string(row.location_id) + " is already in the poll list.",
        "location_id");
  }
  db::Value id = row.location_id == 0 ? db::Value() : db::Value(row.location_id);
  db_.Execute(
      "INSERT INTO PollT (LocationID, LocationName, LocationPhone, DialTime, SelectToDial, "
      "TerminalID, TerminalType) VALUES (?, ?, ?, ?, ?, ?, ?)",
      {id, row.location_name, row.location_phone, DialTimeValue(row.dial_time),
       db::Value(row.select_to_dial), row.terminal_id,
       row.terminal_type ? db::Value(static_cast<int64_t>(*row.terminal_type)) : db::Value()});
  return row.location_id == 0 ? db_.LastInsertId() : row.location_id;
}

void PollList::Update(const PollRow& row) {
  RequireValid(row);
  RequireChanged(db_.Execute("UPDATE PollT SET LocationName = ?, LocationPhone = ?, DialTime = ?, "
                             "SelectToDial = ? WHERE LocationID = ?",
                             {row.location_name, row.location_phone, DialTimeValue(row.dial_time),
                              db::Value(row.select_to_dial), db::Value(row.location_id)}),
                 row.location_id);
}

void PollList::Remove(int64_t location_id) {
  RequireChanged(db_.Execute("DELETE FROM PollT WHERE LocationID = ?", {db::Value(location_id)}),
                 location_id);
}

void PollList::SetDialTime(int64_t location_id, std::optional<core::TimeOfDay> dial_time) {
  RequireChanged(db_.Execute("UPDATE PollT SET DialTime = ? WHERE LocationID = ?",
                             {DialTimeValue(dial_time), db::Value(location_id)}),
                 location_id);
}

void PollList::SetSelectToDial(int64_t location_id, bool selected) {
  RequireChanged(db_.Execute("UPDATE PollT SET SelectToDial = ? WHERE LocationID = ?",
                             {db::Value(selected), db::Value(location_id)}),
                 location_id);
}

void PollList::RequireChanged(int64_t changed, int64_t location_id) {
  if (changed == 0) {
    throw core::ItemNotFoundException("The poll list has no LocationID " +
                                      std::to_string(location_id) + ".");
  }
}

}  // namespace clockcomm::shell
