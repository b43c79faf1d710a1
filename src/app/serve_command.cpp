// serve: the web console and its API for the program folder, until Ctrl-C or SIGTERM; with
// --host, every line of the site hosts from the start, as `host --scheduled` does (on a T4 site,
// the T4 host runs, as `t4 host` does); the console starts and ends host mode and polls.
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "app/call_session.h"
#include "app/commands.h"
#include "app/families.h"
#include "app/serve_lines.h"
#include "app/service_manager.h"
#include "app/signal_watcher.h"
#include "app/site_run.h"
#include "app/t4_site.h"
#include "core/errors.h"
#include "shell/logs.h"
#include "shell/site_lines.h"
#include "web/console_server.h"

namespace clockcomm::app {
namespace {

struct ServeOptions {
  std::string listen;
  bool host = false;
  std::string port;
};

// The site's lines as `host --scheduled` runs them, or its T4 host; refuses a site whose type
// they cannot host.
std::unique_ptr<ServeLines> HostingLines(CallSession& session, const std::string& port) {
  const auto type = session.Config().Comm().terminal_type;
  if (ServedByT4Host(type)) {
    return std::make_unique<ServeLines>(
        session, std::make_unique<T4Site>(session, session.Config().Comm().connection_type));
  }
  const auto* family = terminal::FindFamily(Families(), type);
  if (family != nullptr && !family->takes_calls) {
    throw core::InvalidOperationException(
        "Terminal type " + std::to_string(static_cast<int>(type)) +
        " never calls in: run `clockcomm poll --timed` or `auto` beside `serve`.");
  }
  return std::make_unique<ServeLines>(
      session, std::make_unique<SiteRun>(
                   session, shell::ReadSiteLines(session.Config().InstallInformation(),
                                                 session.Config().Comm(), port, std::nullopt)));
}

void RunServe(const GlobalOptions& options, const ServeOptions& o) {
  const web::ListenAddress address =
      o.listen.empty() ? web::ListenAddress{} : web::ParseListenAddress(o.listen);
  core::SystemClock clock;
  const auto home = RequireHome(options);
  auto session = std::make_unique<CallSession>(home, std::cout, clock);
  // The console drives the lines wherever this process can run them; otherwise it only shows
  // the site, and its buttons are refused.
  std::unique_ptr<ServeLines> lines;
  try {
    lines = HostingLines(*session, o.port);
  } catch (const core::InvalidOperationException& e) {
    if (o.host) throw;
    std::cerr << "clockcomm: the console shows the lines but cannot drive them: " << e.what()
              << "\n";
  }
  shell::Logs& logs = session->Logs();
  web::ConsoleServer console(session->Config(), clock, logs, lines.get());
  session->Screen().SetTee(&console.Screen());
  // Under systemd (clockcomm-serve.service): ready once listening, stopping on SIGTERM.
  ServiceManager service;
  // Before the server's and the lines' threads start, so that the signals reach only the watcher.
  SignalWatcher signals([&] {
    service.Stopping();
    console.Stop();
    session->Controller().PressEnd();
  });
  console.Bind(address);
  const std::string url =
      "http://" +
      (address.host.find(':') != std::string::npos ? "[" + address.host + "]" : address.host) +
      ":" + std::to_string(console.Port()) + "/";
  if (console.Operators().List().empty()) {
    std::cerr << "clockcomm: no operator can log in yet; add one with `clockcomm user add NAME "
                 "--role administrator`\n";
  }
  if (o.host) lines->Host();
  logs.Event("Console started", url);
  std::cout << "Console and API on " << url << " (End: Ctrl-C)" << std::endl;
  service.Ready("Console on " + url);
  console.Run();
  if (lines) lines->Shutdown();
  logs.Event("Console stopped", url);
  std::cout << "Console stopped" << std::endl;
}

}  // namespace

void RegisterServeCommand(CLI::App& app, const GlobalOptions& options) {
  auto o = std::make_shared<ServeOptions>();
  CLI::App* serve =
      app.add_subcommand("serve", "Serve the web console's API over HTTP until Ctrl-C or SIGTERM");
  serve->add_option("--listen", o->listen,
                    "HOST:PORT to listen on (default: 127.0.0.1:8470; port 0: any free one)");
  serve->add_flag("--host", o->host,
                  "Also host every line of the site meanwhile, polling the poll list's locations "
                  "at their call times (as host --scheduled)");
  serve->add_option("--port", o->port,
                    "Serial device of the settings' line instead of the COM port's");
  serve->callback([&options, o] { RunServe(options, *o); });
}

}  // namespace clockcomm::app
