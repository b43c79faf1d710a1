// serve: the web console and its API for the program folder, until Ctrl-C or SIGTERM.
#include <iostream>
#include <memory>
#include <string>

#include "app/call_session.h"
#include "app/commands.h"
#include "app/signal_watcher.h"
#include "shell/logs.h"
#include "web/console_server.h"

namespace clockcomm::app {
namespace {

void RunServe(const GlobalOptions& options, const std::string& listen) {
  const web::ListenAddress address =
      listen.empty() ? web::ListenAddress{} : web::ParseListenAddress(listen);
  core::SystemClock clock;
  const auto config = shell::MyStatic::Load(RequireHome(options));
  shell::Logs logs(config->Paths(), clock);
  web::ConsoleServer console(*config, clock, logs);
  // Before the server's threads start, so that the signals reach only the watcher.
  SignalWatcher signals([&console] { console.Stop(); });
  console.Bind(address);
  const std::string url =
      "http://" +
      (address.host.find(':') != std::string::npos ? "[" + address.host + "]" : address.host) +
      ":" + std::to_string(console.Port()) + "/";
  if (console.Operators().List().empty()) {
    std::cerr << "clockcomm: no operator can log in yet; add one with `clockcomm user add NAME "
                 "--role administrator`\n";
  }
  logs.Event("Console started", url);
  std::cout << "Console and API on " << url << " (End: Ctrl-C)" << std::endl;
  console.Run();
  logs.Event("Console stopped", url);
  std::cout << "Console stopped" << std::endl;
}

}  // namespace

void RegisterServeCommand(CLI::App& app, const GlobalOptions& options) {
  auto listen = std::make_shared<std::string>();
  CLI::App* serve =
      app.add_subcommand("serve", "Serve the web console's API over HTTP until Ctrl-C or SIGTERM");
  serve->add_option("--listen", *listen,
                    "HOST:PORT to listen on (default: 127.0.0.1:8470; port 0: any free one)");
  serve->callback([&options, listen] { RunServe(options, *listen); });
}

}  // namespace clockcomm::app
