// What the console drives of the lines the serving process runs: the main form's buttons (Host,
// Poll now, End) and what each line shows. The program's composition implements it; a server
// without lines has none, and its buttons are refused.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "terminal/call_controller.h"

namespace clockcomm::web {

struct LineView {
  std::string id;    // "main" for the settings' line, else "com2", "lan" ...
  std::string name;  // "Comm Port 1 (/dev/ttyS0)"
  std::string kind;  // "serial", "modem", "lan" or "t4"
  std::string mode;  // "idle", "host" or "poll"
  std::string state;
  terminal::CallSnapshot snapshot;
};

// A press of a button: done, or refused with the reason.
struct DeskReply {
  enum class Outcome { kDone, kRefused, kUnknownLocation };
  Outcome outcome = Outcome::kDone;
  std::string message;
};

class LineDesk {
 public:
  virtual ~LineDesk() = default;
  virtual std::vector<LineView> Lines() = 0;
  // The bad input of each clock's calls since the lines started, by upper-case clock name.
  virtual std::map<std::string, terminal::InputCounters> BadInputByClock() = 0;
  // The punches each clock still holds unreceived, by upper-case clock name, where the lines
  // can tell (a T4 host's poll counts them); a clock not in it: unknown.
  virtual std::map<std::string, long> PunchesWaitingByClock() = 0;
  // The clocks connected to the lines right now (a T4 host's stations), by upper-case name.
  virtual std::set<std::string> ConnectedClocks() = 0;
  // Host mode on every line.
  virtual DeskReply Host() = 0;
  // Polls the poll list's locations of these ids (none: every selected location).
  virtual DeskReply Poll(const std::vector<int64_t>& location_ids) = 0;
  // The End button: every line stops.
  virtual DeskReply End() = 0;
};

}  // namespace clockcomm::web
