// The Zon/Tranz conversation over one serial port, wired straight to terminals or to a Hayes modem:
// host mode (terminals call in) and outbound polling (the program calls them), the receive loop of
// one call, and the end of a call (EOT only after the call's file is on the disk, the validation
// tables when asked for, the transfer into the company database).
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "comm/hayes_modem.h"
#include "records/company_factory.h"
#include "records/parameter_override.h"
#include "shell/call/call_controller.h"
#include "shell/call/zon_line.h"
#include "shell/my_static.h"
#include "shell/schedule/auto_start.h"
#include "shell/schedule/host_poll_schedule.h"
#include "shell/schedule/poll_list.h"
#include "shell/schedule/timed_polling.h"

namespace clockcomm::shell {

inline constexpr auto kTerminalTypeZon = terminal::TerminalType::kZonTranz;
inline constexpr auto kTerminalTypeMobility = terminal::TerminalType::kMobility;

struct ZonLoopSettings {
  std::string device;   // the serial port's device path
  int port_number = 1;  // the COM port number, for the screen and the event log
  bool modem = false;   // connection type 1
  terminal::TerminalType terminal_type = kTerminalTypeZon;
  std::chrono::seconds response_wait{3};
  std::string modem_init = kDefaultModemInit;
  AutoStartMode autostarted = AutoStartMode::kNone;
  std::string end_time = "NONE";  // the auto-end time as configured
  // Silence allowed between two packets of a call before it is given up.
  std::chrono::milliseconds packet_timeout{10000};

  // Fills the settings from the loaded configuration; device is the port's path.
  static ZonLoopSettings From(const CommSettings& comm, std::string device);
};

// The long-lived collaborators of the loop.
struct CallServices {
  MyPaths paths;
  records::ParameterOverride overrides;
  records::CompanyFactory* companies = nullptr;
  HostPollSchedule* schedule = nullptr;  // scheduled polling while hosting; may be null
};

class ZonCallLoop : public OutboundPoller {
 public:
  ZonCallLoop(ZonLoopSettings settings, CallController& controller, CallServices& services);
  ~ZonCallLoop() override;

  // Host mode until End (or, with once, until the first call has ended). True when the port
  // could be opened and, with once, that call succeeded.
  bool CommLoop(bool once = false);
  // Outbound mode over the given locations (the port is opened and closed around them). True
  // when the port could be opened and every location's call succeeded.
  bool OutBoundTCB(const std::vector<PollRow>& locations);
  // One location of the timed cycle: opens the port the first time and keeps it open.
  void Poll(const ClockEntry& entry) override;
  // The End button's closing of the port (modem: auto-answer off, hung up).
  void End();

  // The settings string of the port before a modem CONNECT changes it.
  std::string PortSettings() const;
  // "CONNECT 2400" gives "2400"; "CONNECT" alone gives "300".
  static std::string ConnectSpeed(std::string_view connect_line);

  int GoodCalls() const { return good_calls_; }
  int FailedCalls() const { return failed_calls_; }

 private:
  bool OpenPort();
  // The port opened and, for a modem, initialised; closed again when that fails.
  bool OpenLine();
  bool InitModem();
  void ResetModem();
  void HostPass(std::string& buffer);
  bool HandleDirectInput(std::string& buffer);
  bool HandleModemLine(const std::string& line, std::string& rest);
  void AnswerHoursRequest(std::string_view request);
  bool PollWithRetries(const PollRow& location);
  bool PollLocation(const PollRow& location, int attempt);
  bool Enquire(const std::string& packet, const std::string& expected);

  void StartCall();
  void CommLoopTCB();
  void ParseTC20(const std::string& packet);
  void HandleHeader(std::string_view body);
  void HandleData(std::string_view body);
  void KeepRejectedPacket(std::string_view body, std::string_view reason);
  bool OpenFile();
  void EndCall();
  void SendEndCharacters();
  void RunValidationDownload();
  void TransferCallFile();
  void CopyToDuplicateFolders();
  void ShowEvent(std::string_view screen_format, std::string_view type, std::string_view des);

  ZonLoopSettings settings_;
  CallController& controller_;
  CallServices& services_;
  ZonLine line_;
  std::unique_ptr<comm::HayesModem> modem_;
  // A modem connection is up (the modem is in data mode until it is hung up).
  bool modem_online_ = false;
  bool last_call_succeeded_ = false;
  int good_calls_ = 0;
  int failed_calls_ = 0;
};

}  // namespace clockcomm::shell
