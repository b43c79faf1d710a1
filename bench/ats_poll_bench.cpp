// ATS polls over pty pairs: a 1,000-punch poll of a simulated E-Series terminal from the first
// status enquiry to the unlock, with the transfer into the company database, beside the floor of
// its conversation on this machine; and the CPU a poll uses while its terminal has gone silent.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "ats/driver/ats_family.h"
#include "bench_site.h"
#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "sim/ats_terminal.h"

namespace clockcomm {
namespace {

using namespace std::chrono_literals;
using bench::ProcessCpuSeconds;
using bench::Site;

const terminal::TerminalFamily kAts = ats::ATSFamily();

// The poll-list location of the site's clock, served by the terminal at this address.
shell::PollRow Location(int address) {
  shell::PollRow row;
  row.location_id = address;
  row.location_name = "DEMODATA";
  row.terminal_id = std::to_string(address);
  return row;
}

shell::LineSettings AtsSettings(const std::string& device) {
  shell::LineSettings settings;
  settings.device = device;
  settings.connection_type = comm::ConnectionType::kSerial;
  settings.terminal_type = terminal::TerminalType::kAtsESeries;
  return settings;
}

// The floor of a punch's exchange here: the terminal's frame over a pty, the line appended to a
// file and synced, the ACK and the next poll back. A poll cannot beat this rate.
void BM_LimitFrameSyncAndReply(benchmark::State& state) {
  comm::PtyPair pty = comm::PtyPair::Open();
  comm::SerialLine line;
  line.SetSettings("9600,O,7,2");
  line.Open(pty.SlavePath());
  comm::SerialConnection program(line);
  auto terminal = pty.TakeMaster();
  char path[] = "/tmp/clockcomm-sync-XXXXXX";
  const int file = mkstemp(path);
  const std::string frame(38, 'F'), record(70, 'R'), reply(10, 'A');
  auto read_exactly = [](comm::IConnection& from, size_t bytes) {
    std::string got;
    while (got.size() < bytes) {
      from.WaitForInput(comm::kNoDeadline, {});
      got += from.Read();
    }
  };
  for (auto _ : state) {
    terminal->WriteText(frame);
    read_exactly(program, frame.size());
    if (write(file, record.data(), record.size()) < 0 || fsync(file) != 0) {
      state.SkipWithError("the file could not be written");
    }
    program.WriteText(reply);
    read_exactly(*terminal, reply.size());
  }
  close(file);
  unlink(path);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LimitFrameSyncAndReply)->UseRealTime()->MinTime(2.0);

void BM_ATSPoll1000Punches(benchmark::State& state) {
  Site site;
  const int punches = static_cast<int>(state.range(0));
  int address = 1;
  std::chrono::duration<double> conversation{0};
  for (auto _ : state) {
    // Each poll of another terminal address: its punches are new badges, not a batch sent again.
    sim::ATSTerminalConfig config;
    config.address = address++;
    auto batch =
        sim::GenerateATSPunches(config.series, punches, site.clock.Now().GetDate(), config.address);
    for (auto& punch : batch) punch.BadgeId += config.address * 10'000;
    sim::ATSTerminal terminal(config, batch);
    auto pty = comm::PtyPair::Open();
    auto far_end = pty.TakeMaster();
    const auto start = std::chrono::steady_clock::now();
    // The conversation ends at the unlock; the transfer into the database follows.
    auto unlocked = std::async(std::launch::async, [&] {
      terminal.Serve(*far_end, true);
      return std::chrono::steady_clock::now();
    });
    shell::LineRunner loop(AtsSettings(pty.SlavePath()), std::span(&kAts, 1), *site.controller,
                           *site.services);
    const bool ok = loop.PollLocations({Location(config.address)});
    conversation += unlocked.get() - start;
    if (!ok || !terminal.PendingPunches().empty()) throw std::runtime_error("the ATS poll failed");
  }
  state.SetItemsProcessed(state.iterations() * punches);
  state.counters["rows"] = static_cast<double>(site.Rows());
  state.counters["conversation_punches_per_s"] =
      static_cast<double>(state.iterations() * punches) / conversation.count();
}
BENCHMARK(BM_ATSPoll1000Punches)
    ->Arg(1000)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// A poll whose terminal went silent after its first packet: for range(0) seconds the poll asks
// and waits on deadlines, then End.
void BM_ATSPollOnSilentTerminal(benchmark::State& state) {
  Site site;
  const auto seconds = std::chrono::seconds(state.range(0));
  double cpu = 0;
  for (auto _ : state) {
    core::StopSignal terminal_stop;
    sim::ATSTerminalConfig config;
    config.faults.silent_after = 1;
    config.silence = seconds + 60s;
    sim::ATSTerminal terminal(
        config, sim::GenerateATSPunches(config.series, 5, site.clock.Now().GetDate(), 1),
        &terminal_stop);
    auto pty = comm::PtyPair::Open();
    auto far_end = pty.TakeMaster();
    std::thread served([&] {
      try {
        terminal.Serve(*far_end, true);
      } catch (const std::exception&) {  // stopped while deaf
      }
    });
    shell::LineRunner loop(AtsSettings(pty.SlavePath()), std::span(&kAts, 1), *site.controller,
                           *site.services);
    std::thread poll([&] { loop.PollLocations({Location(config.address)}); });
    std::this_thread::sleep_for(1s);  // the first packet, then silence
    const double before = ProcessCpuSeconds();
    std::this_thread::sleep_for(seconds);
    cpu = ProcessCpuSeconds() - before;
    site.controller->PressEnd();
    poll.join();
    terminal_stop.Request();
    served.join();
  }
  state.counters["cpu_s"] = cpu;
  state.counters["cpu_share"] = cpu / static_cast<double>(state.range(0));
}
BENCHMARK(BM_ATSPollOnSilentTerminal)
    ->Arg(10)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

}  // namespace
}  // namespace clockcomm

BENCHMARK_MAIN();
