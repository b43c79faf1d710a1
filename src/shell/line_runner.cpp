#include "shell/line_runner.h"

#include <algorithm>
#include <iostream>

#include "core/errors.h"
#include "shell/schedule/auto_end_watcher.h"

namespace clockcomm::shell {
namespace {

// While hosting with a schedule, the poll list is read again at least this often.
constexpr std::chrono::seconds kScheduleRecheck{60};

}  // namespace

LineSettings LineSettings::From(const CommSettings& comm, std::string device) {
  LineSettings s;
  s.device = std::move(device);
  s.port_number = comm.comm_port;
  s.connection_type = comm.connection_type;
  s.terminal_type = comm.terminal_type;
  s.response_wait = std::chrono::seconds(std::max(1, comm.response_wait));
  s.second_pause = std::chrono::seconds(std::max(0, comm.second_pause));
  s.modem_init = comm.modem_init.empty() ? kDefaultModemInit : comm.modem_init;
  s.end_time = comm.end_time.empty() ? "NONE" : comm.end_time;
  s.lan_delay = std::chrono::microseconds(
      static_cast<int64_t>(std::clamp(comm.lan_delay_ms, 0.0, 60'000.0) * 1000));
  return s;
}

records::IntakePaths IntakePathsOf(const MyPaths& paths) {
  return {paths.DataDirectory(), paths.ProgramDirectory(), paths.CompanyRegistryDatabase()};
}

terminal::DriverSettings DriverSettingsFor(const LineSettings& settings,
                                           const terminal::TerminalFamily& family,
                                           const LineServices& services) {
  terminal::DriverSettings s;
  const bool settings_type =
      std::ranges::find(family.types, settings.terminal_type) != family.types.end();
  s.terminal_type = settings_type ? settings.terminal_type : family.types.front();
  s.modem = settings.Modem();
  s.lan = settings.Lan();
  s.response_wait = settings.response_wait;
  s.packet_timeout = settings.packet_timeout;
  s.overrides = services.overrides;
  s.log_directory = services.paths.DebugLogDirectory();
  return s;
}

LineRunner::LineRunner(LineSettings settings, std::span<const terminal::TerminalFamily> families,
                       terminal::CallController& controller, LineServices& services)
    : settings_(std::move(settings)),
      controller_(controller),
      services_(services),
      line_(comm::MakeTerminalLine(settings_.connection_type,
                                   {settings_.device, "", settings_.response_wait,
                                    settings_.modem_init, settings_.lan_delay},
                                   controller.Clock())),
      intake_(IntakePathsOf(services.paths), *services.companies, controller, controller.Clock()),
      recovery_(IntakePathsOf(services.paths), *services.companies, controller, controller.Clock()),
      data_(*services.companies, controller),
      families_(families) {
  const terminal::TerminalFamily* family = terminal::FindFamily(families_, settings_.terminal_type);
  if (family == nullptr) {
    throw core::InvalidOperationException(terminal::UnservedTypeMessage(settings_.terminal_type));
  }
  host_driver_ = &DriverFor(*family);
  UseSpeedOf(*host_driver_);
}

terminal::TerminalDriver& LineRunner::DriverFor(const terminal::TerminalFamily& family) {
  auto& driver = drivers_[&family];
  if (!driver) {
    driver = family.make_driver(
        {DriverSettingsFor(settings_, family, services_), *line_, controller_, intake_, data_});
  }
  return *driver;
}

void LineRunner::UseSpeedOf(const terminal::TerminalDriver& driver) {
  const std::string wanted = driver.PortSettings();
  if (wanted == port_settings_) return;
  port_settings_ = wanted;
  line_->SetSpeed(port_settings_);
}

LineRunner::~LineRunner() {
  if (line_->IsOpen()) line_->Close();
}

// ---------------------------------------------------------------------------------------------
// The port

bool LineRunner::OpenPort() {
  controller_.Show("{0} Opening Com Port");
  try {
    line_->Open();
  } catch (const core::Error& e) {
    controller_.Show("Invalid Com Port");
    controller_.Show("Select valid Com Port and then restart.");
    controller_.Event("Invalid Com Port", std::string(e.what()));
    // The screen lines say what; the operator also needs the device and the system's reason.
    std::cerr << "clockcomm: Invalid Com Port " << settings_.port_number << " (" << settings_.device
              << "): " << e.what() << "\n";
    return false;
  }
  const std::string mode =
      ModeLine(settings_.port_number, settings_.Modem(), settings_.autostarted, settings_.end_time);
  controller_.Show("{0} {1}", {mode});
  controller_.Event("Open Comm", mode);
  return true;
}

bool LineRunner::OpenLine() {
  Recover();  // what an earlier run left comes first
  if (!OpenPort()) return false;
  if (settings_.Modem() && !InitModem()) {
    End();
    return false;
  }
  return true;
}

bool LineRunner::InitModem() {
  using Status = comm::PrepareResult::Status;
  controller_.Show("{0} Initializing Modem");
  controller_.Status("Initializing Modem");
  const comm::PrepareResult result = line_->Prepare();
  switch (result.status) {
    case Status::kReady:
      break;
    case Status::kNoResponse:
      controller_.Show("{0} Modem did not respond. Check for correct COM port.");
      return false;
    case Status::kBadReply:
      controller_.Show("{0} Modem response error: {1}", {result.reply});
      return false;
    case Status::kCarrierHigh:
      controller_.Show(
          " Error - Carrier Detect high after initialization! Check setup string "
          "(may need '&C1')");
      return false;
  }
  std::string status = "Waiting for next event, press End to Quit.";
  if (settings_.end_time != "NONE") status += " Auto-end at " + settings_.end_time;
  controller_.Status(status);
  return true;
}

void LineRunner::End() {
  if (!line_->IsOpen()) return;
  controller_.Status("Resetting && Closing Port");
  controller_.Event("Close Comm", "Port = " + std::to_string(settings_.port_number));
  if (settings_.Modem()) controller_.Show("{0} Disabling Auto-Answer");
  controller_.Show("{0} Closing Port");
  line_->Close();
}

void LineRunner::Recover() {
  next_recovery_ = controller_.Clock().Steady() + kRecoveryInterval;
  const records::SweepResult swept = recovery_.Sweep();
  if (swept.delivered > 0) {
    controller_.Show("{0} Recovered {1} call file(s): {2} row(s) went in",
                     {std::to_string(swept.delivered), std::to_string(swept.rows)});
  }
  if (swept.set_aside > 0) {
    controller_.Show("{0} Set aside {1} file(s) of calls that never completed",
                     {std::to_string(swept.set_aside)});
  }
}

// After a call: counted, the schedule told, the line made ready for the next one.
void LineRunner::AfterCall(terminal::TerminalDriver& driver, int calls_before) {
  if (settings_.Lan()) line_->EndCall();  // the location's connection is closed
  if (driver.Calls() == calls_before) return;
  Recover();
  (driver.LastCallSucceeded() ? good_calls_ : failed_calls_)++;
  if (services_.schedule != nullptr && !driver.LastClockName().empty()) {
    services_.schedule->UpdateForClock(driver.LastClockName());
  }
  ResetModem();
}

// Between calls a modem is hung up and made ready for the next one.
void LineRunner::ResetModem() {
  if (!settings_.Modem() || !line_->IsOpen()) return;
  controller_.Show("{0} Reset Modem - Drop DTR");
  controller_.Show("{0} Reset Modem - Raise DTR");
  line_->EndCall();
}

// A call that failed before its terminal spoke: the end of a call with nothing in it.
void LineRunner::FailedCall(std::string_view clock_name) {
  controller_.BeginCall();
  controller_.Event("End of call", clock_name);
  intake_.Finish(false);
  ResetModem();
  ++failed_calls_;
  controller_.FinishCall(false, 0, {});
}

// A pass that failed mid-call leaves no call open: its file goes (delivered, once sealed) and a
// modem is hung up, so the next pass waits for a new call.
void LineRunner::EndCallAfterError() {
  try {
    if (!intake_.File().empty()) intake_.Finish(false);
    ResetModem();
  } catch (const core::Error& e) {
    controller_.Event("Error", std::string("Ending the call: ") + e.what());
  }
}

// ---------------------------------------------------------------------------------------------
// Host mode

bool LineRunner::Host(bool once) {
  if (!OpenLine()) return false;
  if (!settings_.Modem()) controller_.Status("Waiting for next event, press End to Quit.");
  // The mode line shows "End at hh:mm": the host stops then, as the End button would.
  std::optional<AutoEndWatcher> auto_end;
  if (auto deadline = NextEndDeadline(settings_.end_time, controller_.Clock().Now())) {
    auto_end.emplace(controller_.Clock(), *deadline, controller_.EndCommLoop(), controller_);
  }
  const int calls_before = good_calls_ + failed_calls_;
  const auto idle_ended = [this] { return idle_end_ != nullptr && idle_end_->Requested(); };
  while (!controller_.EndCommLoop().Requested() && !idle_ended()) {
    bool call_ended = false;
    try {
      HostPass(call_ended);
    } catch (const comm::ConnectionClosedError& e) {
      // The far end of the port went away; the loop would wait on a line that can never answer.
      controller_.Show("{0} Port closed by the other end");
      controller_.Event("Error", e.what());
      break;
    } catch (const core::Error& e) {
      controller_.Event("Error", std::string("CommLoop: ") + e.what());
      EndCallAfterError();
    }
    if (once && good_calls_ + failed_calls_ > calls_before) break;
  }
  End();
  if (controller_.RunFailed()) return false;
  // With once, the call must have succeeded and its punches be in the database.
  return !once ||
         (good_calls_ + failed_calls_ > calls_before && host_driver_->LastCallSucceeded() &&
          intake_.LastFinish() != records::FinishResult::kPending);
}

// One pass: a scheduled poll that has come due, or the next thing the line delivers.
void LineRunner::HostPass(bool& call_ended) {
  if (controller_.Clock().Steady() >= next_recovery_) Recover();
  auto deadline = next_recovery_;
  if (services_.schedule != nullptr) {
    services_.schedule->Load();  // the poll list may have changed since the last pass
    if (auto due = services_.schedule->TakeDue()) {
      Poll(*due);
      return;
    }
    // Wake for the next call time, and at least once a minute to see a changed poll list.
    int64_t seconds = kScheduleRecheck.count();
    if (auto next = services_.schedule->NextDue()) {
      seconds = std::min(seconds, core::SecondsBetween(controller_.Clock().Now(), *next));
    }
    deadline = std::min(deadline, controller_.Clock().Steady() +
                                      std::chrono::seconds(std::max<int64_t>(0, seconds)));
  }
  UseSpeedOf(*host_driver_);  // a scheduled poll may have left another family's speed
  const comm::LineEvent event =
      line_->WaitForCall(deadline, comm::WakeSet{&controller_.EndCommLoop(), idle_end_});
  const int calls_before = host_driver_->Calls();
  switch (event.kind) {
    case comm::LineEvent::Kind::kNothing:
      return;
    case comm::LineEvent::Kind::kInput:
      host_driver_->Host(terminal::CallStart::kInput, event.data);
      break;
    case comm::LineEvent::Kind::kRing:
      controller_.Show("{0} Ring Detected");
      controller_.Status("Terminal is ready to send batch.");
      return;
    case comm::LineEvent::Kind::kConnected:
      controller_.Show("{0} CONNECT {0}");
      controller_.Status("Terminal is Connected at " + event.speed);
      host_driver_->Host(terminal::CallStart::kConnected, event.data);
      if (host_driver_->Calls() == calls_before) {  // the driver refused the call
        FailedCall("");
        call_ended = true;
        return;
      }
      break;
    case comm::LineEvent::Kind::kFailed:
      controller_.Show("{0} Incoming Call Failed: {1}", {event.text});
      controller_.Show("{0} Resetting modem. Pleas wait");
      controller_.Status("<*> Not Connected <*>");
      controller_.Event("Inbound Call Failed", event.text);
      FailedCall("");
      controller_.Show("{0} Mode reset completed");
      call_ended = true;
      return;
  }
  call_ended = host_driver_->Calls() > calls_before;
  AfterCall(*host_driver_, calls_before);
}

}  // namespace clockcomm::shell
