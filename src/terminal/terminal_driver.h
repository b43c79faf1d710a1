// The seam between the line runner and a terminal family: a driver holds the conversation of one
// call over a line the runner has opened (and, for a modem, connected); everything it receives
// goes to the call intake, everything it shows and logs to the controller.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "comm/terminal_line.h"
#include "core/clock.h"
#include "records/intake/call_intake.h"
#include "records/parameter_override.h"
#include "records/terminal_data.h"
#include "terminal/call_controller.h"
#include "terminal/terminal_type.h"

namespace clockcomm::terminal {

// The settings of a line that its driver reads.
struct DriverSettings {
  TerminalType terminal_type = TerminalType::kZonTranz;
  bool modem = false;
  // A LAN line: the poll target's address is the terminal's "host:port".
  bool lan = false;
  std::chrono::milliseconds response_wait{3000};
  // Silence allowed between two packets of a call before it is given up.
  std::chrono::milliseconds packet_timeout{10000};
  records::ParameterOverride overrides;
  // The folder of the text logs ("Debug Logs"), for the logs a family keeps of its own.
  std::filesystem::path log_directory;
};

// The long-lived objects a driver works with; they outlive it.
struct DriverContext {
  DriverSettings settings;
  comm::TerminalLine& line;
  CallController& controller;
  records::CallIntake& intake;
  records::TerminalData& data;
};

// A location of the poll list, as a driver reaches it.
struct PollTarget {
  std::string name;
  std::string address;  // a phone number, or empty on a direct line
  std::string terminal_id;
  TerminalType terminal_type = TerminalType::kZonTranz;  // the make of the location's terminal
};

// How a call came to be.
enum class CallStart {
  kInput,      // a direct line received bytes: a call, an hours request, or noise
  kConnected,  // a modem answered a call: the program speaks first
};

class TerminalDriver {
 public:
  virtual ~TerminalDriver() = default;

  // The line has something for the driver (data: what came with it). Holds the call it starts.
  virtual void Host(CallStart start, std::string data) = 0;
  // Takes the batch of one location over a line that has reached it (data: bytes that came with
  // the connection). True when the call succeeded.
  virtual bool Poll(const PollTarget& target, std::string data) = 0;
  // Calls held so far; the runner reads them after Host to know a call has ended.
  virtual int Calls() const = 0;
  // Whether the most recent call succeeded.
  virtual bool LastCallSucceeded() const = 0;
  // The clock of the most recent call (for the schedule), empty when none was announced.
  virtual const std::string& LastClockName() const = 0;
  // The port settings this family wants on the line before a call ("1200,N,8,1").
  virtual std::string PortSettings() const = 0;
};

}  // namespace clockcomm::terminal
