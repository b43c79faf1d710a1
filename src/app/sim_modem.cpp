// clockcomm-sim modem: a Hayes modem on a new pty with one simulated terminal behind it.
#include <iostream>
#include <memory>
#include <thread>

#include "app/sim_commands.h"
#include "comm/pty_pair.h"
#include "sim/hayes_modem.h"

namespace clockcomm::app {
namespace {

struct ModemCommandOptions {
  TerminalOptions terminal;
  sim::ModemOptions modem;
  std::string number = "5551234", speed = "2400", fail_code = "no-carrier";
  std::optional<double> call_in_after, call_interval;
  int guard_ms = 1000;
  bool pty = false;
};

int RunModem(ModemCommandOptions& o, core::StopSignal& stop) {
  o.modem.speed = o.speed == "none" ? std::nullopt : std::optional<int>(std::stoi(o.speed));
  o.modem.fail_code = o.fail_code == "busy" ? sim::ResultCode::kBusy : sim::ResultCode::kNoCarrier;
  o.modem.guard_time = std::chrono::milliseconds(o.guard_ms);
  sim::ZonTerminal terminal(Finish(o.terminal), LoadPunches(o.terminal), &stop);
  auto pair = comm::PtyPair::Open();
  const std::string where = pair.SlavePath();
  sim::HayesModem modem(pair.TakeMaster(), o.modem, stop);
  modem.AddToPhoneBook(o.number, terminal);
  std::cout << "Modem ready on " << where << " (terminal " << terminal.Config().clock_name << " at "
            << o.number << ", " << terminal.PendingPunches().size() << " punches)" << std::endl;

  std::thread caller;
  if (o.call_in_after) {
    caller = std::thread([&] {
      auto wait = std::chrono::duration<double>(*o.call_in_after);
      while (!stop.WaitFor(std::chrono::duration_cast<std::chrono::nanoseconds>(wait))) {
        modem.IncomingCall(o.number);
        if (!o.call_interval) break;
        wait = std::chrono::duration<double>(*o.call_interval);
      }
    });
  }
  modem.Run();
  stop.Request();
  if (caller.joinable()) caller.join();
  auto s = modem.Stats();
  std::cout << "Modem: " << s.commands << " commands, " << s.dials << " dials (" << s.failed_dials
            << " failed), " << s.rings << " rings, " << s.connects << " connects, " << s.hang_ups
            << " hang-ups, " << s.carrier_losses << " carrier losses" << std::endl;
  PrintStats(terminal);
  return 0;
}

}  // namespace

SimCommand AddModemCommand(CLI::App& app) {
  auto o = std::make_shared<ModemCommandOptions>();
  auto* modem = app.add_subcommand("modem", "A Hayes modem on a new pty, a terminal behind it");
  modem->add_flag("--pty", o->pty, "Create the modem port as a pty (the only kind)");
  modem->add_option("--number", o->number, "Phone number of the terminal")->capture_default_str();
  modem->add_option("--speed", o->speed, "Speed CONNECT reports, or none (300)")
      ->capture_default_str();
  modem->add_option("--fail-dials", o->modem.fail_dials, "The first N dials fail");
  modem->add_option("--fail-code", o->fail_code, "How failed dials answer")
      ->check(CLI::IsMember({"no-carrier", "busy"}))
      ->capture_default_str();
  modem->add_flag("--no-dialtone", o->modem.no_dialtone, "Every dial: NO DIALTONE");
  modem->add_option("--call-in-after", o->call_in_after, "The terminal calls in after SECONDS");
  modem->add_option("--call-interval", o->call_interval, "...and again every SECONDS");
  modem->add_option("--guard-ms", o->guard_ms, "Escape guard time")->capture_default_str();
  AddTerminalOptions(*modem, o->terminal);
  return {modem, [o](core::StopSignal& stop) { return RunModem(*o, stop); }};
}

}  // namespace clockcomm::app
