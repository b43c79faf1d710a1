// host, poll and poll-list: the Zon/Tranz call loop from the command line.
#include <atomic>
#include <iomanip>
#include <iostream>
#include <mutex>

#include "app/call_session.h"
#include "app/commands.h"
#include "app/echoing_log.h"
#include "app/families.h"
#include "app/service_manager.h"
#include "app/signal_watcher.h"
#include "app/site_run.h"
#include "app/t4_site.h"
#include "core/errors.h"
#include "core/heartbeat.h"
#include "core/text.h"
#include "db/open.h"
#include "db/schema.h"
#include "shell/schedule/auto_start.h"
#include "shell/schedule/host_poll_schedule.h"
#include "shell/schedule/poll_list.h"
#include "shell/schedule/timed_polling.h"

namespace clockcomm::app {
namespace {

bool IsT4Line(const CallSession& session) {
  return ServedByT4Host(session.Config().Comm().terminal_type);
}

struct HostOptions {
  std::string port;
  std::string listen;
  bool once = false;
  bool scheduled = false;
};

// Terminals of a type that never calls in are only polled.
void RequireHostableLine(const CallSession& session) {
  const auto type = session.Config().Comm().terminal_type;
  const auto* family = terminal::FindFamily(Families(), type);
  if (family != nullptr && !family->takes_calls) {
    throw core::InvalidOperationException(
        "Terminal type " + std::to_string(static_cast<int>(type)) + " (" +
        std::string(terminal::TerminalTypeName(type)) +
        ") never calls in: its terminals are polled. Use `clockcomm poll` or `poll --timed`, or "
        "host with a type that calls in and give the ATS locations their type with `poll-list "
        "add --terminal-type` (polled at their call times with `host --scheduled`).");
  }
}

// The lines of the site: the settings' line and [Lines]; --port and --listen override.
shell::SiteLines SiteLinesOf(const CallSession& session, const std::string& port,
                             const std::string& listen = "") {
  std::optional<comm::EndPoint> listen_at;
  if (!listen.empty()) listen_at = comm::ParseEndPoint(listen, true);
  return shell::ReadSiteLines(session.Config().InstallInformation(), session.Config().Comm(), port,
                              listen_at);
}

void RunHost(const GlobalOptions& options, const HostOptions& host) {
  core::SystemClock clock;
  CallSession session(RequireHome(options), std::cout, clock);
  if (IsT4Line(session)) {
    if (!host.port.empty() || !host.listen.empty() || host.once) {
      throw core::ArgumentException(
          "Terminal type 2 (Fingerprint) hosts the T4 clock list: no --port, no --listen, no "
          "--once.",
          "port");
    }
    SignalWatcher signals([&] { session.Controller().PressEnd(); });
    T4Site(session, session.Config().Comm().connection_type)
        .Host(session.Controller().EndCommLoop());
    return;
  }
  RequireHostableLine(session);
  SiteRun site(session, SiteLinesOf(session, host.port, host.listen));
  SignalWatcher signals([&] { session.Controller().PressEnd(); });
  if (!site.Host(host.once, host.scheduled)) throw CLI::RuntimeError(1);
}

// The timed polling cycle over the poll list on the settings' line, until the stop signal or the
// auto-end time; the site's other lines host meanwhile.
void TimedPoll(CallSession& session, SiteRun& site, std::optional<core::DateTime> auto_end,
               core::StopSignal* idle_end = nullptr) {
  auto product_db = db::Open(session.Paths().ClockwynDatabase());
  db::CreateProductSchema(*product_db);  // an older poll list gains its new columns
  shell::PollList poll_list(*product_db);
  EchoingLog log(session.Logs(), session.Screen());
  const auto& comm = session.Config().Comm();
  shell::TimedPolling cycle(poll_list, site.Poller(), log, session.Clock(),
                            session.Controller().EndCommLoop(), auto_end,
                            {comm.connection_type, comm.terminal_type, comm.comm_port});
  cycle.SetIdleEnd(idle_end);
  shell::TimedPollingResult result{};
  site.WithOtherLinesHosting([&] {
    result = cycle.Run();
    site.EndPolls();
  });
  if (result == shell::TimedPollingResult::kNoEntries || session.Controller().RunFailed()) {
    throw CLI::RuntimeError(1);
  }
}

struct PollOptions {
  std::vector<std::string> locations;
  std::string port;
  bool timed = false;
};

std::vector<shell::PollRow> SelectLocations(CallSession& session,
                                            const std::vector<std::string>& names) {
  shell::PollList list(session.ProductDatabase());
  std::vector<shell::PollRow> chosen;
  const auto rows = list.ReadPollRows();
  for (const auto& name : names) {
    bool found = false;
    for (const auto& row : rows) {
      if (core::EqualsIgnoreCase(row.location_name, name)) {
        chosen.push_back(row);
        found = true;
      }
    }
    if (!found) throw core::ItemNotFoundException("No location named \"" + name + "\" in PollT.");
  }
  if (names.empty()) {
    for (const auto& row : rows) {
      if (row.select_to_dial) chosen.push_back(row);
    }
  }
  return chosen;
}

// A T4 line polls the T4 clock list, not the poll list: once, or (timed) every host cycle.
void PollT4(CallSession& session, const PollOptions& poll) {
  if (!poll.locations.empty() || !poll.port.empty()) {
    throw core::ArgumentException(
        "Terminal type 2 (Fingerprint) polls the T4 clock list (`t4 clocks list`); name no "
        "locations and no port.",
        "locations");
  }
  T4Site site(session, session.Config().Comm().connection_type);
  SignalWatcher signals([&] { session.Controller().PressEnd(); });
  if (poll.timed) {
    site.Host(session.Controller().EndCommLoop());
  } else if (!site.PollAll()) {
    throw CLI::RuntimeError(1);
  }
}

void RunPoll(const GlobalOptions& options, const PollOptions& poll) {
  core::SystemClock clock;
  CallSession session(RequireHome(options), std::cout, clock);
  if (IsT4Line(session)) return PollT4(session, poll);
  if (poll.timed) {
    if (!poll.locations.empty()) {
      throw core::ArgumentException("--timed polls the whole poll list; name no locations.",
                                    "locations");
    }
    SiteRun site(session, SiteLinesOf(session, poll.port));
    SignalWatcher signals([&] { session.Controller().PressEnd(); });
    TimedPoll(session, site, std::nullopt);
    return;
  }
  const auto locations = SelectLocations(session, poll.locations);
  if (locations.empty()) {
    throw core::InvalidOperationException("No location is selected to dial in PollT.");
  }
  // A one-off poll uses the settings' line only.
  shell::SiteLines lines = SiteLinesOf(session, poll.port);
  const bool lan = session.Config().Comm().connection_type == comm::ConnectionType::kLan;
  lines.serial.resize(lan ? 0 : 1);
  lines.lan_listener = lan;
  SiteRun site(session, std::move(lines));
  SignalWatcher signals([&] { session.Controller().PressEnd(); });
  if (!site.PollLocations(locations)) throw CLI::RuntimeError(1);
}

void RegisterPollList(CLI::App& app, const GlobalOptions& options) {
  CLI::App* cmd = app.add_subcommand("poll-list", "Keep the poll list (table PollT)");
  cmd->require_subcommand(1);

  auto row = std::make_shared<shell::PollRow>();
  auto dial_time = std::make_shared<std::string>();
  auto no_select = std::make_shared<bool>(false);
  auto terminal_type = std::make_shared<int>(0);
  CLI::App* add = cmd->add_subcommand("add", "Add a location");
  add->add_option("name", row->location_name, "Location name")->required();
  add->add_option("--phone,--address", row->location_phone,
                  "Phone number to dial, or the terminal's address");
  add->add_option("--dial-time", *dial_time, "Call time of day (HH:MM), for timed polling");
  add->add_option("--terminal-id", row->terminal_id, "Terminal identifier sent in the poll");
  add->add_option("--terminal-type", *terminal_type,
                  "The make of this location's terminal, as terminal_type numbers it (1 ZON / "
                  "Tranz, 7 ATS E-Series, 8 ATS CyberSeries, 9 ATS Prodigy, ...; default: the "
                  "settings' terminal type)");
  add->add_option("--id", row->location_id, "LocationID (default: the next free one)");
  add->add_flag("--not-selected", *no_select, "Keep the location but do not dial it");
  add->callback([&options, row, dial_time, no_select, terminal_type] {
    core::SystemClock clock;
    CallSession session(RequireHome(options), std::cout, clock);
    shell::PollRow r = *row;
    r.select_to_dial = !*no_select;
    if (*terminal_type != 0) {
      r.terminal_type = terminal::TerminalTypeFromNumber(*terminal_type);
      if (!r.terminal_type) {
        throw core::ArgumentException(
            "--terminal-type " + std::to_string(*terminal_type) + " is not a terminal type (1-11).",
            "terminal-type");
      }
    }
    if (!dial_time->empty()) {
      r.dial_time = shell::PollList::ParseDialTime(*dial_time);
      if (!r.dial_time) {
        throw core::ArgumentException("--dial-time \"" + *dial_time + "\" is not a time of day.",
                                      "dial-time");
      }
    }
    const int64_t id = shell::PollList(session.ProductDatabase()).Add(r);
    std::cout << "Added location " << id << " \"" << r.location_name << "\"\n";
  });

  CLI::App* list = cmd->add_subcommand("list", "List the locations");
  list->callback([&options] {
    core::SystemClock clock;
    CallSession session(RequireHome(options), std::cout, clock);
    const auto rows = shell::PollList(session.ProductDatabase()).ReadPollRows();
    std::cout << std::left << std::setw(5) << "ID" << std::setw(22) << "Location" << std::setw(18)
              << "Phone/Address" << std::setw(10) << "Dial" << std::setw(9) << "Selected"
              << std::setw(10) << "Terminal"
              << "Type\n";
    for (const auto& r : rows) {
      std::cout << std::left << std::setw(5) << r.location_id << std::setw(22) << r.location_name
                << std::setw(18) << r.location_phone << std::setw(10)
                << (r.dial_time ? r.dial_time->Format("HH:nn") : r.dial_time_text) << std::setw(9)
                << (r.select_to_dial ? "yes" : "no") << std::setw(10) << r.terminal_id
                << (r.terminal_type ? terminal::TerminalTypeName(*r.terminal_type) : "(settings)")
                << "\n";
    }
  });

  auto remove_id = std::make_shared<int64_t>(0);
  CLI::App* remove = cmd->add_subcommand("remove", "Remove a location by its LocationID");
  remove->add_option("id", *remove_id, "LocationID")->required();
  remove->callback([&options, remove_id] {
    core::SystemClock clock;
    CallSession session(RequireHome(options), std::cout, clock);
    shell::PollList(session.ProductDatabase()).Remove(*remove_id);
    std::cout << "Removed location " << *remove_id << "\n";
  });
}

// The auto-start mode of the settings, unattended: waits for the begin time, runs host or timed
// polling, and stops at the end time or on SIGTERM. SIGHUP reads the configuration again: the run
// ends at its next wait (a call in progress goes on to its end) and starts anew.
void RunAuto(const GlobalOptions& options, const std::string& port) {
  core::SystemClock clock;
  const auto home = RequireHome(options);
  // Under systemd: ready once configured, the status line as the service's status, and this
  // thread's waits petting the watchdog.
  ServiceManager service;
  core::Heartbeat::Loop loop;
  std::atomic<bool> shutdown{false};
  core::StopSignal reload;      // ends a run between calls
  core::StopSignal begin_wait;  // ends the wait for the begin time: End or a reload
  std::mutex run_mutex;         // guards the run the signals reach
  terminal::CallController* controller = nullptr;
  bool t4_run = false;
  SignalWatcher signals(
      [&] {
        shutdown = true;
        service.Stopping();
        begin_wait.Request();
        std::lock_guard lock(run_mutex);
        if (controller != nullptr) controller->PressEnd();
      },
      [&] {
        service.Reloading();
        reload.Request();
        begin_wait.Request();
        // The T4 host has no wait between calls to end at: it ends as End ends it.
        std::lock_guard lock(run_mutex);
        if (t4_run && controller != nullptr) controller->PressEnd();
      });
  struct StoppingOnExit {
    ServiceManager& service;
    ~StoppingOnExit() { service.Stopping(); }
  } stopping_on_exit{service};

  for (bool first = true; !shutdown; first = false) {
    reload.Reset();
    begin_wait.Reset();
    CallSession session(home, std::cout, clock);
    if (!first) session.Logs().Event("Settings read again", home.string());
    // A T4 line keeps the T4 clock list connected between the begin and end times, either mode.
    std::unique_ptr<T4Site> t4_site;
    std::unique_ptr<SiteRun> site;
    if (IsT4Line(session)) {
      t4_site = std::make_unique<T4Site>(session, session.Config().Comm().connection_type);
    } else {
      site = std::make_unique<SiteRun>(session, SiteLinesOf(session, port));
      site->SetIdleEnd(&reload);
    }
    const auto& comm = session.Config().Comm();
    const shell::AutoStartMode mode = shell::AutoStartModeFromSetting(comm.auto_start_mode);
    if (mode == shell::AutoStartMode::kNone) {
      throw core::InvalidOperationException(
          "auto_start_mode is 1 (none): set it to 2 (host) or 3 (poll) with `clockcomm settings "
          "set auto_start_mode=...`.");
    }
    session.Screen().SetStatusListener([&service](std::string_view text) { service.Status(text); });
    {
      std::lock_guard lock(run_mutex);
      controller = &session.Controller();
      t4_run = t4_site != nullptr;
      if (shutdown) controller->PressEnd();  // End came while the configuration was read
    }
    struct RunEnds {
      std::mutex& mutex;
      terminal::CallController*& controller;
      ~RunEnds() {
        std::lock_guard lock(mutex);
        controller = nullptr;
      }
    } run_ends{run_mutex, controller};
    EchoingLog log(session.Logs(), session.Screen());
    shell::AutoStart auto_start(comm.auto_start_mode, comm.begin_time, comm.end_time, log, clock,
                                begin_wait);
    service.Ready(std::string("Auto-start ") + shell::AutoStartModeName(mode) + " mode, from " +
                  comm.begin_time + " to " + comm.end_time);
    auto_start.Run([&](const shell::AutoStartRun& run) {
      if (shutdown || reload.Requested()) return;
      if (t4_site) return t4_site->Host(session.Controller().EndCommLoop(), run.end_deadline);
      site->SetAutoStart(run.mode, run.end_time);
      if (run.mode == shell::AutoStartMode::kPoll) {
        TimedPoll(session, *site, run.end_deadline, &reload);
        return;
      }
      // The host stops by itself at the end time its mode line shows.
      RequireHostableLine(session);
      if (!site->Host(false, true) && session.Controller().RunFailed()) {
        throw CLI::RuntimeError(1);
      }
    });
    if (!reload.Requested()) break;  // the end time, or End
  }
}

}  // namespace

void RegisterCallCommands(CLI::App& app, const GlobalOptions& options) {
  auto host = std::make_shared<HostOptions>();
  CLI::App* host_cmd =
      app.add_subcommand("host", "Host mode: wait for terminals to call in (End: Ctrl-C)");
  host_cmd->add_option("--port", host->port, "Serial device to use instead of the COM port");
  host_cmd->add_option("--listen", host->listen,
                       "Also serve terminals on the network: listen on HOST:PORT (default: [Lines] "
                       "LAN, or 0.0.0.0:3001 when the connection type is LAN)");
  host_cmd->add_flag("--once", host->once,
                     "Leave after the first call (exit status 0 when it succeeded)");
  host_cmd->add_flag("--scheduled", host->scheduled,
                     "Also poll the poll list's locations at their call times while hosting");
  host_cmd->callback([&options, host] { RunHost(options, *host); });

  auto poll = std::make_shared<PollOptions>();
  CLI::App* poll_cmd =
      app.add_subcommand("poll", "Poll the selected locations of the poll list (or those named)");
  poll_cmd->add_option("locations", poll->locations, "Location names (default: all selected)");
  poll_cmd->add_option("--port", poll->port, "Serial device to use instead of the COM port");
  poll_cmd->add_flag("--timed", poll->timed,
                     "Timed polling: call each selected location at its call time, every day, "
                     "until stopped (Ctrl-C or SIGTERM)");
  poll_cmd->callback([&options, poll] { RunPoll(options, *poll); });

  auto auto_port = std::make_shared<std::string>();
  CLI::App* auto_cmd = app.add_subcommand(
      "auto",
      "Run the auto-start mode of the settings (host or timed polling) unattended, from "
      "the begin time until the end time or SIGTERM");
  auto_cmd->add_option("--port", *auto_port, "Serial device to use instead of the COM port");
  auto_cmd->callback([&options, auto_port] { RunAuto(options, *auto_port); });

  RegisterPollList(app, options);
}

}  // namespace clockcomm::app
