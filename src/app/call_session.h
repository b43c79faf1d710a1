// The long-lived objects of a run of the call loop, wired together once: configuration, clock,
// logs, screen, controller, company registry and the loop's services.
#pragma once

#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "app/commands.h"
#include "core/clock.h"
#include "db/open.h"
#include "records/company_factory.h"
#include "shell/console_screen.h"
#include "shell/journal_log.h"
#include "shell/line_runner.h"
#include "shell/logs.h"
#include "shell/my_static.h"
#include "shell/schedule/poll_list.h"
#include "terminal/call_controller.h"

namespace clockcomm::app {

class CallSession {
 public:
  CallSession(const std::filesystem::path& home, std::ostream& out, core::Clock& clock);

  const shell::MyStatic& Config() const { return *config_; }
  const shell::MyPaths& Paths() const { return services_.paths; }
  shell::Logs& Logs() { return logs_; }
  shell::ConsoleScreen& Screen() { return screen_; }
  terminal::CallController& Controller() { return controller_; }
  shell::LineServices& Services() { return services_; }
  records::CompanyFactory& Companies() { return companies_; }
  core::Clock& Clock() { return clock_; }
  // The product database (PollT ...), opened on first use.
  db::Database& ProductDatabase();

  // The loop settings of the configuration; port_option, when not empty, is the device to use.
  shell::LineSettings LoopSettings(const std::string& port_option) const;
  // The runner of a line with these settings. Throws InvalidOperationException for a terminal
  // type or connection type that no loop serves yet.
  std::unique_ptr<shell::LineRunner> MakeRunner(shell::LineSettings settings);

 private:
  std::unique_ptr<shell::MyStatic> config_;
  core::Clock& clock_;
  shell::JournalLog journal_;
  shell::Logs logs_;
  shell::ConsoleScreen screen_;
  terminal::CallController controller_;
  records::CompanyFactory companies_;
  shell::LineServices services_;
  std::unique_ptr<db::Database> product_db_;
};

// The program folder of the options, refusing one that was never set up with `init`.
std::filesystem::path RequireHome(const GlobalOptions& options);

}  // namespace clockcomm::app
