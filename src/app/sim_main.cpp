// clockcomm-sim: a simulated Zon/Tranz terminal on a serial device, a pty or a network (or a swarm
// of network terminals), a simulated Hayes modem with a terminal behind it, a simulated ATS
// terminal on a pty or a TCP port, and a simulated T4 terminal on a TCP and UDP port, for trying
// the program from a shell. Each subcommand lives in a sim_*.cpp of its own.
#include <pthread.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <thread>

#include "app/sim_commands.h"
#include "core/stop_signal.h"

namespace clockcomm::app {
namespace {

// SIGINT and SIGTERM are taken by one thread with sigwait, which raises the stop signal; every
// wait of the simulators watches it, so they end at once.
void WatchSignals(core::StopSignal& stop) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::thread([set, &stop] {
    int signal_number = 0;
    sigwait(&set, &signal_number);
    stop.Request();
  }).detach();
}

}  // namespace
}  // namespace clockcomm::app

int main(int argc, char** argv) {
  using namespace clockcomm;
  CLI::App app{"clockcomm-sim: simulated time clocks and modems"};
  app.require_subcommand(1);
  const std::vector<app::SimCommand> commands = {app::AddZonCommand(app), app::AddModemCommand(app),
                                                 app::AddAtsCommand(app), app::AddT4Command(app)};
  CLI11_PARSE(app, argc, argv);

  core::StopSignal stop;
  app::WatchSignals(stop);
  try {
    for (const auto& command : commands) {
      if (command.command->parsed()) return command.run(stop);
    }
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "clockcomm-sim: " << e.what() << std::endl;
    return 1;
  }
}
