// clockcomm-sim t4: a T4 fingerprint terminal on a TCP and UDP port.
#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>

#include "app/sim_commands.h"
#include "core/clock.h"
#include "core/errors.h"
#include "sim/t4_terminal_sim.h"
#include "t4/net/t4_packet.h"

namespace clockcomm::app {
namespace {

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

SimCommand AddT4Command(CLI::App& app) {
  auto o = std::make_shared<T4Options>();
  auto* t4 = app.add_subcommand("t4", "A T4 fingerprint terminal on a TCP and UDP port");
  AddT4Options(*t4, *o);
  return {t4, [o](core::StopSignal& stop) { return RunT4(*o, stop); }};
}

}  // namespace clockcomm::app
