// The T4 host: keeps every terminal of the T4 clock list connected, each on a station of its own
// so that one terminal's failure never holds up another; stores what they collect through the
// packet writer; runs their waiting tasks; and follows the clock list as it changes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/clock.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"
#include "db/database.h"
#include "records/company_factory.h"
#include "t4/clock_assignments.h"
#include "t4/host/t4_clock_list.h"
#include "t4/host/t4_station.h"
#include "t4/host/t4_task_runner.h"
#include "t4/t4_connection.h"
#include "t4/t4_listener.h"
#include "t4/t4_packet_writer.h"

namespace clockcomm::t4 {

// Makes the connection of a clock of the list.
using T4ConnectionFactory = std::function<std::unique_ptr<IT4Connection>(const T4ClockEntry&)>;

class T4Host : public IT4Listener {
 public:
  struct ClockStatus {
    std::string name;
    bool online = false;
  };

  // open_product opens the product database (the clock list and its tasks) for the calling
  // thread: each station reads its tasks through a connection of its own.
  T4Host(std::function<std::unique_ptr<db::Database>()> open_product, T4ConnectionFactory connect,
         records::CompanyFactory& companies, T4PacketWriter& writer,
         const ClockAssignments& assignments, T4StationSettings settings, core::Clock& time,
         core::LogSink& log);
  ~T4Host() override;

  // Runs until stop: reads the clock list every cycle, starts a station for a new or changed
  // clock and stops the station of a clock that left the list.
  void Run(core::StopSignal& stop);
  // One poll of every clock of the list, one after another: connect, download, run the tasks,
  // disconnect. Returns the names of the clocks that could not be polled.
  std::vector<std::string> PollAll();

  // Stores the clock's current punch; throws when it could not (the clock keeps its log).
  void ReceivedPunch(T4Clock& clock) override;
  void ReceivedPunches(T4Clock& clock, const std::vector<T4Punch>& punches) override;
  void AutoPolled(T4Clock& clock) override;
  void CountedWaiting(T4Clock& clock, long waiting) override;

  std::vector<ClockStatus> Snapshot() const;
  int64_t PunchesStored() const {
    std::lock_guard lock(stored_mutex_);
    return punches_stored_;
  }
  // The punches each clock held unreceived when a poll last counted them, by upper-case clock
  // name; a clock not counted yet is not in it.
  std::map<std::string, long> PunchesWaitingByClock() const {
    std::lock_guard lock(stored_mutex_);
    return waiting_by_clock_;
  }
  // Blocks until the host has stored at least count punches since it was made, or the deadline.
  bool WaitForPunchesStored(int64_t count, std::chrono::steady_clock::time_point deadline);

 private:
  struct Running {
    T4ClockEntry entry;
    std::unique_ptr<T4Station> station;
  };
  void Follow(const std::vector<T4ClockEntry>& clocks);
  std::unique_ptr<T4Station> StartStation(const T4ClockEntry& entry);
  std::unique_ptr<T4Clock> MakeClock(const T4ClockEntry& entry);
  void RunTasks(T4Clock& clock);
  // A line of the clock's debug log, when its assignment asks for one.
  void Debug(const std::string& clock_name, std::string_view text);

  std::function<std::unique_ptr<db::Database>()> open_product_;
  T4ConnectionFactory connect_;
  T4TaskRunner tasks_;
  T4PacketWriter& writer_;
  const ClockAssignments& assignments_;
  T4StationSettings settings_;
  core::Clock& time_;
  core::LogSink& log_;
  mutable std::mutex mutex_;  // guards running_ against Snapshot
  std::map<int64_t, Running> running_;
  void CountStored(int64_t punches);
  mutable std::mutex stored_mutex_;
  std::condition_variable stored_;
  int64_t punches_stored_ = 0;
  std::map<std::string, long> waiting_by_clock_;
};

}  // namespace clockcomm::t4
