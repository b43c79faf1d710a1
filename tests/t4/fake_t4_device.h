// What the T4 tests share: an in-process terminal (an attendance log, failures and slow calls on
// demand per operation, a queue of real-time transactions handed out by PumpEvents) and a log that
// threads may write and a test may wait on.
#pragma once

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "comm/fd_io.h"
#include "core/clock.h"
#include "core/log_sink.h"
#include "t4/it4_device.h"

namespace clockcomm::t4::test {

inline AttTransaction Transaction(std::string badge, const core::DateTime& at, int state = 0) {
  const core::Date d = at.GetDate();
  const core::TimeOfDay t = at.GetTime();
  return {std::move(badge), true,    state,    1,          d.Year(),
          d.Month(),        d.Day(), t.Hour(), t.Minute(), t.Second()};
}

class FakeT4Device : public IT4Device {
 public:
  explicit FakeT4Device(core::ManualClock& clock) : clock_(clock) {}

  bool tft = false;                 // reports enrolment numbers as text
  bool blocking = false;            // PumpEvents sleeps until the deadline or a wake, as a real one
  std::vector<AttTransaction> log;  // the attendance log; its size is the record count
  // The terminal's users by enrolment number; shared, so that they outlive one connection.
  std::shared_ptr<std::map<std::string, T4User>> users =
      std::make_shared<std::map<std::string, T4User>>();
  std::deque<AttTransaction> events;                 // real-time transactions not yet pumped
  std::map<std::string, int> failures;               // operation -> error code it fails with
  std::map<std::string, std::chrono::seconds> slow;  // operation -> virtual time it takes
  std::vector<std::string> calls;  // operations in order; EnableDevice as "EnableDevice(0|1)"
  std::function<void(const std::string&)> on_call;  // told of each operation before it runs

  // A punch as the terminal makes it: stored, then sent in real time.
  void Punch(const AttTransaction& t) {
    log.push_back(t);
    events.push_back(t);
  }

  bool Connect_Net(const std::string&, int) override { return Call("Connect_Net"); }
  void Disconnect() override { calls.push_back("Disconnect"); }
  bool IsTFTMachine(int) override { return Call("IsTFTMachine") && tft; }
  bool ReadGeneralLogData(int) override {
    buffer_.assign(log.begin(), log.end());
    return Call("ReadGeneralLogData");
  }
  bool SSR_GetGeneralLogData(int, std::string& badge, int& verify, int& state, int& year,
                             int& month, int& day, int& hour, int& minute, int& second,
                             int& work_code) override {
    return Next("SSR_GetGeneralLogData", badge, verify, state, year, month, day, hour, minute,
                second, work_code);
  }
  bool GetGeneralExtLogData(int, long& badge, int& verify, int& state, int& year, int& month,
                            int& day, int& hour, int& minute, int& second, int& work_code,
                            int& reserved) override {
    std::string text;
    reserved = 0;
    const bool read = Next("GetGeneralExtLogData", text, verify, state, year, month, day, hour,
                           minute, second, work_code);
    if (read) badge = std::stol(text);
    return read;
  }
  bool GetDeviceStatus(int, int, int& value) override {
    value = static_cast<int>(log.size());
    return Call("GetDeviceStatus");
  }
  bool ClearGLog(int) override { return Call("ClearGLog") && (log.clear(), true); }
  bool ClearSLog(int) override { return Call("ClearSLog"); }
  bool EnableDevice(int, bool on) override {
    return Call(on ? "EnableDevice(1)" : "EnableDevice(0)");
  }
  bool GetDeviceTime(int, core::DateTime&) override { return Call("GetDeviceTime"); }
  bool SetDeviceTime2(int, const core::DateTime&) override { return Call("SetDeviceTime2"); }
  bool RegEvent(int, int) override { return Call("RegEvent"); }
  bool GetUser(int, const std::string& enroll_number, T4User& user) override {
    if (!Call("GetUser")) return false;
    const auto found = users->find(enroll_number);
    if (found != users->end()) user = found->second;
    last_error_ = found == users->end() ? 0 : 1;  // 0: "Data not found"
    return found != users->end();
  }
  bool SetUser(int, const T4User& user) override {
    return Call("SetUser") && ((*users)[user.enroll_number] = user, true);
  }
  bool DeleteUser(int, const std::string& enroll_number) override {
    return Call("DeleteUser") && (users->erase(enroll_number), true);
  }
  void SetAttTransactionHandler(AttTransactionHandler h) override { handler_ = std::move(h); }

  // Hands every queued transaction to the handler (dropped when none is set, as a terminal's
  // send-once events are).
  PumpResult PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) override {
    for (; !events.empty(); events.pop_front()) {
      if (handler_) handler_(events.front());
    }
    std::vector<pollfd> fds;
    for (int fd : wake.Fds()) fds.push_back({fd, POLLIN, 0});
    if (blocking) ::poll(fds.data(), fds.size(), comm::fd_io::PollTimeoutMs(deadline));
    return wake.AnyRequested() ? PumpResult::kWoken : PumpResult::kDeadline;
  }
  void GetLastError(int& error_code) override { error_code = last_error_; }

 private:
  // Records the call, lets its virtual time pass and fails it when asked to.
  bool Call(const std::string& name) {
    calls.push_back(name);
    if (on_call) on_call(name);
    const std::string key = name.substr(0, name.find('('));
    if (const auto s = slow.find(key); s != slow.end()) clock_.Advance(s->second);
    const auto f = failures.find(key);
    last_error_ = f == failures.end() ? 1 : f->second;
    return f == failures.end();
  }

  bool Next(const char* name, std::string& badge, int& verify, int& state, int& year, int& month,
            int& day, int& hour, int& minute, int& second, int& work_code) {
    if (!Call(name) || buffer_.empty()) return false;
    const AttTransaction e = buffer_.front();
    buffer_.pop_front();
    badge = e.enroll_number, verify = e.verify_method, state = e.att_state;
    year = e.year, month = e.month, day = e.day, hour = e.hour, minute = e.minute;
    second = e.second, work_code = e.work_code;
    return true;
  }

  core::ManualClock& clock_;
  std::deque<AttTransaction> buffer_;
  AttTransactionHandler handler_;
  int last_error_ = 1;
};

// Events as "Type: text", debug lines as "Name debug: text".
class TestLog : public core::LogSink {
 public:
  void Event(std::string_view type, std::string_view text) override {
    Add(fmt::format("{}: {}", type, text));
  }
  void Debug(std::string_view name, std::string_view text) override {
    Add(fmt::format("{} debug: {}", name, text));
  }
  void Screen(std::string_view) override {}
  std::vector<std::string> Lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  void Clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
  }
  int Count(std::string_view text) const {  // the lines holding the text
    std::lock_guard lock(mutex_);
    return CountLocked(text);
  }
  bool WaitFor(std::string_view text, int times = 1) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, std::chrono::seconds(20), [&] { return CountLocked(text) >= times; });
  }

 private:
  int CountLocked(std::string_view text) const {
    return static_cast<int>(std::ranges::count_if(
        lines_, [&](const std::string& line) { return line.find(text) != std::string::npos; }));
  }
  void Add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    cv_.notify_all();
  }
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::vector<std::string> lines_;
};

}  // namespace clockcomm::t4::test
