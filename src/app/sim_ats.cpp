// clockcomm-sim ats: an ATS terminal on a new pty or a TCP port.
#include <iostream>
#include <memory>

#include "app/sim_commands.h"
#include "comm/pty_pair.h"
#include "comm/tcp_connection.h"
#include "core/clock.h"
#include "core/errors.h"
#include "sim/ats_terminal.h"

namespace clockcomm::app {
namespace {

struct AtsOptions {
  sim::ATSTerminalConfig config;
  std::string series = "eseries";
  int punches = 10;
  std::string listen;
  bool use_pty = false;
  bool once = false;
};

// Serves a fresh pty or a TCP port until stopped (or, with --once, until one poll has ended).
int RunAts(AtsOptions& o, core::StopSignal& stop) {
  if (!o.use_pty && o.listen.empty()) {
    std::cerr << "clockcomm-sim ats: give --pty or --listen HOST:PORT" << std::endl;
    return 2;
  }
  o.config.series = ats::SeriesFromName(o.series);
  sim::ATSTerminal terminal(
      o.config,
      sim::GenerateATSPunches(o.config.series, o.punches, core::SystemClock().Now().GetDate(),
                              o.config.address),
      &stop);
  if (o.use_pty) {
    auto pair = comm::PtyPair::Open();
    auto line = pair.TakeMaster();
    std::cout << "ATS terminal ready on " << pair.SlavePath() << std::endl;
    while (!stop.Requested()) {
      const auto outcome = terminal.Serve(*line, o.once);
      if (o.once) {
        // The program still has to read the unlock's reply: a pty that went away now would take
        // it along. Leave once the program has closed its end (or after a while).
        pair.ReleaseSlave();
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        try {
          while (line->WaitForInput(until, {&stop}) == comm::WaitResult::kReadable) line->Read();
        } catch (const comm::ConnectionClosedError&) {
        }
      }
      if (o.once || outcome != sim::ServeOutcome::kUnlocked) break;
    }
  } else {
    const auto colon = o.listen.rfind(':');
    if (colon == std::string::npos) throw core::ArgumentException("--listen wants HOST:PORT");
    const std::string host = o.listen.substr(0, colon);
    comm::TcpListener listener(host, static_cast<uint16_t>(std::stoi(o.listen.substr(colon + 1))));
    std::cout << "ATS terminal listening on " << host << ":" << listener.Port() << std::endl;
    terminal.ServeTcp(listener, o.once);
  }
  const auto s = terminal.Stats();
  std::cout << "ATS terminal " << o.config.address << ": " << s.probes << " probes, " << s.commands
            << " commands, " << s.packets_sent << " packets sent, " << s.resends << " resends, "
            << s.acks << " acks" << std::endl;
  std::cout << terminal.PendingPunches().size() << " punches pending" << std::endl;
  return 0;
}

}  // namespace

SimCommand AddAtsCommand(CLI::App& app) {
  auto o = std::make_shared<AtsOptions>();
  auto* ats = app.add_subcommand("ats", "An ATS terminal on a new pty or a TCP port");
  auto& af = o->config.faults;
  auto* ats_pty = ats->add_flag("--pty", o->use_pty, "Create a pty pair, print its path");
  auto* ats_listen = ats->add_option("--listen", o->listen, "Listen on HOST:PORT");
  ats_pty->excludes(ats_listen);
  ats->add_option("--series", o->series, "Terminal model")
      ->check(CLI::IsMember({"eseries", "cyberseries", "prodigy"}))
      ->capture_default_str();
  ats->add_option("--address", o->config.address, "Terminal address")
      ->check(CLI::Range(0, 94))
      ->capture_default_str();
  ats->add_option("--punches", o->punches, "Number of generated punches")->capture_default_str();
  ats->add_flag("--once", o->once,
                "Leave after one poll ended (unlocked, or on TCP the connection closed)");
  ats->add_option("--not-ready", af.not_ready, "Fault: answer the first N probes busy");
  ats->add_option("--nak-commands", af.nak_commands, "Fault: refuse the next N commands");
  ats->add_option("--bad-lrc", af.bad_lrc, "Fault: a bad LRC on packet N once");
  ats->add_option("--silent-after", af.silent_after, "Fault: deaf for a while after N packets");
  ats->add_option("--drop-after", af.drop_after, "Fault: close the line after N packets");
  ats->add_flag("--unknown-packet", af.unknown_packet,
                "Fault: an unknown packet type before the punches");
  return {ats, [o](core::StopSignal& stop) { return RunAts(*o, stop); }};
}

}  // namespace clockcomm::app
