#include "core/clock.h"

#include <ctime>

namespace clockcomm::core {
namespace {
// A wall-clock wait re-reads the wall time at least this often, so that a change of the system
// time (or of daylight-saving time) is noticed without waiting out a stale interval.
constexpr std::chrono::seconds kWallClockRecheck{30};
}  // namespace

DateTime SystemClock::Now() const {
  std::time_t t = std::time(nullptr);
  std::tm local{};
  localtime_r(&t, &local);
  return *DateTime::FromParts(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                              local.tm_min, local.tm_sec);
}

bool SystemClock::WaitUntil(const DateTime& deadline, StopSignal& stop) {
  while (!stop.Requested()) {
    const int64_t remaining = SecondsBetween(Now(), deadline);
    if (remaining <= 0) return true;
    std::chrono::seconds step{remaining};
    if (step > kWallClockRecheck) step = kWallClockRecheck;
    stop.WaitFor(step);  // beats for this thread's loop as it wakes
  }
  return false;
}

ManualClock::ManualClock(DateTime start) : now_(start) {}

DateTime ManualClock::Now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

Clock::Monotonic ManualClock::Steady() const {
  std::lock_guard lock(mutex_);
  return Monotonic{} + steady_offset_;
}

bool ManualClock::WaitUntil(const DateTime& deadline, StopSignal& stop) {
  const int listener = stop.AddListener([this] {
    std::lock_guard lock(mutex_);
    cv_.notify_all();
  });
  bool reached;
  {
    std::unique_lock lock(mutex_);
    ++waiters_;
    cv_.notify_all();
    cv_.wait(lock, [&] { return now_ >= deadline || stop.Requested(); });
    --waiters_;
    reached = now_ >= deadline;
  }
  stop.RemoveListener(listener);
  return reached;
}

bool ManualClock::Pause(std::chrono::nanoseconds interval, StopSignal& stop) {
  if (stop.Requested()) return false;
  std::lock_guard lock(mutex_);
  AdvanceLocked(interval);
  return true;
}

void ManualClock::Set(const DateTime& now) {
  std::lock_guard lock(mutex_);
  steady_offset_ += std::chrono::seconds(std::max<int64_t>(0, SecondsBetween(now_, now)));
  now_ = now;
  cv_.notify_all();
}

void ManualClock::Advance(std::chrono::seconds by) {
  std::lock_guard lock(mutex_);
  AdvanceLocked(by);
}

void ManualClock::AdvanceTo(Monotonic when) {
  std::lock_guard lock(mutex_);
  const auto by = when - (Monotonic{} + steady_offset_);
  if (by > std::chrono::nanoseconds::zero()) AdvanceLocked(by);
}

void ManualClock::AdvanceLocked(std::chrono::nanoseconds by) {
  using std::chrono::floor;
  using std::chrono::seconds;
  const auto before = floor<seconds>(steady_offset_);
  steady_offset_ += by;
  now_ = now_.AddSeconds((floor<seconds>(steady_offset_) - before).count());
  cv_.notify_all();
}

int ManualClock::Waiters() const {
  std::lock_guard lock(mutex_);
  return waiters_;
}

bool ManualClock::WaitForWaiters(int n, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return cv_.wait_for(lock, timeout, [&] { return waiters_ >= n; });
}

}  // namespace clockcomm::core
