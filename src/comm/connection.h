// The transport under every terminal conversation: a byte stream that can be read without
// blocking, written, and waited on with a deadline. Serial lines (a pty is one), TCP and the
// scripted stub implement it.
#pragma once

#include <chrono>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "core/errors.h"
#include "core/stop_signal.h"

namespace clockcomm::comm {

// A deadline: a point of the steady time of the clock the line goes with (core::Clock::Steady).
using SteadyTime = std::chrono::steady_clock::time_point;

// A deadline that never passes.
inline constexpr SteadyTime kNoDeadline = SteadyTime::max();

// Raised by Read, WriteText and WaitForInput when the line is not open, and by Read once the
// other end has gone (a hang-up on a pty, a closed socket). A closed line never reads as silence.
class ConnectionClosedError : public core::Error {
 public:
  explicit ConnectionClosedError(const std::string& message) : core::Error(message) {}
};

// Signals that end a wait at once: the line's stop signal, a reader's cancel. Null entries are
// ignored, so callers may pass optional signals as they are.
class WakeSet {
 public:
  WakeSet() = default;
  WakeSet(std::initializer_list<const core::StopSignal*> signals);
  void Add(const core::StopSignal* signal);
  bool AnyRequested() const;
  // The eventfds to put in a poll set beside the connection's own descriptor.
  std::vector<int> Fds() const;

 private:
  std::vector<const core::StopSignal*> signals_;
};

enum class WaitResult {
  kReadable,  // Read() has something to report: text, or the other end's hang-up
  kTimedOut,  // the deadline passed in silence
  kWoken,     // a signal of the wake set was raised
};

class IConnection {
 public:
  virtual ~IConnection() = default;

  // Whatever text has arrived since the previous call, possibly empty. Never blocks.
  virtual std::string Read() = 0;
  // Sends the text, byte for byte. Blocks only until the system has taken it all.
  virtual void WriteText(std::string_view text) = 0;
  // Blocks until input is there, the deadline passes, or a wake signal is raised. Never spins:
  // the calling thread sleeps in poll().
  virtual WaitResult WaitForInput(SteadyTime deadline, const WakeSet& wake) = 0;
  // Blocks until everything written has left the machine (tcdrain on a serial line). Where the
  // transport has no such notion (a socket, the stub) it returns at once.
  virtual void WaitUntilSent() {}
  // A short name for logs: the device path, "host:port", "stub".
  virtual std::string Describe() const = 0;
};

}  // namespace clockcomm::comm
