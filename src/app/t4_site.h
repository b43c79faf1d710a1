// The T4 host of a site, wired from its configuration: the rule files of the program folder, the
// packet writer into the companies' databases, the clock list of the product database, and how
// each clock reaches its terminal. `t4 host`, and `poll` and `auto` on a terminal type 2 line,
// run it.
#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "app/call_session.h"
#include "app/echoing_log.h"
#include "core/stop_signal.h"
#include "t4/host/t4_host.h"
#include "t4/punch_type_rules.h"

namespace clockcomm::app {

class T4Site {
 public:
  // line_type: how the site's settings reach terminals; T4 terminals answer on the network only.
  T4Site(CallSession& session, comm::ConnectionType line_type);

  // Keeps every clock of the list connected until End (the signal) or the end time.
  void Host(core::StopSignal& end, std::optional<core::DateTime> until = std::nullopt);
  // One poll of every clock; true when each was polled.
  bool PollAll();
  int64_t PunchesStored() const { return host_.PunchesStored(); }
  std::vector<t4::T4Host::ClockStatus> Clocks() const { return host_.Snapshot(); }
  std::map<std::string, long> PunchesWaitingByClock() const {
    return host_.PunchesWaitingByClock();
  }
  bool WaitForPunchesStored(int64_t count, std::chrono::steady_clock::time_point deadline) {
    return host_.WaitForPunchesStored(count, deadline);
  }

 private:
  CallSession& session_;
  EchoingLog log_;  // the events are shown on the console too
  t4::PunchTypeRules rules_;
  t4::ClockAssignments assignments_;
  t4::T4PacketWriter writer_;
  t4::T4Host host_;
};

}  // namespace clockcomm::app
