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
#include "shell/call/call_controller.h"
#include "shell/call/screen_sink.h"
#include "shell/call/zon_call_loop.h"
#include "shell/logs.h"
#include "shell/my_static.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::app {

class CallSession {
 public:
  CallSession(const std::filesystem::path& home, std::ostream& out, core::Clock& clock);

  const shell::MyStatic& Config() const { return *config_; }
  const shell::MyPaths& Paths() const { return services_.paths; }
  shell::Logs& Logs() { return logs_; }
  shell::ConsoleScreen& Screen() { return screen_; }
  shell::CallController& Controller() { return controller_; }
  shell::CallServices& Services() { return services_; }
  records::CompanyFactory& Companies() { return companies_; }
  core::Clock& Clock() { return clock_; }
  // The product database (PollT ...), opened on first use.
  db::Database& ProductDatabase();

  // The loop settings of the configuration; port_option, when not empty, is the device to use.
  shell::ZonLoopSettings LoopSettings(const std::string& port_option) const;

 private:
  std::unique_ptr<shell::MyStatic> config_;
  core::Clock& clock_;
  shell::Logs logs_;
  shell::ConsoleScreen screen_;
  shell::CallController controller_;
  records::CompanyFactory companies_;
  shell::CallServices services_;
  std::unique_ptr<db::Database> product_db_;
};

// The program folder of the options, refusing one that was never set up with `init`.
std::filesystem::path RequireHome(const GlobalOptions& options);

}  // namespace clockcomm::app
