#include "shell/lan/lan_call.h"

namespace clockcomm::shell {

LanCall::LanCall(std::unique_ptr<comm::TcpConnection> connection, const LineSettings& settings,
                 const terminal::TerminalFamily& family, LineServices& services, core::LogSink& log,
                 terminal::ScreenSink& screen, core::Clock& clock)
    : peer_(connection->Describe()),
      line_(std::move(connection), settings.lan_delay),
      controller_(clock, log, screen),
      intake_(IntakePathsOf(services.paths), *services.companies, controller_, clock),
      data_(*services.companies, controller_) {
  controller_.SetLineName("LAN " + peer_);
  driver_ = family.make_driver(
      {DriverSettingsFor(settings, family, services), line_, controller_, intake_, data_});
}

void LanCall::Run(std::chrono::milliseconds idle_close, const core::StopSignal* between_calls) {
  controller_.Debug("", "LAN terminal connected from " + peer_);
  const comm::WakeSet wake{&controller_.EndCommLoop(), between_calls};
  auto idle_deadline = controller_.Clock().Steady() + idle_close;
  try {
    while (!controller_.EndCommLoop().Requested()) {
      const comm::LineEvent event = line_.WaitForCall(idle_deadline, wake);
      if (event.kind != comm::LineEvent::Kind::kInput) {
        if (between_calls != nullptr && between_calls->Requested()) break;
        if (controller_.Clock().Steady() < idle_deadline) continue;
        controller_.Debug("", "LAN terminal " + peer_ + " silent too long; connection closed");
        break;
      }
      const int calls_before = driver_->Calls();
      try {
        driver_->Host(terminal::CallStart::kInput, event.data);
      } catch (const comm::ConnectionClosedError&) {
        throw;
      } catch (const core::Error& e) {
        controller_.Event("Error", "LAN call from " + peer_ + ": " + e.what());
        EndCallAfterError();
        break;
      }
      if (driver_->Calls() > calls_before && driver_->LastCallSucceeded()) ++good_calls_;
      idle_deadline = controller_.Clock().Steady() + idle_close;
    }
  } catch (const comm::ConnectionClosedError&) {
    // The terminal hung up: between calls that is how a network terminal ends its call.
    EndCallAfterError();
  }
  line_.Close();
  controller_.Debug("", "LAN terminal " + peer_ + " disconnected");
}

void LanCall::EndCallAfterError() {
  try {
    if (!intake_.File().empty()) intake_.Finish(false);
  } catch (const core::Error& e) {
    controller_.Event("Error", std::string("Ending the call: ") + e.what());
  }
}

}  // namespace clockcomm::shell
