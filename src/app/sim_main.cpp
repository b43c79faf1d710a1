// clockcomm-sim: a simulated Zon/Tranz terminal on a serial device or a pty, and a simulated
// Hayes modem with a terminal behind it, a simulated ATS terminal on a pty or a TCP port, and a
// simulated T4 terminal on a TCP and UDP port, for trying the program from a shell.
#include <pthread.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>
#include <thread>

#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "comm/tcp_connection.h"
#include "core/clock.h"
#include "core/errors.h"
#include "core/stop_signal.h"
#include "core/text.h"
#include "sim/ats_terminal.h"
#include "sim/hayes_modem.h"
#include "sim/punch_source.h"
#include "sim/t4_terminal_sim.h"
#include "sim/zon_terminal.h"
#include "t4/net/t4_packet.h"

namespace clockcomm::app {
namespace {

using namespace std::chrono_literals;

struct TerminalOptions {
  sim::TerminalConfig config;
  int punch_count = 10;
  std::string punch_file;
  std::optional<int> baud;
  std::optional<int> hours_badge;
};

void AddTerminalOptions(CLI::App& cmd, TerminalOptions& o) {
  auto& c = o.config;
  cmd.add_option("--clock-name", c.clock_name, "Clock name in the header")->capture_default_str();
  cmd.add_option("--clock-number", c.clock_number, "Clock number")->capture_default_str();
  cmd.add_option("--application", c.application, "Application name")->capture_default_str();
  cmd.add_option("--upload-type", c.upload_type, "Upload type")
      ->check(CLI::IsMember({"F", "P", "W"}))
      ->capture_default_str();
  cmd.add_option("--terminal-id", c.terminal_id,
                 "Id a poll's header request must carry (empty: any)");
  cmd.add_option("--punches", o.punch_count, "Number of generated punches")->capture_default_str();
  cmd.add_option("--punch-file", o.punch_file, "File of 13-field punch lines instead")
      ->check(CLI::ExistingFile);
  cmd.add_flag("--end-upload", c.end_with_upload,
               "End with end of upload and take the validation tables");
  cmd.add_option("--baud", o.baud, "Send no faster than this line speed (8N1)");
  cmd.add_option("--corrupt-packet", c.faults.corrupt_packet,
                 "Fault: wrong block check on packet N once (0 = header)");
  cmd.add_option("--silent-after", c.faults.silent_after,
                 "Fault: stop sending after N data packets, once");
  cmd.add_option("--drop-after", c.faults.drop_after,
                 "Fault: close the line after N data packets, once");
  cmd.add_flag("--second-header", c.faults.second_header,
               "Fault: send the header again after the first data packet");
  cmd.add_option("--nak-row", c.faults.nak_row, "Fault: refuse download row N once");
  cmd.add_flag("--miss-eot", c.faults.miss_eot,
               "Fault: miss the program's EOT once; the batch comes again next call");
  cmd.add_option("--lose-ack", c.faults.lose_ack,
                 "Fault: the ACK of data packet N is lost once; resent after the ACK wait");
  cmd.add_option("--stray-nak", c.faults.stray_nak,
                 "Fault: the ACK of data packet N arrives as a NAK once; resent at once");
  cmd.add_option("--hours", o.hours_badge,
                 "After each call, ask the hours of this badge (direct line only)");
}

std::vector<std::string> LoadPunches(const TerminalOptions& o) {
  if (!o.punch_file.empty()) return sim::ReadPunchFile(o.punch_file);
  return sim::GeneratePunches(o.punch_count, core::SystemClock().Now().GetDate());
}

sim::TerminalConfig Finish(TerminalOptions& o) {
  if (o.baud) o.config.pace = comm::LineSettings::Parse(std::to_string(*o.baud) + ",N,8,1");
  return o.config;
}

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

void PrintStats(const sim::ZonTerminal& terminal) {
  auto s = terminal.Stats();
  std::cout << "Terminal " << terminal.Config().clock_name << ": " << s.calls << " calls, "
            << s.packets_sent << " packets sent, " << s.naks_received << " NAKs, " << s.resends
            << " resends, " << s.eots_received << " EOTs, " << s.rows_received << " table rows, "
            << terminal.PendingPunches().size() << " punches pending" << std::endl;
}

int RunZon(TerminalOptions& options, const std::string& device, bool use_pty, bool call_in,
           double interval, bool once, bool until_delivered, const std::string& settings,
           core::StopSignal& stop) {
  sim::ZonTerminal terminal(Finish(options), LoadPunches(options), &stop);
  std::optional<comm::PtyPair> pair;
  comm::SerialLine serial;
  std::unique_ptr<comm::IConnection> line;
  std::string where;
  if (use_pty) {
    pair = comm::PtyPair::Open();
    where = pair->SlavePath();
    line = pair->TakeMaster();
  } else {
    serial.SetSettings(settings);
    serial.Open(device);
    where = device;
    line = std::make_unique<comm::SerialConnection>(serial);
  }
  std::cout << "Terminal " << terminal.Config().clock_name << " ready on " << where << " ("
            << terminal.PendingPunches().size() << " punches, "
            << (call_in ? "calls in" : "answers polls") << ")" << std::endl;

  const auto pause =
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(interval));
  sim::CallOutcome outcome = sim::CallOutcome::kNone;
  for (int call = 1; !stop.Requested(); ++call) {
    if (call_in) {
      if (stop.WaitFor(pause)) break;
      outcome = terminal.CallIn(*line);
    } else {
      outcome = terminal.AnswerPoll(*line);
    }
    if (outcome == sim::CallOutcome::kStopped) break;
    std::cout << "Call " << call << ": " << sim::ToString(outcome) << ", "
              << terminal.PendingPunches().size() << " punches pending" << std::endl;
    if (options.hours_badge) {
      auto reply = terminal.RequestHours(*line, *options.hours_badge, core::SystemClock().Now());
      std::cout << "Hours of badge " << *options.hours_badge << ": "
                << (reply ? core::Printable(*reply) : std::string("no reply")) << std::endl;
    }
    if (once || outcome == sim::CallOutcome::kLineClosed ||
        outcome == sim::CallOutcome::kDroppedLine) {
      break;
    }
    if (until_delivered && terminal.PendingPunches().empty()) break;
  }
  PrintStats(terminal);
  return once && outcome != sim::CallOutcome::kCompleted ? 1 : 0;
}

int RunModem(TerminalOptions& options, sim::ModemOptions modem_options, const std::string& number,
             std::optional<double> call_in_after, std::optional<double> call_interval,
             core::StopSignal& stop) {
  sim::ZonTerminal terminal(Finish(options), LoadPunches(options), &stop);
  auto pair = comm::PtyPair::Open();
  const std::string where = pair.SlavePath();
  sim::HayesModem modem(pair.TakeMaster(), modem_options, stop);
  modem.AddToPhoneBook(number, terminal);
  std::cout << "Modem ready on " << where << " (terminal " << terminal.Config().clock_name << " at "
            << number << ", " << terminal.PendingPunches().size() << " punches)" << std::endl;

  std::thread caller;
  if (call_in_after) {
    caller = std::thread([&] {
      auto wait = std::chrono::duration<double>(*call_in_after);
      while (!stop.WaitFor(std::chrono::duration_cast<std::chrono::nanoseconds>(wait))) {
        modem.IncomingCall(number);
        if (!call_interval) break;
        wait = std::chrono::duration<double>(*call_interval);
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

struct T4Options {
  sim::T4SimConfig config;
  std::string listen;
  int pace_ms = 0, punch_every_ms = 0;
  std::string bad_checksum, no_reply;
  bool tcp_only = false, udp_only = false, send_once = false;
};

// A command given by number (15) or by name (CLEAR_ATTLOG).
uint16_t CommandCode(const std::string& text) {
  if (!text.empty() && std::all_of(text.begin(), text.end(),
                                   [](unsigned char ch) { return std::isdigit(ch) != 0; })) {
    return static_cast<uint16_t>(std::stoi(text));
  }
  for (uint32_t code = 0; code <= 2000; ++code) {
    if (t4::net::CommandName(static_cast<uint16_t>(code)) == text) {
      return static_cast<uint16_t>(code);
    }
  }
  throw core::ArgumentException("unknown T4 command: " + text);
}

void AddT4Options(CLI::App& cmd, T4Options& o) {
  auto& c = o.config;
  auto& f = c.faults;
  cmd.add_option("--listen", o.listen, "Listen on HOST:PORT (TCP and UDP; port 0 picks one)")
      ->required();
  cmd.add_option("--records", c.records, "Generated attendance records")->capture_default_str();
  cmd.add_option("--users", c.users, "Generated users (10 when records but none)")
      ->capture_default_str();
  cmd.add_option("--layout", c.record_size, "Record size, with the matching options")
      ->check(CLI::IsMember({40, 49, 16, 8}))
      ->capture_default_str();
  cmd.add_option("--key", c.comm_key, "Communication key (0: none)")->capture_default_str();
  cmd.add_option("--pace-ms", o.pace_ms, "Pause after every frame written")
      ->check(CLI::Range(0, 1000))
      ->capture_default_str();
  cmd.add_option("--punch-every-ms", o.punch_every_ms, "A generated punch at this rate")
      ->capture_default_str();
  cmd.add_option("--max-data", c.max_data_packet, "Largest DATA packet on TCP")
      ->check(CLI::IsMember({1008, 1024, 65528, 65536}))
      ->capture_default_str();
  cmd.add_option("--serial", c.serial_number, "~SerialNumber")->capture_default_str();
  cmd.add_option("--event-length", c.event_length, "EF_ATTLOG payload length (0: by layout)")
      ->check(CLI::IsMember({0, 10, 12, 14, 32, 36, 37, 52}));
  cmd.add_flag("--send-once", o.send_once, "Events are never sent again, acknowledged or not");
  cmd.add_flag("--bad-records", c.bad_records, "Seed the log with records a client must skip");
  auto* tcp_only = cmd.add_flag("--tcp-only", o.tcp_only, "Answer TCP only");
  cmd.add_flag("--udp-only", o.udp_only, "Answer UDP only (TCP refused)")->excludes(tcp_only);
  cmd.add_flag("--busy-menu", f.busy_menu, "Fault: menu in use, CONNECT ignored");
  cmd.add_flag("--refuse-key", f.refuse_key_scheme, "Fault: AUTH always refused");
  cmd.add_flag("--second-client-hangs", f.second_client_hangs,
               "Fault: a second TCP client hangs (else it is closed at once)");
  cmd.add_flag("--free-sizes-80", f.free_sizes_80, "Fault: 80-byte GET_FREE_SIZES answer");
  cmd.add_option("--miscount", f.miscount, "Fault: add N to the reported record count");
  cmd.add_flag("--contradict-options", f.contradict_options,
               "Fault: options claim the other kind of ids");
  cmd.add_flag("--invalid-time", f.invalid_time, "Fault: GET_TIME answers 30 February");
  cmd.add_flag("--refuse-buffered", f.refuse_buffered,
               "Fault: PREPARE_BUFFER refused (legacy read only)");
  cmd.add_flag("--descriptor-mismatch", f.descriptor_mismatch,
               "Fault: the descriptor announces 48 bytes more than the dataset's header");
  cmd.add_flag("--prepare-small-chunks", f.prepare_small_chunks,
               "PREPARE_DATA..ACK_OK also for chunks of 1,024 bytes or less");
  cmd.add_flag("--clear-after-count", f.clear_after_count,
               "Fault: the log is cleared just after the first GET_FREE_SIZES");
  cmd.add_option("--udp-drop", f.udp_drop, "Fault: drop UDP DATA packet K once");
  cmd.add_option("--udp-swap", f.udp_swap, "Fault: swap UDP DATA packets K and K+1 once");
  cmd.add_option("--bad-checksum", o.bad_checksum, "Fault: a wrong checksum on CMD's answer once");
  cmd.add_option("--no-reply", o.no_reply, "Fault: CMD runs but its answer is lost");
  cmd.add_option("--no-reply-times", f.no_reply_times, "...this many times (negative: always)")
      ->capture_default_str();
  cmd.add_flag("--split-frames", f.split_frames, "Fault: TCP frames written in pieces");
  cmd.add_flag("--coalesce-frames", f.coalesce_frames, "Fault: a whole answer in one TCP write");
  cmd.add_flag("--bad-prefix", f.bad_prefix_once, "Fault: one TCP frame with a wrong prefix");
  cmd.add_flag("--coalesce-events", f.coalesce_events, "Fault: waiting events in one TCP write");
  cmd.add_flag("--events-before-answer", f.events_before_answer,
               "Fault: events wait for the next request and go just before its answer");
}

// Serves until SIGINT or SIGTERM.
int RunT4(T4Options& o, core::StopSignal& stop) {
  auto& c = o.config;
  c.pace = std::chrono::milliseconds(o.pace_ms);
  c.punch_every = std::chrono::milliseconds(o.punch_every_ms);
  c.tcp = !o.udp_only;
  c.udp = !o.tcp_only;
  c.resend_events = !o.send_once;
  if (!o.bad_checksum.empty()) c.faults.bad_checksum_command = CommandCode(o.bad_checksum);
  if (!o.no_reply.empty()) c.faults.no_reply_command = CommandCode(o.no_reply);
  const auto colon = o.listen.rfind(':');
  if (colon == std::string::npos) throw core::ArgumentException("--listen wants HOST:PORT");
  const std::string host = o.listen.substr(0, colon);
  core::SystemClock clock;
  sim::T4TerminalSim terminal(c, clock);
  terminal.Listen(host, static_cast<uint16_t>(std::stoi(o.listen.substr(colon + 1))));
  std::cout << "T4 terminal on " << host << ":" << terminal.Port() << " ("
            << (c.tcp && c.udp ? "tcp+udp"
                : c.tcp        ? "tcp"
                               : "udp")
            << "): " << terminal.RecordCount() << " records, " << terminal.Users().size()
            << " users, " << c.record_size << "-byte records" << std::endl;
  while (!stop.WaitFor(std::chrono::hours(1))) {
  }
  terminal.Stop();
  const auto s = terminal.Stats();
  size_t commands = 0;
  for (const auto& [code, n] : s.commands) commands += n;
  std::cout << "T4 terminal: " << s.connections_accepted << " connections ("
            << s.connections_refused << " refused), " << s.sessions_opened << " sessions, "
            << commands << " commands, " << s.reads_served << " reads, " << s.clears << " clears, "
            << s.events_sent << " events sent, " << s.bad_checksums << " bad checksums; "
            << terminal.RecordCount() << " records left" << std::endl;
  return 0;
}

}  // namespace
}  // namespace clockcomm::app

int main(int argc, char** argv) {
  using namespace clockcomm;
  CLI::App app{"clockcomm-sim: simulated time clocks and modems"};
  app.require_subcommand(1);

  app::TerminalOptions zon_options;
  std::string device, settings = "9600,N,8,1";
  bool use_pty = false, call_in = false, once = false, until_delivered = false;
  double interval = 0;
  std::optional<int> reply_wait_ms;
  auto* zon = app.add_subcommand("zon", "A Zon/Tranz terminal on a serial device or a new pty");
  auto* device_opt = zon->add_option("--device", device, "Serial device to open");
  auto* pty_opt = zon->add_flag("--pty", use_pty, "Create a pty pair and print its slave path");
  device_opt->excludes(pty_opt);
  zon->add_option("--settings", settings, "Line settings of --device")->capture_default_str();
  zon->add_flag("--call-in", call_in, "Call the program (host mode) instead of answering polls");
  zon->add_option("--interval", interval, "Seconds before each call-in")->capture_default_str();
  zon->add_flag("--once", once, "Leave after one call; exit status 0 only if it completed");
  zon->add_flag("--until-delivered", until_delivered, "Leave after a call that left no punches");
  zon->add_option("--reply-wait-ms", reply_wait_ms, "Wait only MS for each ACK and for the EOT");
  app::AddTerminalOptions(*zon, zon_options);

  app::TerminalOptions modem_terminal;
  sim::ModemOptions modem_options;
  std::string number = "5551234", speed = "2400", fail_code = "no-carrier";
  std::optional<double> call_in_after, call_interval;
  int guard_ms = 1000;
  bool modem_pty = false;
  auto* modem = app.add_subcommand("modem", "A Hayes modem on a new pty, a terminal behind it");
  modem->add_flag("--pty", modem_pty, "Create the modem port as a pty (the only kind)");
  modem->add_option("--number", number, "Phone number of the terminal")->capture_default_str();
  modem->add_option("--speed", speed, "Speed CONNECT reports, or none (300)")
      ->capture_default_str();
  modem->add_option("--fail-dials", modem_options.fail_dials, "The first N dials fail");
  modem->add_option("--fail-code", fail_code, "How failed dials answer")
      ->check(CLI::IsMember({"no-carrier", "busy"}))
      ->capture_default_str();
  modem->add_flag("--no-dialtone", modem_options.no_dialtone, "Every dial: NO DIALTONE");
  modem->add_option("--call-in-after", call_in_after, "The terminal calls in after SECONDS");
  modem->add_option("--call-interval", call_interval, "...and again every SECONDS");
  modem->add_option("--guard-ms", guard_ms, "Escape guard time")->capture_default_str();
  app::AddTerminalOptions(*modem, modem_terminal);

  app::AtsOptions ats_options;
  auto* ats = app.add_subcommand("ats", "An ATS terminal on a new pty or a TCP port");
  auto& af = ats_options.config.faults;
  auto* ats_pty = ats->add_flag("--pty", ats_options.use_pty, "Create a pty pair, print its path");
  auto* ats_listen = ats->add_option("--listen", ats_options.listen, "Listen on HOST:PORT");
  ats_pty->excludes(ats_listen);
  ats->add_option("--series", ats_options.series, "Terminal model")
      ->check(CLI::IsMember({"eseries", "cyberseries", "prodigy"}))
      ->capture_default_str();
  ats->add_option("--address", ats_options.config.address, "Terminal address")
      ->check(CLI::Range(0, 94))
      ->capture_default_str();
  ats->add_option("--punches", ats_options.punches, "Number of generated punches")
      ->capture_default_str();
  ats->add_flag("--once", ats_options.once,
                "Leave after one poll ended (unlocked, or on TCP the connection closed)");
  ats->add_option("--not-ready", af.not_ready, "Fault: answer the first N probes busy");
  ats->add_option("--nak-commands", af.nak_commands, "Fault: refuse the next N commands");
  ats->add_option("--bad-lrc", af.bad_lrc, "Fault: a bad LRC on packet N once");
  ats->add_option("--silent-after", af.silent_after, "Fault: deaf for a while after N packets");
  ats->add_option("--drop-after", af.drop_after, "Fault: close the line after N packets");
  ats->add_flag("--unknown-packet", af.unknown_packet,
                "Fault: an unknown packet type before the punches");

  app::T4Options t4_options;
  auto* t4 = app.add_subcommand("t4", "A T4 fingerprint terminal on a TCP and UDP port");
  app::AddT4Options(*t4, t4_options);

  CLI11_PARSE(app, argc, argv);

  core::StopSignal stop;
  app::WatchSignals(stop);
  try {
    if (t4->parsed()) return app::RunT4(t4_options, stop);
    if (ats->parsed()) {
      if (!ats_options.use_pty && ats_options.listen.empty()) {
        std::cerr << "clockcomm-sim ats: give --pty or --listen HOST:PORT" << std::endl;
        return 2;
      }
      return app::RunAts(ats_options, stop);
    }
    if (zon->parsed()) {
      if (!use_pty && device.empty()) {
        std::cerr << "clockcomm-sim zon: give --device PATH or --pty" << std::endl;
        return 2;
      }
      if (reply_wait_ms) {
        zon_options.config.timeouts.ack_wait = std::chrono::milliseconds(*reply_wait_ms);
        zon_options.config.timeouts.eot_wait = std::chrono::milliseconds(*reply_wait_ms);
      }
      return app::RunZon(zon_options, device, use_pty, call_in, interval, once, until_delivered,
                         settings, stop);
    }
    modem_options.speed = speed == "none" ? std::nullopt : std::optional<int>(std::stoi(speed));
    modem_options.fail_code =
        fail_code == "busy" ? sim::ResultCode::kBusy : sim::ResultCode::kNoCarrier;
    modem_options.guard_time = std::chrono::milliseconds(guard_ms);
    return app::RunModem(modem_terminal, modem_options, number, call_in_after, call_interval, stop);
  } catch (const std::exception& e) {
    std::cerr << "clockcomm-sim: " << e.what() << std::endl;
    return 1;
  }
}
