// An in-process T4 terminal: an attendance log, a record count, failures and slow calls on
// demand per operation, and a queue of real-time transactions handed out by PumpEvents.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/clock.h"
#include "t4/it4_device.h"

namespace clockcomm::t4::test {

class FakeT4Device : public IT4Device {
 public:
  explicit FakeT4Device(core::ManualClock& clock) : clock_(clock) {}

  // --- the terminal, as a test sets it up
  bool tft = false;                   // reports enrolment numbers as text
  std::vector<AttTransaction> log;    // the attendance log (enroll_number decimal on numeric ones)
  std::optional<int> record_count;    // what GetDeviceStatus(6) says; the log's size when unset
  std::deque<AttTransaction> events;  // real-time transactions not yet pumped
  std::map<std::string, int> failures;               // operation -> error code it fails with
  std::map<std::string, std::chrono::seconds> slow;  // operation -> virtual time it takes
  // --- what the program did
  std::vector<std::string> calls;  // operations in order; EnableDevice as "EnableDevice(0|1)"
  std::string host;
  int port = 0;
  int mask = 0;  // the last RegEvent's

  // A punch as the terminal makes it: stored, then sent in real time.
  void Punch(const AttTransaction& t) {
    log.push_back(t);
    events.push_back(t);
  }

  bool Connect_Net(const std::string& ip, int p) override {
    host = ip;
    port = p;
    return Call("Connect_Net");
  }
  void Disconnect() override { calls.push_back("Disconnect"); }
  bool IsTFTMachine(int) override { return Call("IsTFTMachine") && tft; }

  bool ReadGeneralLogData(int) override {
    if (!Call("ReadGeneralLogData")) return false;
    buffer_.assign(log.begin(), log.end());
    return true;
  }
  bool SSR_GetGeneralLogData(int, std::string& enroll_number, int& verify_mode, int& in_out_mode,
                             int& year, int& month, int& day, int& hour, int& minute, int& second,
                             int& work_code) override {
    AttTransaction e;
    if (!NextEntry("SSR_GetGeneralLogData", e)) return false;
    enroll_number = e.enroll_number;
    verify_mode = e.verify_method, in_out_mode = e.att_state, work_code = e.work_code;
    year = e.year, month = e.month, day = e.day, hour = e.hour, minute = e.minute;
    second = e.second;
    return true;
  }
  bool GetGeneralExtLogData(int, long& enroll_number, int& verify_mode, int& in_out_mode, int& year,
                            int& month, int& day, int& hour, int& minute, int& second,
                            int& work_code, int& reserved) override {
    AttTransaction e;
    if (!NextEntry("GetGeneralExtLogData", e)) return false;
    enroll_number = std::stol(e.enroll_number);
    verify_mode = e.verify_method, in_out_mode = e.att_state, work_code = e.work_code;
    year = e.year, month = e.month, day = e.day, hour = e.hour, minute = e.minute;
    second = e.second;
    reserved = 0;
    return true;
  }

  bool GetDeviceStatus(int, int status, int& value) override {
    if (!Call("GetDeviceStatus")) return false;
    value =
        status == kAttendanceRecordCount ? record_count.value_or(static_cast<int>(log.size())) : 0;
    return true;
  }
  bool ClearGLog(int) override {
    if (!Call("ClearGLog")) return false;
    log.clear();
    record_count.reset();
    return true;
  }
  bool ClearSLog(int) override { return Call("ClearSLog"); }
  bool EnableDevice(int, bool enabled) override {
    return Call(enabled ? "EnableDevice(1)" : "EnableDevice(0)");
  }
  bool GetDeviceTime(int, core::DateTime& time) override {
    time = clock_.Now();
    return Call("GetDeviceTime");
  }
  bool SetDeviceTime2(int, const core::DateTime&) override { return Call("SetDeviceTime2"); }
  bool RegEvent(int, int event_mask) override {
    mask = event_mask;
    return Call("RegEvent");
  }
  void SetAttTransactionHandler(AttTransactionHandler h) override { handler_ = std::move(h); }

  // Hands every queued transaction to the handler (dropped when none is set, as a terminal's
  // send-once events are), then returns as if the deadline had passed.
  PumpResult PumpEvents(comm::SteadyTime, const comm::WakeSet& wake) override {
    while (!events.empty()) {
      const AttTransaction t = events.front();
      events.pop_front();
      if (handler_) handler_(t);
    }
    return wake.AnyRequested() ? PumpResult::kWoken : PumpResult::kDeadline;
  }

  void GetLastError(int& error_code) override { error_code = last_error_; }

 private:
  // Records the call, lets its virtual time pass and fails it when asked to.
  bool Call(const std::string& name) {
    calls.push_back(name);
    const std::string key = name.substr(0, name.find('('));
    if (const auto s = slow.find(key); s != slow.end()) clock_.Advance(s->second);
    const auto f = failures.find(key);
    last_error_ = f == failures.end() ? 1 : f->second;
    return f == failures.end();
  }
  bool NextEntry(const std::string& name, AttTransaction& e) {
    if (!Call(name) || buffer_.empty()) return false;
    e = buffer_.front();
    buffer_.pop_front();
    return true;
  }

  core::ManualClock& clock_;
  std::deque<AttTransaction> buffer_;
  AttTransactionHandler handler_;
  int last_error_ = 1;
};

}  // namespace clockcomm::t4::test
