// The subcommands of clockcomm-sim, one file each: every one registers its options on the
// command line and returns how to run once it was chosen.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/stop_signal.h"
#include "sim/terminal_config.h"
#include "sim/zon_terminal.h"

namespace clockcomm::app {

struct SimCommand {
  CLI::App* command = nullptr;
  std::function<int(core::StopSignal&)> run;
};

SimCommand AddZonCommand(CLI::App& app);
SimCommand AddModemCommand(CLI::App& app);
SimCommand AddAtsCommand(CLI::App& app);
SimCommand AddT4Command(CLI::App& app);

// The options of a simulated Zon/Tranz terminal, shared by zon and modem.
struct TerminalOptions {
  sim::TerminalConfig config;
  int punch_count = 10;
  std::string punch_file;
  std::optional<int> baud;
  std::optional<int> hours_badge;
  CLI::Option* clock_name_option = nullptr;  // to tell a given name from the default
};

void AddTerminalOptions(CLI::App& cmd, TerminalOptions& o);
std::vector<std::string> LoadPunches(const TerminalOptions& o);
// The configuration with the pace of --baud applied.
sim::TerminalConfig Finish(TerminalOptions& o);
void PrintStats(const sim::ZonTerminal& terminal);

}  // namespace clockcomm::app
