// The terminal operations the T4 punch download uses, shaped as the terminals' own SDK shapes
// them: the machine number first, results through reference arguments, true for success, and the
// reason for a failure kept for GetLastError. An implementation speaks to one terminal: the
// network client, or a fake in the tests.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "comm/connection.h"
#include "core/date_time.h"
#include "core/stop_signal.h"

namespace clockcomm::t4 {

// One attendance transaction as the terminal pushes it in real time.
struct AttTransaction {
  std::string enroll_number;  // the enrolment number as text (numeric terminals: decimal)
  bool is_valid = true;
  int att_state = 0;  // the in/out state, raw
  int verify_method = 0;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int work_code = 0;
};

// One fingerprint a user enrolled, in the terminal's own encoding (opaque to the program).
struct T4FingerTemplate {
  int finger_index = 0;  // 0-9
  int flag = 1;          // 1 valid, 3 duress
  std::string data;

  bool operator==(const T4FingerTemplate&) const = default;
};

// A user as the terminal keeps it, with the fingerprints that identify them.
struct T4User {
  std::string enroll_number;
  std::string name;
  std::string password;
  int privilege = 0;  // 0 user, 3 administrator
  bool enabled = true;
  std::vector<T4FingerTemplate> templates;

  bool operator==(const T4User&) const = default;
};

// GetDeviceStatus's status number for the attendance records the terminal holds.
inline constexpr int kAttendanceRecordCount = 6;
// GetLastError's code for an operation this connection to the terminal cannot carry out.
inline constexpr int kNotSupported = -13;
// RegEvent's mask for every event (the download only uses attendance transactions).
inline constexpr int kAllEvents = 255;

enum class PumpResult { kDeadline, kWoken, kSessionLost };

class IT4Device {
 public:
  using AttTransactionHandler = std::function<void(const AttTransaction&)>;

  virtual ~IT4Device() = default;

  // Session with the terminal at ip:port; the communication key is the device's own setting.
  virtual bool Connect_Net(const std::string& ip, int port) = 0;
  virtual void Disconnect() = 0;
  // True for the colour-screen terminals that report enrolment numbers as text.
  virtual bool IsTFTMachine(int machine) = 0;

  // Loads the terminal's attendance log into the device's buffer; the two readers below then
  // hand out one entry per call and return false when the buffer is exhausted.
  virtual bool ReadGeneralLogData(int machine) = 0;
  virtual bool SSR_GetGeneralLogData(int machine, std::string& enroll_number, int& verify_mode,
                                     int& in_out_mode, int& year, int& month, int& day, int& hour,
                                     int& minute, int& second, int& work_code) = 0;
  virtual bool GetGeneralExtLogData(int machine, long& enroll_number, int& verify_mode,
                                    int& in_out_mode, int& year, int& month, int& day, int& hour,
                                    int& minute, int& second, int& work_code, int& reserved) = 0;

  virtual bool GetDeviceStatus(int machine, int status, int& value) = 0;
  virtual bool ClearGLog(int machine) = 0;
  virtual bool ClearSLog(int machine) = 0;
  virtual bool EnableDevice(int machine, bool enabled) = 0;
  virtual bool GetDeviceTime(int machine, core::DateTime& time) = 0;
  virtual bool SetDeviceTime2(int machine, const core::DateTime& time) = 0;

  // Registers for the events of the mask; the attendance transactions that come go to the handler
  // set below, on the thread that pumps them.
  virtual bool RegEvent(int machine, int event_mask) = 0;
  virtual void SetAttTransactionHandler(AttTransactionHandler handler) = 0;
  // Waits until the deadline or a wake signal, delivering real-time events to the handler as they
  // arrive. kSessionLost: the terminal went away (GetLastError says how).
  virtual PumpResult PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) = 0;

  // The users the host's template tasks move between terminals, with their fingerprints.
  // GetUser fails when the terminal has no such user; SetUser replaces one that is there;
  // DeleteUser succeeds for a user that is not there.
  virtual bool GetUser(int machine, const std::string& enroll_number, T4User& user) = 0;
  virtual bool SetUser(int machine, const T4User& user) = 0;
  virtual bool DeleteUser(int machine, const std::string& enroll_number) = 0;

  // The code of the last failure (1 when the last operation succeeded).
  virtual void GetLastError(int& error_code) = 0;
  // A signal that ends any wait of the device at once (the host's End): the operation waiting
  // fails as if the terminal had gone. Null: none.
  virtual void SetStopSignal(const core::StopSignal* /*stop*/) {}
  // What the last failure was, in words (a command left unanswered, an error answer, ...); empty
  // where the device cannot tell more than the code.
  virtual std::string LastFailure() const { return {}; }
};

}  // namespace clockcomm::t4
