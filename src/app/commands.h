// Each group of command-line commands registers itself on the application here; main() only
// parses the global options and dispatches.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace clockcomm::app {

struct GlobalOptions {
  std::string home;  // --home DIR
};

// init, settings show|set, log show|purge|print
void RegisterSetupCommands(CLI::App& app, const GlobalOptions& options);
// company add|list, employee add|import, department add|list, job add|list
void RegisterRecordCommands(CLI::App& app, const GlobalOptions& options);
// transfer, pending, punches
void RegisterTransferCommands(CLI::App& app, const GlobalOptions& options);

// host, poll, poll-list
void RegisterCallCommands(CLI::App& app, const GlobalOptions& options);
// t4 host, t4 clocks add|list|remove, t4 tasks add|list
void RegisterT4Commands(CLI::App& app, const GlobalOptions& options);
// t4 download HOST[:PORT]: a T4 terminal's log read once, not cleared.
void RegisterT4DownloadCommand(CLI::App& t4);
// backup
void RegisterBackupCommand(CLI::App& app, const GlobalOptions& options);
// status [--json]
void RegisterStatusCommand(CLI::App& app, const GlobalOptions& options);
// user add|passwd|remove|list: the web console's operators
void RegisterUserCommands(CLI::App& app, const GlobalOptions& options);
// serve [--listen HOST:PORT]: the web console's API
void RegisterServeCommand(CLI::App& app, const GlobalOptions& options);
// db copy --from HOME --to URL
void RegisterDbCommands(CLI::App& app, const GlobalOptions& options);
// demo
void RegisterDemoCommand(CLI::App& app, const GlobalOptions& options);

}  // namespace clockcomm::app
