// The poll list: table PollT of the product database, one row per location that can be called,
// with its optional time of day to call it. The timed polling cycle re-reads it on every pass and
// the `poll-list` command edits it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/date_time.h"
#include "db/database.h"
#include "terminal/terminal_type.h"

namespace clockcomm::shell {

struct PollRow {
  int64_t location_id = 0;
  std::string location_name;
  std::string location_phone;  // phone number (modem) or address of the terminal
  // The call time; nothing when DialTime is NULL, empty, or not a time of day.
  std::optional<core::TimeOfDay> dial_time;
  // DialTime as stored, kept so that an unreadable value can be reported by name.
  std::string dial_time_text;
  bool select_to_dial = true;
  std::string terminal_id;  // identifier sent in the poll's header (an ATS terminal's address)
  // The make of the location's terminal; nothing means the settings' terminal type.
  std::optional<terminal::TerminalType> terminal_type;

  // True when DialTime holds text that is not a time of day (reported, never polled).
  bool DialTimeUnreadable() const { return !dial_time && !dial_time_text.empty(); }
};

// Anything that can hand over the current poll list; re-read on every pass of the timed cycle.
class PollRowSource {
 public:
  virtual ~PollRowSource() = default;
  virtual std::vector<PollRow> ReadPollRows() = 0;
};

// Reads and edits PollT through db::Database.
class PollList : public PollRowSource {
 public:
  explicit PollList(db::Database& db) : db_(db) {}

  // Every row, ordered by LocationID.
  std::vector<PollRow> ReadPollRows() override;
  std::optional<PollRow> Find(int64_t location_id);

  // Adds a row and returns its LocationID (a new one when row.location_id is 0). DialTime is
  // stored as "HH:nn", or "HH:nn:ss" when it has seconds, or NULL. Throws ArgumentException for
  // an empty name, a control character (below 0x20, or 0x7F) in the name, phone or terminal id,
  // or a LocationID already in use. TerminalType is stored as its number, or NULL.
  int64_t Add(const PollRow& row);
  // Sets the name, phone, DialTime and SelectToDial of row.location_id (terminal id and type are
  // kept), with the checks of Add. Throws ItemNotFoundException when there is no such row.
  void Update(const PollRow& row);
  // Throws ItemNotFoundException naming the LocationID when there is no such row.
  void Remove(int64_t location_id);
  void SetDialTime(int64_t location_id, std::optional<core::TimeOfDay> dial_time);
  void SetSelectToDial(int64_t location_id, bool selected);

  // A call time as an operator gives it ("06:00", "6:30pm"): a time of day without a date; nothing
  // for any other text.
  static std::optional<core::TimeOfDay> ParseDialTime(std::string_view text);
  // The stored text of a call time.
  static std::string DialTimeText(const core::TimeOfDay& time);
  // Reads a DialTime field: NULL or blank gives an empty text and no time.
  static PollRow RowFromFields(int64_t location_id, std::string name, std::string phone,
                               const db::Value& dial_time, bool select_to_dial,
                               std::string terminal_id);

 private:
  void RequireChanged(int64_t changed, int64_t location_id);
  static void RequireValid(const PollRow& row);
  db::Database& db_;
};

}  // namespace clockcomm::shell
