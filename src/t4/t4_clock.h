// One T4 fingerprint terminal as the host sees it: punches arrive as real-time transactions while
// connected, and a poll (DownloadPunches) reconciles the terminal's attendance log with what was
// received, re-reading it through the duplicate filter when the counts differ, and clears the log
// once every punch is stored. All of it runs on the owner's thread: real-time transactions come
// only while the owner pumps them (PumpEvents), so the state needs no lock.
#pragma once

#include <fmt/format.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/clock.h"
#include "core/log_sink.h"
#include "t4/duplicate_checker.h"
#include "t4/it4_device.h"
#include "t4/t4_connection.h"
#include "t4/t4_listener.h"
#include "t4/t4_punch.h"

namespace clockcomm::t4 {

class T4Clock {
 public:
  // Calls slower than these (whole seconds) are written to the debug log; never aborted. The bulk
  // read moves the whole log, so it gets longer.
  static constexpr int kBulkReadLimitSeconds = 30;
  static constexpr int kCallLimitSeconds = 10;
  // An in/out state that a numeric-enrolment terminal's log holds for entries that are no punch;
  // string-enrolment terminals use it for real punches.
  static constexpr int kNotAPunchState = 7;

  // include_seconds says whether this clock's timestamps keep their seconds (the host binds it to
  // the clock's assignment); it is asked per real-time transaction and once per bulk read.
  T4Clock(long id, std::string name, std::unique_ptr<IT4Connection> connection,
          std::function<bool()> include_seconds, core::Clock& clock, core::LogSink& log);
  ~T4Clock();
  T4Clock(const T4Clock&) = delete;
  T4Clock& operator=(const T4Clock&) = delete;

  long ID() const { return id_; }
  const std::string& Name() const { return name_; }
  long DeviceNumber() const { return connection_->DeviceNumber(); }
  IT4Listener* Listener() const { return listener_; }
  void SetListener(IT4Listener* listener) { listener_ = listener; }
  // Whether the clock writes its debug log (asked per line; all of it when not set).
  void SetDebugLog(std::function<bool()> enabled) { debug_log_ = std::move(enabled); }
  // Ends any wait on the terminal at once when raised (see IT4Device::SetStopSignal).
  void SetStopSignal(const core::StopSignal* stop) { connection_->SetStopSignal(stop); }

  // The current punch: the one handed to the listener last.
  const core::DateTime& Timestamp() const { return timestamp_; }
  long BadgeId() const { return badge_id_; }
  long InOut() const { return in_out_; }
  long WorkCode() const { return work_code_; }
  T4Punch CurrentPunch() const;

  bool StringEnrolment() const { return string_enrolment_; }
  bool RealTimeEnabled() const { return real_time_enabled_; }
  // A real-time transaction came (or the clock was just connected): the next poll checks counts.
  bool Pending() const { return pending_; }
  long ReceivedCount() const { return received_count_; }
  DuplicateChecker& Duplicates() { return duplicates_; }

  // Connects and learns whether the terminal reports enrolment numbers as text.
  bool Connect();
  void Disconnect();
  bool IsConnected() const { return connection_->IsConnected(); }
  // Registers for real-time transactions; they reach the listener from PumpEvents on.
  bool RegisterEvents();
  PumpResult PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake);
  // The text of the terminal's last error, and its code.
  std::string GetLastError();
  int GetLastErrorCode();
  static constexpr int kDataNotFound = 0;

  // Loads the terminal's attendance log; Read then delivers one acceptable punch per call until it
  // returns false. A listener's exception passes through Read, and that punch is not remembered
  // as received. (A poll's re-read gathers the punches and hands them over together instead.)
  bool BeginRead();
  bool Read(bool include_seconds);
  void EndRead() { reading_ = false; }
  bool ClearGLog();
  bool ClearSLog();
  // True when the terminal holds exactly as many records as real-time transactions came.
  bool CountsMatch();
  // Nothing when the terminal did not answer.
  std::optional<long> GetDeviceStatus(int status);
  bool EnableDevice(bool enabled);
  void PurgeDuplicateList(long minutes);
  // The user and template operations of the host's tasks, timed as every terminal call is.
  bool GetUser(const std::string& enroll_number, T4User& user);
  bool SetUser(const T4User& user);
  bool DeleteUser(const std::string& enroll_number);
  // The poll. The log is cleared only when every punch in it has been stored by the listener.
  void DownloadPunches();

  // Timing of a terminal call, also for the host's own calls: a call that took longer than
  // limit_seconds is written to the debug log.
  void StartCallTimer();
  void CheckCallTime(std::string_view function_name, int limit_seconds);

 private:
  struct LogEntry {
    std::string enroll_number;
    int verify_mode = 0, in_out = 0;
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    int work_code = 0;
  };

  template <typename Call>
  auto Timed(std::string_view function_name, int limit_seconds, Call call);
  IT4Device& Device() { return connection_->Device(); }
  int Machine() const { return static_cast<int>(connection_->DeviceNumber()); }
  bool IncludeSeconds() const { return include_seconds_ && include_seconds_(); }
  // Formatted only when the clock writes its debug log: a bulk read makes lines per record.
  template <typename... Args>
  void Debug(fmt::format_string<Args...> format, Args&&... args) {
    if (!debug_log_ || debug_log_()) {
      log_.Debug(name_, fmt::format(format, std::forward<Args>(args)...));
    }
  }
  void ReportFailure(std::string_view function_name);

  bool ReadEntry(LogEntry& entry);
  // Makes the entry the current punch and filters it: true for a new, valid punch.
  bool Take(const LogEntry& entry, bool include_seconds, bool from_log);
  void PollPass();
  void OnAttTransaction(const AttTransaction& transaction);

  long id_;
  std::string name_;
  std::unique_ptr<IT4Connection> connection_;
  std::function<bool()> include_seconds_;
  std::function<bool()> debug_log_;
  core::Clock& clock_;
  core::LogSink& log_;
  IT4Listener* listener_ = nullptr;

  core::DateTime timestamp_;
  long badge_id_ = 0;
  long in_out_ = 0;
  long work_code_ = 0;

  bool string_enrolment_ = false;
  bool real_time_enabled_ = false;
  bool pending_ = false;
  bool reading_ = false;
  std::vector<T4Punch>* gathered_ = nullptr;  // where Read puts punches during a poll's re-read
  long received_count_ = 0;
  core::DateTime call_start_;
  DuplicateChecker duplicates_;
};

}  // namespace clockcomm::t4
