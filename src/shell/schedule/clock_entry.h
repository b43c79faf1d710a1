// One location of the poll list as the scheduler sees it: who to call, on which line, and when.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "comm/connection_type.h"
#include "core/date_time.h"
#include "terminal/terminal_type.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::shell {

// The line a location is reached on; fixed for the life of an entry.
struct ClockLine {
  comm::ConnectionType connection_type = comm::ConnectionType::kSerial;
  terminal::TerminalType clock_type = terminal::TerminalType::kZonTranz;
  int com_port = 1;
};

class ClockEntry {
 public:
  explicit ClockEntry(ClockLine line = {});
  // Name, Address, TimeOfDay/CallTime, LocationId and TerminalId from the row; Active mirrors
  // SelectToDial; GroupKey is the address, so that locations sharing one line sort together.
  static ClockEntry FromPollRow(const PollRow& row, ClockLine line = {});

  const std::string& Name() const { return name_; }
  void SetName(std::string v) { name_ = std::move(v); }
  const std::string& Address() const { return address_; }
  void SetAddress(std::string v) { address_ = std::move(v); }
  // The daily time to call; nothing for a location without a call time.
  const std::optional<core::TimeOfDay>& TimeOfDay() const { return time_of_day_; }
  void SetTimeOfDay(std::optional<core::TimeOfDay> v) { time_of_day_ = v; }
  int64_t LocationId() const { return location_id_; }
  void SetLocationId(int64_t v) { location_id_ = v; }
  bool Active() const { return active_; }
  void SetActive(bool v) { active_ = v; }
  const std::string& GroupKey() const { return group_key_; }
  void SetGroupKey(std::string v) { group_key_ = std::move(v); }
  // The date and time of this entry's next call in the timed cycle.
  const core::DateTime& CallTime() const { return call_time_; }
  void SetCallTime(const core::DateTime& v) { call_time_ = v; }
  const std::string& TerminalId() const { return terminal_id_; }
  void SetTerminalId(std::string v) { terminal_id_ = std::move(v); }

  // Distinct for every entry made in this process; copies keep it.
  uint64_t UniqueID() const { return unique_id_; }
  comm::ConnectionType ConnectionType() const { return line_.connection_type; }
  terminal::TerminalType ClockType() const { return line_.clock_type; }
  int ComPort() const { return line_.com_port; }

  std::string ToString() const;

 private:
  uint64_t unique_id_;
  ClockLine line_;
  std::string name_;
  std::string address_;
  std::optional<core::TimeOfDay> time_of_day_;
  int64_t location_id_ = 0;
  bool active_ = true;
  std::string group_key_;
  core::DateTime call_time_;
  std::string terminal_id_;
};

}  // namespace clockcomm::shell
