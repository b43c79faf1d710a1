// clockcomm-sim zon: one Zon/Tranz terminal on a serial device, a pty, or a network (calling the
// program's listener, or listening for its polls), or a swarm of network terminals.
#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <memory>

#include "app/sim_commands.h"
#include "comm/network_line.h"
#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "comm/tcp_connection.h"
#include "core/clock.h"
#include "core/errors.h"
#include "core/text.h"
#include "sim/punch_source.h"
#include "sim/zon_swarm.h"

namespace clockcomm::app {

void AddTerminalOptions(CLI::App& cmd, TerminalOptions& o) {
  auto& c = o.config;
  o.clock_name_option = cmd.add_option("--clock-name", c.clock_name, "Clock name in the header")
                            ->capture_default_str();
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

void PrintStats(const sim::ZonTerminal& terminal) {
  auto s = terminal.Stats();
  std::cout << "Terminal " << terminal.Config().clock_name << ": " << s.calls << " calls, "
            << s.packets_sent << " packets sent, " << s.naks_received << " NAKs, " << s.resends
            << " resends, " << s.eots_received << " EOTs, " << s.rows_received << " table rows, "
            << terminal.PendingPunches().size() << " punches pending" << std::endl;
}

namespace {

using namespace std::chrono_literals;

// After a connection that could not be made, the next try waits at least this long.
constexpr auto kPauseAfterRefusal = 1s;
// Failed swarm calls listed one by one on stderr before the rest are only counted.
constexpr size_t kFailuresListed = 10;

struct ZonOptions {
  TerminalOptions terminal;
  std::string device, settings = "9600,N,8,1", connect, listen, json;
  bool use_pty = false, call_in = false, once = false, until_delivered = false;
  bool retry_refused = false;
  double interval = 0, within = 60;
  std::optional<int> reply_wait_ms, swarm;
};

// How one call of the loop went; connected is false when the network connection failed.
struct CallResult {
  sim::CallOutcome outcome = sim::CallOutcome::kNone;
  std::string name;
  bool connected = true;
};

std::chrono::nanoseconds Seconds(double seconds) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::duration<double>(seconds));
}

// Calls (or answers polls) until stopped, --once, --until-delivered or a line gone for good.
// line_per_call: each call has a connection of its own, so one that closes ends only that call.
int CallLoop(sim::ZonTerminal& terminal, ZonOptions& o, bool line_per_call,
             const std::function<CallResult()>& place_call, const std::function<void()>& after_call,
             core::StopSignal& stop) {
  CallResult result;
  for (int call = 1; !stop.Requested(); ++call) {
    if (o.call_in) {
      auto pause = Seconds(o.interval);
      if (!result.connected) pause = std::max<std::chrono::nanoseconds>(pause, kPauseAfterRefusal);
      if (stop.WaitFor(pause)) break;
    }
    result = place_call();
    if (result.outcome == sim::CallOutcome::kStopped) break;
    std::cout << "Call " << call << ": " << result.name << ", " << terminal.PendingPunches().size()
              << " punches pending" << std::endl;
    if (after_call) after_call();
    if (o.once) break;
    if (!line_per_call && (result.outcome == sim::CallOutcome::kLineClosed ||
                           result.outcome == sim::CallOutcome::kDroppedLine)) {
      break;
    }
    if (o.until_delivered && terminal.PendingPunches().empty()) break;
  }
  PrintStats(terminal);
  return o.once && result.outcome != sim::CallOutcome::kCompleted ? 1 : 0;
}

int RunSerial(ZonOptions& o, sim::ZonTerminal& terminal, core::StopSignal& stop) {
  std::optional<comm::PtyPair> pair;
  comm::SerialLine serial;
  std::unique_ptr<comm::IConnection> line;
  std::string where;
  if (o.use_pty) {
    pair = comm::PtyPair::Open();
    where = pair->SlavePath();
    line = pair->TakeMaster();
  } else {
    serial.SetSettings(o.settings);
    serial.Open(o.device);
    where = o.device;
    line = std::make_unique<comm::SerialConnection>(serial);
  }
  std::cout << "Terminal " << terminal.Config().clock_name << " ready on " << where << " ("
            << terminal.PendingPunches().size() << " punches, "
            << (o.call_in ? "calls in" : "answers polls") << ")" << std::endl;
  auto call = [&] {
    const auto outcome = o.call_in ? terminal.CallIn(*line) : terminal.AnswerPoll(*line);
    return CallResult{outcome, sim::ToString(outcome)};
  };
  auto hours = [&] {
    auto reply = terminal.RequestHours(*line, *o.terminal.hours_badge, core::SystemClock().Now());
    std::cout << "Hours of badge " << *o.terminal.hours_badge << ": "
              << (reply ? core::Printable(*reply) : std::string("no reply")) << std::endl;
  };
  return CallLoop(terminal, o, false, call,
                  o.terminal.hours_badge ? std::function<void()>(hours) : nullptr, stop);
}

// Each call is a connection to the program's listener, closed after the EOT.
int RunConnect(ZonOptions& o, sim::ZonTerminal& terminal, core::StopSignal& stop) {
  const comm::EndPoint program = comm::ParseEndPoint(o.connect);
  o.call_in = true;
  std::cout << "Terminal " << terminal.Config().clock_name << " calling " << o.connect << " ("
            << terminal.PendingPunches().size() << " punches, calls in)" << std::endl;
  int call_number = 0;
  auto call = [&] {
    ++call_number;
    const auto made = sim::CallInOverTcp(terminal, program, &stop);
    if (!made.connect_error.empty()) {
      std::cerr << "clockcomm-sim: call " << call_number << ": " << made.connect_error << std::endl;
    }
    return CallResult{made.outcome, made.Name(), made.connect == sim::NetworkCall::Connect::kMade};
  };
  return CallLoop(terminal, o, true, call, nullptr, stop);
}

// "127.0.0.1:0" asks for a free port, which a program's address may not name.
comm::EndPoint ParseListenAddress(const std::string& text) {
  if (text.size() > 2 && text.ends_with(":0")) {
    comm::EndPoint end = comm::ParseEndPoint(text.substr(0, text.size() - 1) + "1");
    end.port = 0;
    return end;
  }
  return comm::ParseEndPoint(text);
}

// The program connects for each poll; one connection is served at a time.
int RunListen(ZonOptions& o, sim::ZonTerminal& terminal, core::StopSignal& stop) {
  const comm::EndPoint address = ParseListenAddress(o.listen);
  comm::TcpListener listener(address.host, address.port);
  o.call_in = false;
  std::cout << "Terminal " << terminal.Config().clock_name << " listening on " << address.host
            << ":" << listener.Port() << " (" << terminal.PendingPunches().size()
            << " punches, answers polls)" << std::endl;
  const auto first_enq_wait = terminal.Config().timeouts.poll_step_wait;
  auto call = [&] {
    auto connection = listener.Accept(comm::kNoDeadline, {&stop});
    if (!connection) return CallResult{sim::CallOutcome::kStopped, "stopped"};
    const auto outcome = terminal.AnswerPoll(*connection, sim::LineKind::kDirect,
                                             std::chrono::steady_clock::now() + first_enq_wait);
    return CallResult{outcome, sim::ToString(outcome)};
  };
  return CallLoop(terminal, o, true, call, nullptr, stop);
}

int RunSwarm(ZonOptions& o, core::StopSignal& stop) {
  sim::SwarmConfig config;
  config.program = comm::ParseEndPoint(o.connect);
  config.terminals = *o.swarm;
  config.within = std::chrono::duration_cast<std::chrono::milliseconds>(Seconds(o.within));
  config.punches_each = o.terminal.punch_count;
  config.clock_name_prefix =
      o.terminal.clock_name_option->count() > 0 ? o.terminal.config.clock_name : "SW";
  config.retry = o.retry_refused;
  config.terminal = Finish(o.terminal);
  config.day = core::SystemClock().Now().GetDate();
  sim::ZonSwarm swarm(config, &stop);
  std::cout << "Swarm of " << config.terminals << " terminals calling " << o.connect << " within "
            << o.within << " s (" << config.punches_each << " punches each)" << std::endl;
  const sim::SwarmResult result = swarm.Run();
  size_t listed = 0;
  for (const auto& t : result.per_terminal) {
    if (t.last.Completed() || t.attempts == 0 || t.last.outcome == sim::CallOutcome::kStopped) {
      continue;
    }
    if (++listed > kFailuresListed) continue;
    std::cerr << "clockcomm-sim: " << t.clock_name << ": "
              << (t.last.connect_error.empty() ? t.last.Name() : t.last.connect_error) << std::endl;
  }
  if (listed > kFailuresListed) {
    std::cerr << "clockcomm-sim: ... and " << listed - kFailuresListed << " more failed calls"
              << std::endl;
  }
  std::cout << result.SummaryLine() << std::endl;
  if (!o.json.empty()) {
    std::ofstream out(o.json);
    out << result.ToJson() << "\n";
    if (!out) throw core::SystemError::FromErrno(errno, "write " + o.json);
  }
  return result.completed == result.terminals ? 0 : 1;
}

int RunZon(ZonOptions& o, core::StopSignal& stop) {
  const int places = !o.device.empty() + o.use_pty + !o.connect.empty() + !o.listen.empty();
  if (places != 1) {
    std::cerr << "clockcomm-sim zon: give one of --device PATH, --pty, --connect HOST:PORT, "
                 "--listen HOST:PORT"
              << std::endl;
    return 2;
  }
  if (o.terminal.hours_badge && (!o.connect.empty() || !o.listen.empty())) {
    std::cerr << "clockcomm-sim zon: --hours needs a serial line (--device or --pty)" << std::endl;
    return 2;
  }
  if (o.reply_wait_ms) {
    o.terminal.config.timeouts.ack_wait = std::chrono::milliseconds(*o.reply_wait_ms);
    o.terminal.config.timeouts.eot_wait = std::chrono::milliseconds(*o.reply_wait_ms);
  }
  if (o.swarm && !o.terminal.punch_file.empty()) {
    std::cerr << "clockcomm-sim zon: a swarm generates its punches (--punches), no --punch-file"
              << std::endl;
    return 2;
  }
  if (o.swarm) return RunSwarm(o, stop);
  sim::ZonTerminal terminal(Finish(o.terminal), LoadPunches(o.terminal), &stop);
  if (!o.connect.empty()) return RunConnect(o, terminal, stop);
  if (!o.listen.empty()) return RunListen(o, terminal, stop);
  return RunSerial(o, terminal, stop);
}

}  // namespace

SimCommand AddZonCommand(CLI::App& app) {
  auto o = std::make_shared<ZonOptions>();
  auto* zon = app.add_subcommand(
      "zon", "A Zon/Tranz terminal on a serial device, a new pty or a network, or a swarm");
  auto* device = zon->add_option("--device", o->device, "Serial device to open");
  auto* pty = zon->add_flag("--pty", o->use_pty, "Create a pty pair and print its slave path");
  auto* connect = zon->add_option("--connect", o->connect,
                                  "Call the program's listener at HOST:PORT, a connection a call");
  auto* listen = zon->add_option("--listen", o->listen,
                                 "Answer polls on connections to HOST:PORT (port 0 picks one)");
  device->excludes(pty, connect, listen);
  pty->excludes(connect, listen);
  connect->excludes(listen);
  zon->add_option("--settings", o->settings, "Line settings of --device")->capture_default_str();
  zon->add_flag("--call-in", o->call_in, "Call the program (host mode) instead of answering polls");
  zon->add_option("--interval", o->interval, "Seconds before each call-in")->capture_default_str();
  zon->add_flag("--once", o->once, "Leave after one call; exit status 0 only if it completed");
  zon->add_flag("--until-delivered", o->until_delivered, "Leave after a call that left no punches");
  zon->add_option("--reply-wait-ms", o->reply_wait_ms, "Wait only MS for each ACK and for the EOT");
  auto* swarm = zon->add_option("--swarm", o->swarm, "N network terminals, each calling once")
                    ->check(CLI::Range(1, 100000))
                    ->needs(connect);
  zon->add_option("--within", o->within, "Spread the swarm's call starts over SECONDS (0: at once)")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str()
      ->needs(swarm);
  zon->add_option("--json", o->json, "Write the swarm's figures to FILE as JSON")->needs(swarm);
  zon->add_flag("--retry-refused", o->retry_refused,
                "A swarm terminal whose call fails tries again, up to 3 times, after 1 s")
      ->needs(swarm);
  AddTerminalOptions(*zon, o->terminal);
  return {zon, [o](core::StopSignal& stop) { return RunZon(*o, stop); }};
}

}  // namespace clockcomm::app
