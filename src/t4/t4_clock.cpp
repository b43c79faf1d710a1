#include "t4/t4_clock.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <exception>

#include "core/errors.h"
#include "t4/t4_error_text.h"

namespace clockcomm::t4 {
namespace {

// Terminals give unused log slots this time.
bool IsEmptyTime(const core::DateTime& time) {
  static const core::DateTime kEmpty = *core::DateTime::FromParts(2000, 1, 1);
  return time == kEmpty;
}

// Enrolment numbers are decimal digits; string-enrolment terminals may pad them with blanks.
std::optional<long> ParseBadge(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return std::nullopt;
  text = text.substr(first, text.find_last_not_of(' ') + 1 - first);
  if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

T4Clock::T4Clock(long id, std::string name, std::unique_ptr<IT4Connection> connection,
                 std::function<bool()> include_seconds, core::Clock& clock, core::LogSink& log)
    : id_(id),
      name_(std::move(name)),
      connection_(std::move(connection)),
      include_seconds_(std::move(include_seconds)),
      clock_(clock),
      log_(log) {
  if (!connection_) throw core::ArgumentException("A T4 clock needs a connection.", "connection");
}

T4Clock::~T4Clock() { Disconnect(); }

T4Punch T4Clock::CurrentPunch() const {
  return T4Punch{name_, DeviceNumber(), badge_id_, timestamp_, in_out_, work_code_};
}

template <typename Call>
auto T4Clock::Timed(std::string_view function_name, int limit_seconds, Call call) {
  StartCallTimer();
  auto result = call();
  CheckCallTime(function_name, limit_seconds);
  return result;
}

void T4Clock::StartCallTimer() { call_start_ = clock_.Now(); }

void T4Clock::CheckCallTime(std::string_view function_name, int limit_seconds) {
  const core::DateTime finish = clock_.Now();
  const int64_t elapsed = core::SecondsBetween(call_start_, finish);
  if (elapsed <= limit_seconds) return;
  Debug(
      "Slow Response to Function Call.  FunctionName: {}, Begin Time: {}, Fininsh Time: {}, "
      "Elapsed: {}, Clock: {}",
      function_name, call_start_.GetTime().Format(core::kFormatHourMinuteSecond),
      finish.GetTime().Format(core::kFormatHourMinuteSecond), elapsed, name_);
}

void T4Clock::ReportFailure(std::string_view function_name) {
  log_.Event("Error",
             fmt::format("Clock: {}, {} failed: {}", name_, function_name, GetLastError()));
}

bool T4Clock::Connect() {
  if (!connection_->Connect()) return false;
  IT4Device& device = Device();
  string_enrolment_ =
      Timed("IsTFTMachine", kCallLimitSeconds, [&] { return device.IsTFTMachine(Machine()); });
  // Punches made while the host was away came with no real-time transaction: check counts.
  pending_ = true;
  return true;
}

void T4Clock::Disconnect() {
  if (connection_->IsConnected()) Device().SetAttTransactionHandler(nullptr);
  real_time_enabled_ = false;
  reading_ = false;
  connection_->Disconnect();
}

bool T4Clock::RegisterEvents() {
  IT4Device& device = Device();
  device.SetAttTransactionHandler([this](const AttTransaction& t) { OnAttTransaction(t); });
  const bool registered =
      Timed("RegEvent", kCallLimitSeconds, [&] { return device.RegEvent(Machine(), kAllEvents); });
  if (registered) real_time_enabled_ = true;
  return registered;
}

PumpResult T4Clock::PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) {
  return Device().PumpEvents(deadline, wake);
}

std::string T4Clock::GetLastError() {
  if (!connection_->IsConnected()) {
    const std::string& why = connection_->ConnectFailure();
    return why.empty() ? ErrorText(-1) : why;  // -1: "needs to be reconnected"
  }
  const std::string detail = Device().LastFailure();
  return ErrorText(GetLastErrorCode()) + (detail.empty() ? "" : " (" + detail + ")");
}

int T4Clock::GetLastErrorCode() {
  if (!connection_->IsConnected()) return -1;
  int code = 0;
  Device().GetLastError(code);
  return code;
}

bool T4Clock::BeginRead() {
  IT4Device& device = Device();
  reading_ = Timed("ReadGeneralLogData", kBulkReadLimitSeconds,
                   [&] { return device.ReadGeneralLogData(Machine()); });
  // The log itself tells whether ids are text or numbers, better than the terminal's options.
  if (reading_) string_enrolment_ = device.IsTFTMachine(Machine());
  return reading_;
}

bool T4Clock::ReadEntry(LogEntry& e) {
  IT4Device& device = Device();
  if (string_enrolment_) {
    return Timed("SSR_GetGeneralLogData", kCallLimitSeconds, [&] {
      return device.SSR_GetGeneralLogData(Machine(), e.enroll_number, e.verify_mode, e.in_out,
                                          e.year, e.month, e.day, e.hour, e.minute, e.second,
                                          e.work_code);
    });
  }
  long enroll_number = 0;
  int reserved = 0;
  const bool read = Timed("GetGeneralExtLogData", kCallLimitSeconds, [&] {
    return device.GetGeneralExtLogData(Machine(), enroll_number, e.verify_mode, e.in_out, e.year,
                                       e.month, e.day, e.hour, e.minute, e.second, e.work_code,
                                       reserved);
  });
  e.enroll_number = std::to_string(enroll_number);
  return read;
}

bool T4Clock::Take(const LogEntry& e, bool include_seconds, bool from_log) {
  const std::optional<long> badge = ParseBadge(e.enroll_number);
  const std::optional<core::DateTime> time = core::DateTime::FromParts(
      e.year, e.month, e.day, e.hour, e.minute, include_seconds ? e.second : 0);
  if (!badge || (!time && badge != 0)) {
    // Not silent: this is a punch that cannot be written.
    log_.Event("Error", fmt::format("Clock: {}, unreadable punch skipped - Badge: \"{}\", "
                                    "Date: {}-{}-{} {}:{}:{}",
                                    name_, e.enroll_number, e.year, e.month, e.day, e.hour,
                                    e.minute, e.second));
    return false;
  }
  if (!time) return false;  // badge 0: an unused slot, whatever its date
  badge_id_ = *badge;
  timestamp_ = *time;
  in_out_ = e.in_out;
  work_code_ = e.work_code;
  if (from_log) {
    Debug("(B&W) Parsed PunchLog - Badge: {}, TimeStamp: {}, Status: {}, WorkCode: {}", badge_id_,
          timestamp_.ToString(), in_out_, work_code_);
  }
  if (badge_id_ == 0 || IsEmptyTime(timestamp_)) return false;  // unused slots
  if (duplicates_.FindDuplicate(badge_id_, timestamp_)) {
    const std::string text = fmt::format("Clock: {}, BadgeID: {}, TimeStamp: {}", name_, badge_id_,
                                         timestamp_.ToString());
    Debug("{}", text);
    log_.Event("Duplicate Punch", text);
    return false;
  }
  return true;
}

bool T4Clock::Read(bool include_seconds) {
  if (!reading_) return false;
  LogEntry e;
  while (ReadEntry(e)) {
    const std::optional<long> badge = ParseBadge(e.enroll_number);
    Debug(
        "Device #{}, Clock ID:{}, Mode:{}, Status: {}, Year: {}, Month: {}, Day: {}, "
        "Hour: {}, Minute: {}, Second: {}, WorkCode: {}",
        Machine(), badge ? std::to_string(*badge) : e.enroll_number, e.verify_mode, e.in_out,
        e.year, e.month, e.day, e.hour, e.minute, e.second, e.work_code);
    if (e.in_out == kNotAPunchState && !string_enrolment_) continue;
    if (!Take(e, include_seconds, true)) continue;
    if (gathered_ != nullptr) {
      gathered_->push_back(CurrentPunch());
    } else if (listener_ != nullptr) {
      try {
        listener_->ReceivedPunch(*this);
      } catch (...) {
        duplicates_.Forget(badge_id_, timestamp_);  // not stored: the next read delivers it again
        throw;
      }
    }
    return true;
  }
  return false;
}

bool T4Clock::ClearGLog() {
  IT4Device& device = Device();
  return Timed("ClearGLog", kCallLimitSeconds, [&] { return device.ClearGLog(Machine()); });
}

bool T4Clock::ClearSLog() {
  IT4Device& device = Device();
  return Timed("ClearSLog", kCallLimitSeconds, [&] { return device.ClearSLog(Machine()); });
}

std::optional<long> T4Clock::GetDeviceStatus(int status) {
  IT4Device& device = Device();
  int value = 0;
  if (!Timed("GetDeviceStatus", kCallLimitSeconds,
             [&] { return device.GetDeviceStatus(Machine(), status, value); })) {
    return std::nullopt;
  }
  return value;
}

bool T4Clock::CountsMatch() {
  const std::optional<long> count = GetDeviceStatus(kAttendanceRecordCount);
  if (!count) {
    // Unknown is a mismatch: the log is read again rather than cleared unseen.
    Debug("GetDeviceStatus failed: {}", GetLastError());
    return false;
  }
  if (listener_ != nullptr)
    listener_->CountedWaiting(*this, std::max(0L, *count - received_count_));
  if (*count != received_count_) {
    Debug("Received Transactions: {}, Clock Transaction Count: {}", received_count_, *count);
    return false;
  }
  return true;
}

bool T4Clock::EnableDevice(bool enabled) {
  IT4Device& device = Device();
  return Timed("EnableDevice", kCallLimitSeconds,
               [&] { return device.EnableDevice(Machine(), enabled); });
}

void T4Clock::PurgeDuplicateList(long minutes) { duplicates_.PurgeRecords(minutes, clock_.Now()); }

bool T4Clock::GetUser(const std::string& enroll_number, T4User& user) {
  IT4Device& device = Device();
  return Timed("GetUser", kCallLimitSeconds,
               [&] { return device.GetUser(Machine(), enroll_number, user); });
}

bool T4Clock::SetUser(const T4User& user) {
  IT4Device& device = Device();
  return Timed("SetUser", kCallLimitSeconds, [&] { return device.SetUser(Machine(), user); });
}

bool T4Clock::DeleteUser(const std::string& enroll_number) {
  IT4Device& device = Device();
  return Timed("DeleteUser", kCallLimitSeconds,
               [&] { return device.DeleteUser(Machine(), enroll_number); });
}

void T4Clock::PollPass() {
  if (!EnableDevice(false)) ReportFailure("EnableDevice");
  if (CountsMatch()) {
    pending_ = false;
    Debug("{} Transactions Received, Clearing Clock Transaction Log", received_count_);
    if (!ClearGLog()) {
      pending_ = true;  // the next poll tries again
      ReportFailure("ClearGLog");
    }
  } else {
    Debug("Transaction Count Mismatch, Re-Downloading recent Punches");
    if (BeginRead()) {
      const bool include_seconds = IncludeSeconds();
      bool stored = true;
      // Gathered and stored together: one transaction and one sync for the whole log.
      std::vector<T4Punch> punches;
      gathered_ = &punches;
      try {
        while (Read(include_seconds)) {
        }
        gathered_ = nullptr;
        if (!punches.empty()) listener_->ReceivedPunches(*this, punches);
      } catch (const std::exception& e) {
        gathered_ = nullptr;
        stored = false;
        // Not stored: the next read delivers them again.
        for (const auto& p : punches) duplicates_.Forget(p.badge_id, p.timestamp);
        log_.Event("Error", fmt::format("Clock: {}, the read stopped ({}); the clock's "
                                        "transaction log is kept.",
                                        name_, e.what()));
      }
      EndRead();
      if (stored) listener_->CountedWaiting(*this, 0);
      if (stored && !ClearGLog()) ReportFailure("ClearGLog");
    } else {
      ReportFailure("ReadGeneralLogData");
    }
  }
}

void T4Clock::DownloadPunches() {
  std::exception_ptr failure;
  bool polled = false;
  if (pending_ && listener_ == nullptr) {
    Debug("No listener to store punches; the clock's transaction log is kept.");
  } else if (pending_) {
    try {
      PollPass();
      polled = true;
    } catch (...) {
      failure = std::current_exception();  // the terminal is enabled again first
    }
  }
  received_count_ = 0;
  if (!EnableDevice(true)) ReportFailure("EnableDevice");
  if (!RegisterEvents()) ReportFailure("RegEvent");
  if (failure) std::rethrow_exception(failure);
  // Ended once the terminal takes punches again.
  if (polled) listener_->AutoPolled(*this);
}

void T4Clock::OnAttTransaction(const AttTransaction& t) {
  if (!real_time_enabled_) return;
  const LogEntry entry{t.enroll_number, t.verify_method, t.att_state, t.year,   t.month,
                       t.day,           t.hour,          t.minute,    t.second, t.work_code};
  pending_ = true;
  // Every transaction is a record the terminal holds, so each one counts toward the received
  // count, duplicates included; one that was not stored does not, so the counts differ and the
  // next poll reads the log again.
  bool stored = true;
  if (Take(entry, IncludeSeconds(), false)) {
    std::string failure = "no listener";
    if (listener_ != nullptr) {
      try {
        listener_->ReceivedPunch(*this);
      } catch (const std::exception& e) {
        stored = false;
        failure = e.what();
      } catch (...) {
        stored = false;
        failure = "unknown error";
      }
    } else {
      stored = false;
    }
    if (!stored) {
      duplicates_.Forget(badge_id_, timestamp_);
      log_.Event("Error", fmt::format("Clock: {}, BadgeID: {}, TimeStamp: {}: real-time punch not "
                                      "stored ({}); it is read again at the next poll.",
                                      name_, badge_id_, timestamp_.ToString(), failure));
    }
  }
  if (stored) ++received_count_;
}

}  // namespace clockcomm::t4
