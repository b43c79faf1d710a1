// The program's side of a Hayes-command modem: send an AT command, read its echo and its result
// code; escape to command mode with "+++" between guard times.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "comm/connection.h"
#include "core/clock.h"

namespace clockcomm::comm {

class HayesModem {
 public:
  // Silence a modem needs before and after "+++" to take it as an escape.
  static constexpr std::chrono::milliseconds kGuardTime{1000};
  // A dial can take long: dialling, ringing, training.
  static constexpr std::chrono::milliseconds kDialTimeout{60000};

  // clock: the steady time of the connection's deadlines.
  HayesModem(IConnection& connection, const core::Clock& clock,
             std::chrono::milliseconds response_wait, WakeSet wake)
      : connection_(connection),
        clock_(clock),
        response_wait_(response_wait),
        wake_(std::move(wake)) {}

  // Sends the command followed by CR and returns the first result code that comes back ("OK",
  // "ERROR", "CONNECT 2400", "NO CARRIER" ...), skipping the echo and empty lines. Returns "" when
  // nothing came within the wait (or the wait was cut short by a wake signal).
  std::string Command(std::string_view command);
  std::string Command(std::string_view command, std::chrono::milliseconds wait);
  // Guard time, "+++", guard time; returns the result code as Command does.
  std::string Escape();

  // Text that came after a result code and has not been consumed (a connection's first bytes).
  std::string TakeLeftover();

  static bool IsResultCode(std::string_view line);

 private:
  std::string ReadResult(std::string_view echo, std::chrono::milliseconds wait);

  IConnection& connection_;
  const core::Clock& clock_;
  std::chrono::milliseconds response_wait_;
  WakeSet wake_;
  std::string pending_;
};

}  // namespace clockcomm::comm
