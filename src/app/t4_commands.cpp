// t4 host, t4 clocks add|list|remove, t4 tasks add|list: the T4 host, the T4 clock list and its
// waiting user tasks.
#include <iomanip>
#include <iostream>
#include <memory>

#include "app/call_session.h"
#include "app/commands.h"
#include "app/signal_watcher.h"
#include "app/t4_site.h"
#include "core/errors.h"
#include "t4/host/t4_clock_list.h"

namespace clockcomm::app {
namespace {

struct T4Context {
  explicit T4Context(const GlobalOptions& options)
      : session(RequireHome(options), std::cout, clock), list(session.ProductDatabase()) {}
  core::SystemClock clock;
  CallSession session;
  t4::T4ClockList list;
};

void RegisterHost(CLI::App& t4, const GlobalOptions& options) {
  CLI::App* host = t4.add_subcommand(
      "host", "Keep every T4 terminal of the list connected and collect its punches (End: Ctrl-C)");
  host->callback([&options] {
    core::SystemClock clock;
    CallSession session(RequireHome(options), std::cout, clock);
    core::StopSignal end;
    SignalWatcher signals([&end] { end.Request(); });
    T4Site site(session, comm::ConnectionType::kLan);
    std::cout << "T4 host: " << t4::T4ClockList(session.ProductDatabase()).ReadClocks().size()
              << " clocks in the list, each polled every "
              << session.Config().Overrides().HostCycleInterval() << " ms. End: Ctrl-C\n";
    site.Host(end);
  });
}

void RegisterClocks(CLI::App& t4, const GlobalOptions& options) {
  CLI::App* clocks = t4.add_subcommand("clocks", "Keep the T4 clock list (table T4Clocks)");
  clocks->require_subcommand(1);

  auto entry = std::make_shared<t4::T4ClockEntry>();
  CLI::App* add = clocks->add_subcommand("add", "Add a T4 terminal");
  add->add_option("name", entry->name, "Clock name (its assignments and company go by it)")
      ->required();
  add->add_option("--address", entry->address, "The terminal's IP address or host[:port]")
      ->required();
  add->add_option("--device-number", entry->device_number, "The terminal's machine number")
      ->capture_default_str();
  add->add_option("--transport", entry->transport, "tcp or udp")->capture_default_str();
  add->add_option("--key", entry->comm_key, "The terminal's communication key (0: none)")
      ->capture_default_str();
  add->callback([&options, entry] {
    T4Context ctx(options);
    const int64_t id = ctx.list.Add(*entry);
    std::cout << "Added T4 clock " << id << " \"" << entry->name << "\"\n";
    if (!ctx.session.Companies().GetCompanyByClockName(entry->name)) {
      std::cerr << "No company has the clock name \"" << entry->name
                << "\" yet: its punches stay on the terminal until one has (company add "
                   "--clock).\n";
    }
  });

  CLI::App* list = clocks->add_subcommand("list", "List the T4 terminals");
  list->callback([&options] {
    T4Context ctx(options);
    std::cout << std::left << std::setw(5) << "ID" << std::setw(18) << "Clock" << std::setw(24)
              << "Address" << std::setw(8) << "Device" << std::setw(10) << "Transport"
              << "Company\n";
    for (const auto& c : ctx.list.ReadClocks()) {
      std::cout << std::left << std::setw(5) << c.id << std::setw(18) << c.name << std::setw(24)
                << c.address << std::setw(8) << c.device_number << std::setw(10) << c.transport;
      const auto company = ctx.session.Companies().GetCompanyByClockName(c.name);
      std::cout << (company ? company->Name() : "(none: punches wait)") << "\n";
    }
  });

  auto name = std::make_shared<std::string>();
  CLI::App* remove = clocks->add_subcommand("remove", "Remove a T4 terminal and its tasks");
  remove->add_option("clock", *name, "Clock ID or name")->required();
  remove->callback([&options, name] {
    T4Context ctx(options);
    const auto removed = ctx.list.Resolve(*name);
    ctx.list.Remove(removed.id);
    std::cout << "Removed T4 clock " << removed.id << " \"" << removed.name << "\"\n";
  });
}

void RegisterTasks(CLI::App& t4, const GlobalOptions& options) {
  CLI::App* tasks = t4.add_subcommand("tasks", "Queue user and template tasks (table ClockTasks)");
  tasks->require_subcommand(1);

  auto clock = std::make_shared<std::string>();
  auto task = std::make_shared<t4::ClockTask>();
  CLI::App* add = tasks->add_subcommand("add", "Queue a task for a T4 terminal");
  add->add_option("clock", *clock, "Clock ID or name")->required();
  add->add_option("task", task->task,
                  "\"Load All Users\", \"Add User\", \"Remove User\" or \"Reload User\"")
      ->required();
  add->add_option("--user", task->user_id, "The user's enrolment number");
  add->callback([&options, clock, task] {
    T4Context ctx(options);
    t4::ClockTask t = *task;
    t.clock_id = ctx.list.Resolve(*clock).id;
    const int64_t id = ctx.list.AddTask(t);
    std::cout << "Queued task " << id << " \"" << t.task << "\" for " << *clock << "\n";
  });

  auto list_clock = std::make_shared<std::string>();
  CLI::App* list = tasks->add_subcommand("list", "List the tasks waiting for a T4 terminal");
  list->add_option("clock", *list_clock, "Clock ID or name")->required();
  list->callback([&options, list_clock] {
    T4Context ctx(options);
    for (const auto& t : ctx.list.ReadTasks(ctx.list.Resolve(*list_clock).id)) {
      std::cout << t.task_id << "  " << t.task << (t.user_id.empty() ? "" : "  user " + t.user_id)
                << "\n";
    }
  });
}

}  // namespace

void RegisterT4Commands(CLI::App& app, const GlobalOptions& options) {
  CLI::App* t4 = app.add_subcommand(
      "t4", "T4 fingerprint terminals: the host, the clock list, tasks and a one-shot download");
  t4->require_subcommand(1);
  RegisterHost(*t4, options);
  RegisterClocks(*t4, options);
  RegisterTasks(*t4, options);
  RegisterT4DownloadCommand(*t4);
}

}  // namespace clockcomm::app
