#include "shell/lan/lan_poller.h"

namespace clockcomm::shell {

struct LanPoller::Worker {
  terminal::CallController controller;
  LineRunner runner;
  std::thread thread;

  Worker(const LineSettings& settings, std::span<const terminal::TerminalFamily> families,
         LineServices& services, core::Clock& clock, core::LogSink& log,
         terminal::ScreenSink& screen)
      : controller(clock, log, screen), runner(settings, families, controller, services) {}
};

LanPoller::LanPoller(LineSettings settings, int at_once,
                     std::span<const terminal::TerminalFamily> families,
                     terminal::CallController& controller, LineServices& services,
                     core::LogSink& log, terminal::ScreenSink& screen)
    : controller_(controller), services_(services) {
  services_.schedule = nullptr;
  settings.connection_type = comm::ConnectionType::kLan;
  for (int i = 0; i < std::max(1, at_once); ++i) {
    workers_.push_back(
        std::make_unique<Worker>(settings, families, services_, controller.Clock(), log, screen));
  }
  // End on the LAN line ends every call under way and every wait for a free worker.
  end_listener_ = controller_.EndCommLoop().AddListener([this] {
    for (auto& worker : workers_) worker->controller.PressEnd();
    std::lock_guard lock(mutex_);
    changed_.notify_all();
  });
  for (auto& worker : workers_)
    worker->thread = std::thread([this, w = worker.get()] { Work(*w); });
}

LanPoller::~LanPoller() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_all();
  for (auto& worker : workers_) worker->thread.join();
  controller_.EndCommLoop().RemoveListener(end_listener_);
  for (auto& worker : workers_) worker->runner.End();
}

void LanPoller::Poll(const ClockEntry& entry) {
  std::unique_lock lock(mutex_);
  const auto ending = [this] { return controller_.EndCommLoop().Requested(); };
  changed_.wait(lock, [&] {
    return ending() ||
           (busy_ + static_cast<int>(queue_.size()) < static_cast<int>(workers_.size()) &&
            !in_flight_.contains(entry.LocationId()));
  });
  if (ending()) return;
  in_flight_.insert(entry.LocationId());
  queue_.push_back(entry);
  changed_.notify_all();
}

bool LanPoller::PollLocations(const std::vector<PollRow>& locations) {
  const int good_before = GoodLocations();
  for (const PollRow& row : locations) Poll(ClockEntry::FromPollRow(row));
  Wait();
  return !controller_.EndCommLoop().Requested() &&
         GoodLocations() - good_before == static_cast<int>(locations.size());
}

void LanPoller::Wait() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return busy_ == 0 && queue_.empty(); });
}

int LanPoller::GoodLocations() const {
  std::lock_guard lock(mutex_);
  return good_locations_;
}

int LanPoller::FailedLocations() const {
  std::lock_guard lock(mutex_);
  return failed_locations_;
}

void LanPoller::Work(Worker& worker) {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return closing_ || !queue_.empty(); });
    if (queue_.empty()) return;  // closing, nothing left
    ClockEntry entry = std::move(queue_.front());
    queue_.pop_front();
    ++busy_;
    lock.unlock();
    worker.controller.SetLineName(entry.Name());
    // Cleared before End is looked at, so that an End coming in between is never lost.
    worker.controller.EndCommLoop().Reset();
    worker.controller.CallEnded().Reset();
    if (controller_.EndCommLoop().Requested()) worker.controller.PressEnd();
    const int good_before = worker.runner.GoodCalls();
    try {
      worker.runner.Poll(entry);
    } catch (const std::exception& e) {
      // One location's failure never ends the others.
      worker.controller.Event("Error", "Poll of " + entry.Name() + " failed: " + e.what());
    }
    const bool good = worker.runner.GoodCalls() > good_before;
    lock.lock();
    ++(good ? good_locations_ : failed_locations_);
    --busy_;
    in_flight_.erase(entry.LocationId());
    changed_.notify_all();
  }
}

}  // namespace clockcomm::shell
