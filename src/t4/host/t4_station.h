// One T4 terminal kept connected by the host, on a thread of its own: connect, register for
// real-time transactions, poll every cycle (DownloadPunches), keep the duplicate lists short, run
// the host's work for the clock (its waiting tasks), and take real-time punches in between. A
// terminal that cannot be reached or drops is tried again with a growing pause; the outage is
// logged once when it starts and once when it ends.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "core/clock.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"
#include "t4/t4_clock.h"

namespace clockcomm::t4 {

struct T4StationSettings {
  std::chrono::milliseconds cycle_interval{60'000};  // between two polls of the terminal
  long purge_minutes = 24 * 60;                      // duplicate lists keep a day of punches
  std::chrono::milliseconds first_retry{5000};       // after a failed connect, doubling up to
  std::chrono::milliseconds max_retry{300'000};
};

class T4Station {
 public:
  // after_poll runs after each poll, on the station's thread; what it throws is logged.
  T4Station(std::unique_ptr<T4Clock> clock, std::string address, T4StationSettings settings,
            std::function<void(T4Clock&)> after_poll, core::Clock& time, core::LogSink& log);
  // Stops and joins the thread.
  ~T4Station();

  void Start();
  void Stop();
  T4Clock& Clock() { return *clock_; }
  // True while the terminal is reachable (read from other threads: a snapshot).
  bool Online() const { return online_; }

 private:
  void Run();
  // One session with the terminal, until it drops or the stop signal; true when it ran at least
  // one whole cycle.
  bool Serve();
  void Reached(bool ok);

  std::unique_ptr<T4Clock> clock_;
  std::string address_;
  T4StationSettings settings_;
  std::function<void(T4Clock&)> after_poll_;
  core::Clock& time_;
  core::LogSink& log_;
  core::StopSignal stop_;
  std::atomic<bool> online_{false};
  bool in_outage_ = false;
  std::thread thread_;
};

}  // namespace clockcomm::t4
