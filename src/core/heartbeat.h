// The service manager's watchdog, petted only when every loop that takes part has come round since
// the last pet: a loop stuck anywhere but in one of its waits stops the pets and lets the watchdog
// restart the program. The waits (a line's poll(), a wait for a wall time, a stop signal's wait)
// beat for the loop of their thread each time they wake, and while a watchdog is on they wake at
// least every Slice().
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <mutex>

namespace clockcomm::core {

class Heartbeat {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // watchdog is the service manager's time-out; pet tells it that all is well.
  Heartbeat(std::chrono::microseconds watchdog, std::function<void()> pet);

  // A quarter of the time-out: two missed wake-ups still leave time to pet.
  std::chrono::nanoseconds Slice() const { return slice_; }
  int Register();
  void Unregister(int loop);
  // Marks the loop as come round; pets (returning true) once every loop has, unless the last pet
  // was less than half a slice ago.
  bool Beat(int loop, Time now);

  // The process's heartbeat, when the service manager asked for one (nullptr otherwise). Set once
  // before the loops start.
  static Heartbeat* Process();
  static void SetProcess(Heartbeat* heartbeat);
  // The longest a wait may block before it beats: Slice() of the process's heartbeat, or max().
  static std::chrono::nanoseconds WaitSlice();
  // Beats for the calling thread's loop, if it has one.
  static void BeatThisThread();

  // Makes the calling thread's loop take part while it lives. A loop inside another one on the
  // same thread (a host run inside the auto-start run) is the outer one.
  class Loop {
   public:
    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

   private:
    Heartbeat* heartbeat_ = nullptr;
    int id_ = 0;
  };

 private:
  std::chrono::nanoseconds slice_;
  std::function<void()> pet_;
  std::mutex mutex_;
  std::map<int, bool> came_round_;
  int next_id_ = 1;
  Time last_pet_{};
};

}  // namespace clockcomm::core
