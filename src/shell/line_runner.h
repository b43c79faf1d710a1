// One line to terminals, run by the main form's rules whatever family is on it: host mode (open,
// initialise a modem, wait for calls, hand each to the driver, poll scheduled locations meanwhile)
// and outbound polling (reach each location, retried through a modem), and End (the port closed,
// a modem's auto-answer turned off).
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "comm/terminal_line.h"
#include "records/company_factory.h"
#include "records/intake/call_intake.h"
#include "records/intake/intake_recovery.h"
#include "records/parameter_override.h"
#include "records/terminal_data.h"
#include "shell/my_static.h"
#include "shell/schedule/auto_start.h"
#include "shell/schedule/host_poll_schedule.h"
#include "shell/schedule/poll_list.h"
#include "shell/schedule/timed_polling.h"
#include "terminal/call_controller.h"
#include "terminal/family.h"

namespace clockcomm::shell {

struct LineSettings {
  std::string device;   // the serial port's device path
  int port_number = 1;  // the COM port number, for the screen and the event log
  comm::ConnectionType connection_type = comm::ConnectionType::kSerial;
  terminal::TerminalType terminal_type = terminal::TerminalType::kZonTranz;
  std::chrono::milliseconds response_wait{3000};
  // The pause between two attempts at a location through a modem.
  std::chrono::milliseconds second_pause{1000};
  std::string modem_init = kDefaultModemInit;
  AutoStartMode autostarted = AutoStartMode::kNone;
  std::string end_time = "NONE";  // the auto-end time as configured
  // Silence allowed between two packets of a call before it is given up.
  std::chrono::milliseconds packet_timeout{10000};
  // The gap a network line leaves between two of the program's sends.
  std::chrono::microseconds lan_delay{0};

  bool Modem() const { return connection_type == comm::ConnectionType::kModem; }
  bool Lan() const { return connection_type == comm::ConnectionType::kLan; }
  // Fills the settings from the loaded configuration; device is the port's path.
  static LineSettings From(const CommSettings& comm, std::string device);
};

// The long-lived collaborators of a line.
struct LineServices {
  MyPaths paths;
  records::ParameterOverride overrides;
  records::CompanyFactory* companies = nullptr;
  HostPollSchedule* schedule = nullptr;  // scheduled polling while hosting; may be null
};

// Where a line's call intake and recovery sweep find their folders.
records::IntakePaths IntakePathsOf(const MyPaths& paths);
// The settings a family's driver gets on a line with these settings.
terminal::DriverSettings DriverSettingsFor(const LineSettings& settings,
                                           const terminal::TerminalFamily& family,
                                           const LineServices& services);

class LineRunner : public OutboundPoller {
 public:
  // How often a host waiting for calls runs the recovery sweep.
  static constexpr std::chrono::minutes kRecoveryInterval{5};
  // Attempts at one location through a modem before it is reported as failed.
  static constexpr int kModemAttempts = 3;

  // families: the table a location's terminal type is looked up in; the settings' terminal type
  // must have a family there.
  LineRunner(LineSettings settings, std::span<const terminal::TerminalFamily> families,
             terminal::CallController& controller, LineServices& services);
  ~LineRunner() override;

  // Host mode until End (or, with once, until the first call has ended); an End already
  // requested ends it at once (the caller clears it before a new run). True when the port
  // could be opened, the run did not end on an error, and, with once, that call succeeded.
  bool Host(bool once = false);
  // Outbound mode over the given locations (the port is opened and closed around them). True
  // when the port could be opened and every location's call succeeded.
  bool PollLocations(const std::vector<PollRow>& locations);
  // One location of the timed cycle: opens the port the first time and keeps it open.
  void Poll(const ClockEntry& entry) override;
  // What the mode line says of an automatic start.
  void SetAutoStart(AutoStartMode mode, std::string end_time) {
    settings_.autostarted = mode;
    settings_.end_time = std::move(end_time);
  }
  // The End button's closing of the port (modem: auto-answer off, hung up).
  void End();
  // Host mode also ends when idle_end is requested, but only between calls: a call in progress
  // goes on to its end (the settings are read again, then the line opened anew).
  void SetIdleEnd(const core::StopSignal* idle_end) { idle_end_ = idle_end; }

  int GoodCalls() const { return good_calls_; }
  int FailedCalls() const { return failed_calls_; }
  const std::string& PortSettings() const { return port_settings_; }

 private:
  bool OpenPort();
  bool OpenLine();
  bool InitModem();
  void HostPass(bool& call_ended);
  // The driver of a family, made the first time a location of that family is called.
  terminal::TerminalDriver& DriverFor(const terminal::TerminalFamily& family);
  // The line runs at the port settings the driver wants.
  void UseSpeedOf(const terminal::TerminalDriver& driver);
  bool ReachLocation(const PollRow& location, std::string& data);
  void AfterCall(terminal::TerminalDriver& driver, int calls_before);
  void ResetModem();
  // The recovery sweep: pending call files delivered, dead calls' files set aside.
  void Recover();
  bool PollWithRetries(const PollRow& location);
  bool PollLocation(const PollRow& location, int attempt);
  void FailedCall(std::string_view clock_name);
  void EndCallAfterError();

  LineSettings settings_;
  terminal::CallController& controller_;
  LineServices& services_;
  std::unique_ptr<comm::TerminalLine> line_;
  records::CallIntake intake_;
  records::IntakeRecovery recovery_;
  core::Clock::Monotonic next_recovery_{};
  records::TerminalData data_;
  std::span<const terminal::TerminalFamily> families_;
  std::map<const terminal::TerminalFamily*, std::unique_ptr<terminal::TerminalDriver>> drivers_;
  terminal::TerminalDriver* host_driver_ = nullptr;  // the settings' terminal type's
  std::string port_settings_;
  int good_calls_ = 0;
  int failed_calls_ = 0;
  const core::StopSignal* idle_end_ = nullptr;
};

}  // namespace clockcomm::shell
