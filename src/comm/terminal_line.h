// A line to terminals as the line runner uses it, whatever is on it: a serial line wired straight
// to terminals, or a Hayes modem on a serial line that answers and dials. Each only opens, waits
// for a call, reaches a terminal, ends a call and closes; the conversation is the driver's.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "comm/connection.h"
#include "comm/connection_type.h"
#include "core/clock.h"

namespace clockcomm::comm {

// What happened on a line waiting for a call, or when reaching a terminal.
struct LineEvent {
  enum class Kind {
    kNothing,    // the deadline passed, or a wake signal
    kInput,      // a direct line received bytes (data holds them)
    kRing,       // a modem's RING
    kConnected,  // a call is up (modem CONNECT, or a direct line ready to poll)
    kFailed,     // a modem's NO CARRIER, BUSY, ... or no answer (text holds the line)
  };
  Kind kind = Kind::kNothing;
  std::string text;   // the modem's result line
  std::string speed;  // kConnected through a modem: the connect speed ("300" when none)
  std::string data;   // bytes of the terminal that came with the event
};

// The answer of a modem to its initialisation.
struct PrepareResult {
  enum class Status { kReady, kNoResponse, kBadReply, kCarrierHigh };
  Status status = Status::kReady;
  std::string reply;  // kBadReply: what the modem said
};

struct LineOptions {
  std::string device;         // the serial port's device path
  std::string port_settings;  // "9600,N,8,1"
  std::chrono::milliseconds response_wait{3000};
  std::string modem_init;  // the site's init string (auto-answer on)
  // A network line leaves this gap between two of the program's sends (the LAN delay).
  std::chrono::microseconds lan_delay{0};
};

class TerminalLine {
 public:
  virtual ~TerminalLine() = default;

  // Opens the port. Throws core::SystemError naming the device.
  virtual void Open() = 0;
  virtual bool IsOpen() const = 0;
  // A modem is reset and initialised; a direct line is ready at once.
  virtual PrepareResult Prepare() = 0;
  // Closes the port; a modem first hangs up and turns auto-answer off, whatever its init string.
  virtual void Close() = 0;

  virtual IConnection& Connection() = 0;
  // Host mode: blocks until something happens on the line, the deadline, or a wake signal.
  virtual LineEvent WaitForCall(SteadyTime deadline, const WakeSet& wake) = 0;
  // Outbound: reaches the terminal at address (a modem dials it; a direct line is there already).
  virtual LineEvent Reach(const std::string& address, const WakeSet& wake) = 0;
  // Drops the connection of the call at once (modem: DTR down).
  virtual void HangUp() = 0;
  // The call is over: a modem is put back to waiting for the next call.
  virtual void EndCall() = 0;
  // A modem whose carrier has gone (always false on a direct line).
  virtual bool CarrierLost() const = 0;
  // Control answers are framed packets on this line (through a modem) rather than single bytes.
  virtual bool FramedControls() const = 0;
  virtual void SetSpeed(const std::string& port_settings) = 0;
  virtual std::string Describe() const = 0;
};

// The line for a connection type; clock gives the steady time of a modem's waits (a serial line
// is real, so in use this is the system clock). A LAN line reaches each location by TCP.
std::unique_ptr<TerminalLine> MakeTerminalLine(ConnectionType type, LineOptions options,
                                               const core::Clock& clock);

// "CONNECT 2400" gives "2400"; "CONNECT" alone gives "300".
std::string ConnectSpeed(std::string_view connect_line);

}  // namespace clockcomm::comm
