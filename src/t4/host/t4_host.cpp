#include "t4/host/t4_host.h"

#include <fmt/format.h>

#include <set>

#include "core/text.h"

namespace clockcomm::t4 {

T4Host::T4Host(std::function<std::unique_ptr<db::Database>()> open_product,
               T4ConnectionFactory connect, records::CompanyFactory& companies,
               T4PacketWriter& writer, const ClockAssignments& assignments,
               T4StationSettings settings, core::Clock& time, core::LogSink& log)
    : open_product_(std::move(open_product)),
      connect_(std::move(connect)),
      tasks_(companies, assignments, log),
      writer_(writer),
      assignments_(assignments),
      settings_(settings),
      time_(time),
      log_(log) {}

T4Host::~T4Host() { Follow({}); }

void T4Host::Run(core::StopSignal& stop) {
  do {
    try {
      Follow(T4ClockList(*open_product_()).ReadClocks());
    } catch (const std::exception& e) {
      // The list could not be read this time: the running stations go on as they are.
      log_.Event("Error", std::string("Couldn't read the T4 clock list: ") + e.what());
    }
  } while (time_.Pause(settings_.cycle_interval, stop));
  Follow({});
}

void T4Host::Follow(const std::vector<T4ClockEntry>& clocks) {
  std::map<int64_t, Running> leaving;
  {
    std::lock_guard lock(mutex_);
    std::set<int64_t> listed;
    for (const auto& entry : clocks) listed.insert(entry.id);
    for (auto it = running_.begin(); it != running_.end();) {
      auto same = std::find(clocks.begin(), clocks.end(), it->second.entry);
      if (!listed.contains(it->first) || same == clocks.end()) {
        leaving.insert(running_.extract(it++));
      } else {
        ++it;
      }
    }
  }
  // Stopped outside the lock: a station ends its current step first.
  for (auto& [id, running] : leaving) running.station->Stop();
  for (const auto& entry : clocks) {
    std::lock_guard lock(mutex_);
    if (running_.contains(entry.id)) continue;
    try {
      running_.emplace(entry.id, Running{entry, StartStation(entry)});
    } catch (const std::exception& e) {
      log_.Event("Error", "T4 clock " + entry.name + " not started: " + e.what());
    }
  }
}

std::vector<std::string> T4Host::PollAll() {
  std::vector<std::string> failed;
  for (const auto& entry : T4ClockList(*open_product_()).ReadClocks()) {
    try {
      auto clock = MakeClock(entry);
      if (!clock->Connect()) {
        log_.Event("T4 Clock Offline", entry.name + " at " + entry.address +
                                           " does not answer: " + clock->GetLastError());
        failed.push_back(entry.name);
        continue;
      }
      clock->DownloadPunches();
      RunTasks(*clock);
    } catch (const std::exception& e) {
      log_.Event("Error", "T4 clock " + entry.name + ": " + e.what());
      failed.push_back(entry.name);
    }
  }
  return failed;
}

std::unique_ptr<T4Clock> T4Host::MakeClock(const T4ClockEntry& entry) {
  const std::string name = entry.name;
  auto clock = std::make_unique<T4Clock>(
      entry.id, name, connect_(entry), [this, name] { return assignments_.IncludeSeconds(name); },
      time_, log_);
  clock->SetListener(this);
  clock->SetDebugLog([this, name] { return assignments_.Get(name).DebugLog(); });
  return clock;
}

std::unique_ptr<T4Station> T4Host::StartStation(const T4ClockEntry& entry) {
  auto station = std::make_unique<T4Station>(
      MakeClock(entry), entry.address, settings_, [this](T4Clock& clock) { RunTasks(clock); },
      time_, log_);
  station->Start();
  return station;
}

void T4Host::RunTasks(T4Clock& clock) {
  auto product = open_product_();
  T4ClockList list(*product);
  tasks_.Run(clock, list);
}

void T4Host::ReceivedPunch(T4Clock& clock) {
  if (writer_.WritePacket(clock.CurrentPunch()) == T4PacketWriter::Outcome::kWritten) {
    CountStored(1);
  }
}

void T4Host::ReceivedPunches(T4Clock& clock, const std::vector<T4Punch>& punches) {
  const T4PacketWriter::Counts counts = writer_.WritePackets(punches);
  CountStored(counts.written);
  Debug(clock.Name(), fmt::format("Read {} punches: {} stored, {} stored before", punches.size(),
                                  counts.written, counts.already_stored));
}

void T4Host::CountStored(int64_t punches) {
  {
    std::lock_guard lock(stored_mutex_);
    punches_stored_ += punches;
  }
  stored_.notify_all();
}

bool T4Host::WaitForPunchesStored(int64_t count, std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(stored_mutex_);
  return stored_.wait_until(lock, deadline, [&] { return punches_stored_ >= count; });
}

void T4Host::CountedWaiting(T4Clock& clock, long waiting) {
  std::lock_guard lock(stored_mutex_);
  waiting_by_clock_[core::ToUpper(clock.Name())] = waiting;
}

void T4Host::AutoPolled(T4Clock& clock) {
  Debug(clock.Name(), "Poll of " + clock.Name() + " ended");
}

void T4Host::Debug(const std::string& clock_name, std::string_view text) {
  if (assignments_.Get(clock_name).DebugLog()) log_.Debug(clock_name, text);
}

std::vector<T4Host::ClockStatus> T4Host::Snapshot() const {
  std::lock_guard lock(mutex_);
  std::vector<ClockStatus> out;
  for (const auto& [id, running] : running_) {
    out.push_back({running.entry.name, running.station->Online()});
  }
  return out;
}

}  // namespace clockcomm::t4
