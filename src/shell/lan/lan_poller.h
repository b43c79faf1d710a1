// Polling terminals on a network, several at once: each of a fixed number of workers is a LAN line
// of its own (a line runner with its own controller) on its own thread. Locations start in the
// order they are handed over, the next one as soon as a worker is free, and one location is never
// called twice at once.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <thread>
#include <vector>

#include "shell/line_runner.h"

namespace clockcomm::shell {

class LanPoller : public OutboundPoller {
 public:
  // controller: the LAN line's own; its End ends every call under way. at_once >= 1.
  LanPoller(LineSettings settings, int at_once, std::span<const terminal::TerminalFamily> families,
            terminal::CallController& controller, LineServices& services, core::LogSink& log,
            terminal::ScreenSink& screen);
  ~LanPoller() override;
  LanPoller(const LanPoller&) = delete;
  LanPoller& operator=(const LanPoller&) = delete;

  // Starts the location's call on a free worker, waiting for one while all are busy (or End).
  void Poll(const ClockEntry& entry) override;
  // Polls the locations, at most at_once at a time, and waits for them all. True when every
  // call succeeded and End did not come first.
  bool PollLocations(const std::vector<PollRow>& locations);
  // Blocks until no call is under way.
  void Wait();
  // Locations whose call succeeded, and the others.
  int GoodLocations() const;
  int FailedLocations() const;

 private:
  struct Worker;
  void Work(Worker& worker);

  terminal::CallController& controller_;
  // The workers' services: a copy without the schedule, which only the line that owns it updates.
  LineServices services_;
  int end_listener_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<ClockEntry> queue_;
  std::set<int64_t> in_flight_;  // LocationIDs queued or being called
  int busy_ = 0;
  bool closing_ = false;
  int good_locations_ = 0;
  int failed_locations_ = 0;
  std::vector<std::unique_ptr<Worker>> workers_;
};

}  // namespace clockcomm::shell
