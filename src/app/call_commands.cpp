// host, poll and poll-list: the Zon/Tranz call loop from the command line.
#include <iomanip>
#include <iostream>

#include "app/call_session.h"
#include "app/commands.h"
#include "app/signal_watcher.h"
#include "core/errors.h"
#include "core/text.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::app {
namespace {

constexpr int kConnectionTypeLan = 3;

void RefuseLan(const CallSession& session) {
  if (session.Config().Comm().connection_type == kConnectionTypeLan) {
    throw core::InvalidOperationException(
        "Connection type 3 (LAN) is not served by this loop yet; set connection_type to 1 "
        "(Modem) or 2 (Serial).");
  }
}

struct HostOptions {
  std::string port;
  bool once = false;
};

void RunHost(const GlobalOptions& options, const HostOptions& host) {
  core::SystemClock clock;
  CallSession session(RequireHome(options), std::cout, clock);
  RefuseLan(session);
  shell::ZonCallLoop loop(session.LoopSettings(host.port), session.Controller(),
                          session.Services());
  SignalWatcher signals([&] { session.Controller().PressEnd(); });
  const bool ok = loop.CommLoop(host.once);
  if (!ok) throw CLI::RuntimeError(1);
}

struct PollOptions {
  std::vector<std::string> locations;
  std::string port;
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

void RunPoll(const GlobalOptions& options, const PollOptions& poll) {
  core::SystemClock clock;
  CallSession session(RequireHome(options), std::cout, clock);
  RefuseLan(session);
  const auto locations = SelectLocations(session, poll.locations);
  if (locations.empty()) {
    throw core::InvalidOperationException("No location is selected to dial in PollT.");
  }
  shell::ZonCallLoop loop(session.LoopSettings(poll.port), session.Controller(),
                          session.Services());
  SignalWatcher signals([&] { session.Controller().PressEnd(); });
  if (!loop.OutBoundTCB(locations)) throw CLI::RuntimeError(1);
}

void RegisterPollList(CLI::App& app, const GlobalOptions& options) {
  CLI::App* cmd = app.add_subcommand("poll-list", "Keep the poll list (table PollT)");
  cmd->require_subcommand(1);

  auto row = std::make_shared<shell::PollRow>();
  auto dial_time = std::make_shared<std::string>();
  auto no_select = std::make_shared<bool>(false);
  CLI::App* add = cmd->add_subcommand("add", "Add a location");
  add->add_option("name", row->location_name, "Location name")->required();
  add->add_option("--phone,--address", row->location_phone,
                  "Phone number to dial, or the terminal's address");
  add->add_option("--dial-time", *dial_time, "Call time of day (HH:MM), for timed polling");
  add->add_option("--terminal-id", row->terminal_id, "Terminal identifier sent in the poll");
  add->add_option("--id", row->location_id, "LocationID (default: the next free one)");
  add->add_flag("--not-selected", *no_select, "Keep the location but do not dial it");
  add->callback([&options, row, dial_time, no_select] {
    core::SystemClock clock;
    CallSession session(RequireHome(options), std::cout, clock);
    shell::PollRow r = *row;
    r.select_to_dial = !*no_select;
    if (!dial_time->empty()) {
      r.dial_time = core::ParseTime(*dial_time);
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
    std::cout << std::left << std::setw(5) << "ID" << std::setw(22) << "Location"
              << std::setw(18) << "Phone/Address" << std::setw(10) << "Dial" << std::setw(9)
              << "Selected" << "Terminal\n";
    for (const auto& r : rows) {
      std::cout << std::left << std::setw(5) << r.location_id << std::setw(22) << r.location_name
                << std::setw(18) << r.location_phone << std::setw(10)
                << (r.dial_time ? r.dial_time->Format("HH:nn") : r.dial_time_text)
                << std::setw(9) << (r.select_to_dial ? "yes" : "no") << r.terminal_id << "\n";
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

}  // namespace

void RegisterCallCommands(CLI::App& app, const GlobalOptions& options) {
  auto host = std::make_shared<HostOptions>();
  CLI::App* host_cmd =
      app.add_subcommand("host", "Host mode: wait for terminals to call in (End: Ctrl-C)");
  host_cmd->add_option("--port", host->port, "Serial device to use instead of the COM port");
  host_cmd->add_flag("--once", host->once,
                     "Leave after the first call (exit status 0 when it succeeded)");
  host_cmd->callback([&options, host] { RunHost(options, *host); });

  auto poll = std::make_shared<PollOptions>();
  CLI::App* poll_cmd =
      app.add_subcommand("poll", "Poll the selected locations of the poll list (or those named)");
  poll_cmd->add_option("locations", poll->locations, "Location names (default: all selected)");
  poll_cmd->add_option("--port", poll->port, "Serial device to use instead of the COM port");
  poll_cmd->callback([&options, poll] { RunPoll(options, *poll); });

  RegisterPollList(app, options);
}

}  // namespace clockcomm::app
