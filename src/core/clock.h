// Where every class asks "what time is it": local wall time, a monotonic stopwatch, and a wait
// until a wall time that a stop request cuts short. Tests use ManualClock and never sleep.
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
};

class SystemClock : public Clock {
 public:
  DateTime Now() const override;
  Monotonic Steady() const override { return std::chrono::steady_clock::now(); }
  bool WaitUntil(const DateTime& deadline, StopSignal& stop) override;
};

// A wall clock that moves only when told to; waiters wake when time is set past their deadline.
// Its steady time is the real one plus every step it was told to take.
class ManualClock : public Clock {
 public:
  explicit ManualClock(DateTime start = DateTime(*Date::FromYmd(2009, 10, 20), TimeOfDay()));

  DateTime Now() const override;
  Monotonic Steady() const override;
  bool WaitUntil(const DateTime& deadline, StopSignal& stop) override;

  void Set(const DateTime& now);
  void Advance(std::chrono::seconds by);
  // Number of threads currently blocked in WaitUntil (lets a test step time once a loop waits).
  int Waiters() const;
  // Blocks until at least n threads wait in WaitUntil, or the real-time timeout passes.
  bool WaitForWaiters(int n, std::chrono::milliseconds timeout) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  DateTime now_;
  std::chrono::seconds steady_offset_{0};
  int waiters_ = 0;
};

}  // namespace clockcomm::core
