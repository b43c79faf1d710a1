// A T4 terminal reached over the network in its own protocol: the operations of IT4Device, each
// one exchange (or a short series) of packets over TCP or UDP. The attendance log is downloaded
// whole into memory by ReadGeneralLogData (buffered read in chunks, the legacy read where the
// terminal refuses it) and handed out by the two readers; real-time events are acknowledged as
// they come and handed to the handler by PumpEvents only, on the calling thread.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "core/log_sink.h"
#include "t4/it4_device.h"
#include "t4/net/t4_records.h"
#include "t4/net/t4_session.h"

namespace clockcomm::t4::net {

struct T4NetOptions {
  T4TransportKind transport = T4TransportKind::kTcp;
  uint32_t key = 0;        // the communication key (0: none set on the terminal)
  T4Timeouts timeouts;     // see T4Timeouts
  std::string clock_name;  // for the log
  // DISABLEDEVICE's own time-out: a terminal left disabled by a server that died enables itself
  // again after this long, so nobody finds a busy screen for good.
  std::chrono::seconds disable_timeout{300};
  // Silence after which PumpEvents asks the time to learn whether the link is still there.
  std::chrono::seconds keep_alive{30};
};

// GetLastError's codes for what went wrong on the wire.
inline constexpr int kOk = 1;
inline constexpr int kNeedsReconnect = -1;
inline constexpr int kDataLength = -10;
inline constexpr int kFailedOrNoData = -100;
inline constexpr int kBadParameter = 4;
inline constexpr int kNotFound = 0;

class T4NetDevice : public IT4Device {
 public:
  // TCP chunks stay within the terminal's 64 KiB frame buffer; UDP chunks are kept small so that
  // one lost datagram costs little.
  static constexpr uint32_t kTcpChunk = 65472;
  static constexpr uint32_t kUdpChunk = 16384;

  T4NetDevice(T4NetOptions options, core::LogSink& log);
  ~T4NetDevice() override;

  bool Connect_Net(const std::string& ip, int port) override;
  void Disconnect() override;
  bool IsTFTMachine(int machine) override;

  bool ReadGeneralLogData(int machine) override;
  bool SSR_GetGeneralLogData(int machine, std::string& enroll_number, int& verify_mode,
                             int& in_out_mode, int& year, int& month, int& day, int& hour,
                             int& minute, int& second, int& work_code) override;
  bool GetGeneralExtLogData(int machine, long& enroll_number, int& verify_mode, int& in_out_mode,
                            int& year, int& month, int& day, int& hour, int& minute, int& second,
                            int& work_code, int& reserved) override;

  bool GetDeviceStatus(int machine, int status, int& value) override;
  bool ClearGLog(int machine) override;
  bool ClearSLog(int machine) override;
  bool EnableDevice(int machine, bool enabled) override;
  bool GetDeviceTime(int machine, core::DateTime& time) override;
  bool SetDeviceTime2(int machine, const core::DateTime& time) override;

  bool RegEvent(int machine, int event_mask) override;
  void SetAttTransactionHandler(AttTransactionHandler handler) override;
  PumpResult PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) override;

  bool GetUser(int machine, const std::string& enroll_number, T4User& user) override;
  bool SetUser(int machine, const T4User& user) override;
  bool DeleteUser(int machine, const std::string& enroll_number) override;

  void GetLastError(int& error_code) override { error_code = last_error_; }
  void SetStopSignal(const core::StopSignal* stop) override { stop_ = stop; }
  std::string LastFailure() const override { return last_failure_; }

  // The records of the last ReadGeneralLogData, as the terminal sent them.
  const T4Dataset& Downloaded() const { return dataset_; }
  // A downloaded record's enrolment number: its own, or for 8-byte records the user table's.
  std::string EnrolmentOf(const T4Record& record) const;
  std::string Describe() const;

 private:
  bool Run(std::string_view operation, int refused_code, const std::function<void()>& body);
  void Fail(int code, std::string why);
  std::optional<std::string> ReadOption(const std::string& name);
  void Probe();
  std::string ReadTable(std::string_view prepare, bool legacy_fallback);
  void FreeBuffer();  // FREE_DATA; a terminal holding no buffer may refuse it
  std::vector<struct T4UserRecord> ReadUserTable();
  // The next record the readers hand out, skipping (and logging) those whose time is impossible.
  const T4Record* NextRecord();

  T4NetOptions options_;
  core::LogSink& log_;
  std::unique_ptr<T4Session> session_;
  std::string address_;
  int last_error_ = 1;
  std::string last_failure_;
  bool string_ids_ = false;
  std::optional<size_t> layout_hint_;
  uint32_t last_count_ = 0;
  T4Dataset dataset_;
  size_t cursor_ = 0;
  std::map<uint16_t, std::string> enrolment_by_uid_;  // for 8-byte records
  AttTransactionHandler handler_;
  const core::StopSignal* stop_ = nullptr;
};

}  // namespace clockcomm::t4::net
