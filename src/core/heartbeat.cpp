#include "core/heartbeat.h"

#include <algorithm>
#include <atomic>

namespace clockcomm::core {
namespace {

std::atomic<Heartbeat*> process_heartbeat{nullptr};
// The loop of this thread: its heartbeat and id (0: none).
thread_local Heartbeat* loop_heartbeat = nullptr;
thread_local int loop_id = 0;

}  // namespace

Heartbeat::Heartbeat(std::chrono::microseconds watchdog, std::function<void()> pet)
    : slice_(std::max<std::chrono::nanoseconds>(watchdog / 4, std::chrono::milliseconds(1))),
      pet_(std::move(pet)) {}

int Heartbeat::Register() {
  std::lock_guard lock(mutex_);
  const int id = next_id_++;
  came_round_[id] = false;
  return id;
}

void Heartbeat::Unregister(int loop) {
  std::lock_guard lock(mutex_);
  came_round_.erase(loop);
}

bool Heartbeat::Beat(int loop, Time now) {
  {
    std::lock_guard lock(mutex_);
    auto it = came_round_.find(loop);
    if (it == came_round_.end()) return false;
    it->second = true;
    if (now - last_pet_ < slice_ / 2) return false;
    for (const auto& [id, came] : came_round_) {
      if (!came) return false;
    }
    for (auto& [id, came] : came_round_) came = false;
    last_pet_ = now;
  }
  pet_();
  return true;
}

Heartbeat* Heartbeat::Process() { return process_heartbeat.load(); }

void Heartbeat::SetProcess(Heartbeat* heartbeat) { process_heartbeat.store(heartbeat); }

std::chrono::nanoseconds Heartbeat::WaitSlice() {
  const Heartbeat* heartbeat = Process();
  return heartbeat != nullptr ? heartbeat->Slice() : std::chrono::nanoseconds::max();
}

void Heartbeat::BeatThisThread() {
  if (loop_heartbeat != nullptr) loop_heartbeat->Beat(loop_id, std::chrono::steady_clock::now());
}

Heartbeat::Loop::Loop() {
  Heartbeat* heartbeat = Process();
  if (heartbeat == nullptr || loop_heartbeat != nullptr) return;
  heartbeat_ = heartbeat;
  id_ = heartbeat->Register();
  loop_heartbeat = heartbeat;
  loop_id = id_;
}

Heartbeat::Loop::~Loop() {
  if (heartbeat_ == nullptr) return;
  heartbeat_->Unregister(id_);
  loop_heartbeat = nullptr;
  loop_id = 0;
}

}  // namespace clockcomm::core
