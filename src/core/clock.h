// Where every class asks "what time is it": local wall time, a monotonic stopwatch, a wait until a
// wall time and a short pause, both cut short by a stop request. Tests use ManualClock and never
// sleep. Every deadline handed to a line is a point of Steady(): a real line (a descriptor in
// poll()) counts real time, so it goes with a clock whose steady time is real; the scripted stub
// goes with a ManualClock, which it moves itself.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "core/date_time.h"
#include "core/stop_signal.h"

namespace clockcomm::core {

class Clock {
 public:
  using Monotonic = std::chrono::steady_clock::time_point;
  virtual ~Clock() = default;

  // Local wall-clock time, to the second.
  virtual DateTime Now() const = 0;
  // Monotonic time for measuring intervals (time-outs, stopwatches).
  virtual Monotonic Steady() const = 0;
  // Blocks until Now() >= deadline or stop is requested. Returns false when stopped first.
  virtual bool WaitUntil(const DateTime& deadline, StopSignal& stop) = 0;
  // A pause of a conversation (between end characters, before a resend): blocks for the interval
  // of steady time or until stop is requested. Returns false when stopped first.
  virtual bool Pause(std::chrono::nanoseconds interval, StopSignal& stop) = 0;
};

class SystemClock : public Clock {
 public:
  DateTime Now() const override;
  Monotonic Steady() const override { return std::chrono::steady_clock::now(); }
  bool WaitUntil(const DateTime& deadline, StopSignal& stop) override;
  bool Pause(std::chrono::nanoseconds interval, StopSignal& stop) override {
    return !stop.WaitFor(interval);
  }
};

// A clock that moves only when told to. Waiters of WaitUntil wake when time is set past their
// deadline (a test steps the calendar); a Pause, like a silent wait of the stub, moves the clock
// itself, since the thread that pauses is the one whose virtual time passes.
class ManualClock : public Clock {
 public:
  explicit ManualClock(DateTime start = DateTime(*Date::FromYmd(2009, 10, 20), TimeOfDay()));

  DateTime Now() const override;
  Monotonic Steady() const override;
  bool WaitUntil(const DateTime& deadline, StopSignal& stop) override;
  bool Pause(std::chrono::nanoseconds interval, StopSignal& stop) override;

  void Set(const DateTime& now);
  void Advance(std::chrono::seconds by);
  // Moves steady time forward to when (never back); the wall time follows by the whole seconds
  // crossed.
  void AdvanceTo(Monotonic when);
  // Number of threads currently blocked in WaitUntil (lets a test step time once a loop waits).
  int Waiters() const;
  // Blocks until at least n threads wait in WaitUntil, or the real-time timeout passes.
  bool WaitForWaiters(int n, std::chrono::milliseconds timeout) const;

 private:
  void AdvanceLocked(std::chrono::nanoseconds by);

  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  DateTime now_;
  std::chrono::nanoseconds steady_offset_{0};
  int waiters_ = 0;
};

// A manual calendar over real steady time, for tests that step call times and auto-end times while
// a real line (a pty) measures its time-outs and pauses in real time.
class ManualWallClock : public ManualClock {
 public:
  using ManualClock::ManualClock;
  Monotonic Steady() const override { return std::chrono::steady_clock::now(); }
  bool Pause(std::chrono::nanoseconds interval, StopSignal& stop) override {
    return !stop.WaitFor(interval);
  }
};

}  // namespace clockcomm::core
