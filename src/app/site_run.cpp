#include "app/site_run.h"

#include <iostream>
#include <mutex>
#include <thread>

#include "app/families.h"
#include "core/errors.h"
#include "core/text.h"
#include "db/open.h"
#include "db/schema.h"
#include "shell/schedule/host_poll_schedule.h"

namespace clockcomm::app {

struct SiteRun::Line {
  explicit Line(shell::LineServices line_services) : services(std::move(line_services)) {}

  std::unique_ptr<terminal::CallController> own_controller;  // null on the settings' line
  terminal::CallController* controller = nullptr;
  shell::LineServices services;
  std::unique_ptr<shell::LineRunner> runner;  // a serial or modem line
  std::unique_ptr<shell::LanHost> lan;        // the LAN listener
  std::string id, name, kind;                 // as a console shows it

  int Calls() const {
    return runner ? runner->GoodCalls() + runner->FailedCalls()
                  : lan->GoodCalls() + lan->FailedCalls();
  }
};

SiteRun::SiteRun(CallSession& session, shell::SiteLines lines)
    : session_(session), lines_(std::move(lines)) {
  const auto& comm = session.Config().Comm();
  if (auto reason = UnservedLine(comm.terminal_type, comm.connection_type)) {
    throw core::InvalidOperationException(*reason);
  }
  shell::ReportConfigurationWarnings(session.Config().Warnings(), session.Logs(), std::cerr);
  for (const auto& warning : lines_.warnings) {
    session.Logs().Event("Configuration warning", warning);
    std::cerr << "clockcomm: " << warning << "\n";
  }
  const bool named = lines_.Count() > 1;
  auto add_line = [&](const std::string& name) -> Line& {
    auto line = std::make_unique<Line>(session.Services());
    line->id = lines_run_.empty() ? "main" : core::ToLower(name);
    line->services.schedule = nullptr;  // set for the run of a scheduled host
    if (lines_run_.empty()) {
      line->controller = &session.Controller();
    } else {
      line->own_controller = std::make_unique<terminal::CallController>(
          session.Clock(), session.Logs(), session.Screen());
      line->controller = line->own_controller.get();
    }
    if (named) line->controller->SetLineName(name);
    lines_run_.push_back(std::move(line));
    return *lines_run_.back();
  };
  const bool lan_first = comm.connection_type == comm::ConnectionType::kLan;
  auto add_lan = [&] {
    Line& line = add_line("LAN");
    line.kind = "lan";
    line.name = "LAN listener (" + lines_.lan.listen.host + ":" +
                std::to_string(lines_.lan.listen.port) + ")";
    shell::LineSettings settings = session.LoopSettings("");
    settings.connection_type = comm::ConnectionType::kLan;
    line.lan = std::make_unique<shell::LanHost>(settings, lines_.lan, Families(), *line.controller,
                                                line.services, session.Logs(), session.Screen());
  };
  if (lan_first) add_lan();
  for (const auto& serial : lines_.serial) {
    Line& line = add_line("COM" + std::to_string(serial.com_port));
    line.kind = serial.type == comm::ConnectionType::kModem ? "modem" : "serial";
    line.name = "Comm Port " + std::to_string(serial.com_port) + " (" +
                session.LoopSettings(serial.device).device + ")";
    shell::LineSettings settings = session.LoopSettings(serial.device);
    settings.connection_type = serial.type;
    settings.port_number = serial.com_port;
    line.runner =
        std::make_unique<shell::LineRunner>(settings, Families(), *line.controller, line.services);
  }
  if (lines_.lan_listener && !lan_first) add_lan();
  // End on the settings' line (Ctrl-C, SIGTERM, the auto-end time) ends every line.
  end_listener_ = session.Controller().EndCommLoop().AddListener([this] { EndOthers(); });
}

SiteRun::~SiteRun() { session_.Controller().EndCommLoop().RemoveListener(end_listener_); }

void SiteRun::EndOthers() {
  for (auto& line : lines_run_) {
    if (line->own_controller) line->own_controller->PressEnd();
  }
}

std::vector<SiteRun::LineInfo> SiteRun::LineInfos() const {
  std::vector<LineInfo> infos;
  for (const auto& line : lines_run_) {
    LineInfo info{line->id, line->name, line->kind, line->controller->Snapshot(),
                  line->controller->BadInputByClock()};
    if (line->lan) {  // each network call has a controller of its own
      info.snapshot.calls = line->lan->GoodCalls() + line->lan->FailedCalls();
      info.snapshot.good_calls = line->lan->GoodCalls();
    }
    infos.push_back(std::move(info));
  }
  return infos;
}

void SiteRun::StartRun() {
  for (auto& line : lines_run_) {
    line->controller->EndCommLoop().Reset();
    line->controller->CallEnded().Reset();
  }
}

void SiteRun::SetIdleEnd(const core::StopSignal* idle_end) {
  for (auto& line : lines_run_) {
    if (line->runner) line->runner->SetIdleEnd(idle_end);
    if (line->lan) line->lan->SetIdleEnd(idle_end);
  }
}

void SiteRun::SetAutoStart(shell::AutoStartMode mode, const std::string& end_time) {
  for (auto& line : lines_run_) {
    if (line->runner) line->runner->SetAutoStart(mode, end_time);
  }
}

bool SiteRun::HostLine(Line& line, bool once, bool scheduled) {
  try {
    return HostLineUnguarded(line, once, scheduled);
  } catch (const std::exception& e) {
    // A failure on one line never stops another.
    line.controller->Event("Error", std::string("Line ended: ") + e.what());
    std::cerr << "clockcomm: a line ended: " << e.what() << "\n";
    return false;
  }
}

bool SiteRun::HostLineUnguarded(Line& line, bool once, bool scheduled) {
  if (!scheduled) return line.lan ? line.lan->Host(once) : line.runner->Host(once);
  // The scheduler reads the poll list through a connection of its own.
  auto product_db = db::Open(session_.Paths().ClockwynDatabase());
  db::CreateProductSchema(*product_db);  // an older poll list gains its new columns
  shell::PollList poll_list(*product_db);
  const auto& comm = session_.Config().Comm();
  shell::HostPollSchedule schedule(poll_list, session_.Clock(),
                                   {comm.connection_type, comm.terminal_type, comm.comm_port});
  line.services.schedule = &schedule;
  const bool ok = line.lan ? line.lan->Host(once) : line.runner->Host(once);
  line.services.schedule = nullptr;
  return ok;
}

bool SiteRun::Host(bool once, bool scheduled) {
  std::mutex mutex;
  std::optional<bool> first_call;  // with once: the result of the line whose call ended first
  bool all_ok = true;
  StartRun();
  std::vector<std::thread> threads;
  for (size_t i = 0; i < lines_run_.size(); ++i) {
    threads.emplace_back([&, i] {
      Line& line = *lines_run_[i];
      const bool ok = HostLine(line, once, scheduled && i == 0);
      std::lock_guard lock(mutex);
      if (!ok) all_ok = false;
      if (once && line.Calls() > 0 && !first_call) {
        first_call = ok;
        session_.Controller().PressEnd();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  if (once) return first_call.value_or(false);
  return all_ok && !session_.Controller().RunFailed();
}

void SiteRun::WithOtherLinesHosting(const std::function<void()>& job) {
  StartRun();
  std::vector<std::thread> threads;
  for (size_t i = 1; i < lines_run_.size(); ++i) {
    threads.emplace_back([this, i] { HostLine(*lines_run_[i], false, false); });
  }
  try {
    job();
  } catch (...) {
    EndOthers();
    for (auto& thread : threads) thread.join();
    throw;
  }
  EndOthers();
  for (auto& thread : threads) thread.join();
}

shell::OutboundPoller& SiteRun::Poller() {
  Line& main = *lines_run_.front();
  if (main.runner) return *main.runner;
  if (!lan_poller_) {
    shell::LineSettings settings = session_.LoopSettings("");
    lan_poller_ = std::make_unique<shell::LanPoller>(settings, lines_.lan.polls_at_once, Families(),
                                                     *main.controller, main.services,
                                                     session_.Logs(), session_.Screen());
  }
  return *lan_poller_;
}

void SiteRun::EndPolls() {
  Line& main = *lines_run_.front();
  if (main.runner) main.runner->End();
  if (lan_poller_) lan_poller_->Wait();
}

bool SiteRun::PollLocations(const std::vector<shell::PollRow>& locations) {
  Line& main = *lines_run_.front();
  if (main.runner) return main.runner->PollLocations(locations);
  main.controller->EndCommLoop().Reset();
  Poller();
  return lan_poller_->PollLocations(locations) && !main.controller->RunFailed();
}

}  // namespace clockcomm::app
