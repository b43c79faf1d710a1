// An in-process T4 terminal: an attendance log, failures and slow calls on demand per operation,
// and a queue of real-time transactions handed out by PumpEvents.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/clock.h"
#include "t4/it4_device.h"

namespace clockcomm::t4::test {

class FakeT4Device : public IT4Device {
 public:
  explicit FakeT4Device(core::ManualClock& clock) : clock_(clock) {}

  bool tft = false;                 // reports enrolment numbers as text
  std::vector<AttTransaction> log;  // the attendance log; its size is the record count
  // The terminal's users by enrolment number; shared, so that they outlive one connection.
  std::shared_ptr<std::map<std::string, T4User>> users =
      std::make_shared<std::map<std::string, T4User>>();
  std::deque<AttTransaction> events;                 // real-time transactions not yet pumped
  std::map<std::string, int> failures;               // operation -> error code it fails with
  std::map<std::string, std::chrono::seconds> slow;  // operation -> virtual time it takes
  std::vector<std::string> calls;  // operations in order; EnableDevice as "EnableDevice(0|1)"
  int mask = 0;                    // the last RegEvent's

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
    if (!Next("GetGeneralExtLogData", text, verify, state, year, month, day, hour, minute, second,
              work_code)) {
      return false;
    }
    badge = std::stol(text), reserved = 0;
    return true;
  }
  bool GetDeviceStatus(int, int, int& value) override {
    value = static_cast<int>(log.size());
    return Call("GetDeviceStatus");
  }
  bool ClearGLog(int) override {
    if (!Call("ClearGLog")) return false;
    log.clear();
    return true;
  }
  bool ClearSLog(int) override { return Call("ClearSLog"); }
  bool EnableDevice(int, bool on) override {
    return Call(on ? "EnableDevice(1)" : "EnableDevice(0)");
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
  bool GetUser(int, const std::string& enroll_number, T4User& user) override {
    if (!Call("GetUser")) return false;
    const auto found = users->find(enroll_number);
    if (found == users->end()) return NotFound();
    user = found->second;
    return true;
  }
  bool SetUser(int, const T4User& user) override {
    if (!Call("SetUser")) return false;
    (*users)[user.enroll_number] = user;
    return true;
  }
  bool DeleteUser(int, const std::string& enroll_number) override {
    if (!Call("DeleteUser")) return false;
    users->erase(enroll_number);
    return true;
  }
  void SetAttTransactionHandler(AttTransactionHandler h) override { handler_ = std::move(h); }

  // Hands every queued transaction to the handler (dropped when none is set, as a terminal's
  // send-once events are), then returns as if the deadline had passed.
  PumpResult PumpEvents(comm::SteadyTime, const comm::WakeSet& wake) override {
    for (; !events.empty(); events.pop_front()) {
      if (handler_) handler_(events.front());
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

  bool NotFound() {
    last_error_ = 0;  // "Data not found"
    return false;
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

}  // namespace clockcomm::t4::test
