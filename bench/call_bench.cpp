// Whole calls over pty pairs: a 1,000-punch hosted call from ENQ to the EOT (and to the end of the
// host's call, with the EOT interval and the transfer into the company database), beside the
// round trips a pty pair carries; the same call paced at 9600 bit/s against the wire time of its
// bytes; and the CPU an idle host loop uses.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <thread>

#include "bench_limit.h"
#include "bench_site.h"
#include "comm/pty_pair.h"
#include "sim/zon_terminal.h"
#include "zon/driver/zon_family.h"

namespace clockcomm {
namespace {

const terminal::TerminalFamily kZon = zon::ZonFamily();
using bench::ProcessCpuSeconds;
using bench::Site;

std::vector<std::string> Punches(int count) {
  std::vector<std::string> out;
  for (int i = 0; i < count; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%d,%d,,,,,%s,091020,%02d%02d,,,,1", i + 1, 100 + i % 50,
                  i % 2 ? "O" : "I", 6 + i / 60 % 12, i % 60);
    out.emplace_back(line);
  }
  return out;
}

struct CallTimes {
  sim::TerminalStats stats;
  // From the terminal's ENQ to its EOT received: every punch taken and stored.
  std::chrono::duration<double> exchange{};
  // To the end of the host's call: the EOT interval the conversation pauses after each EOT
  // (0.1 s by default), the delivery into the company database and the archive included.
  std::chrono::duration<double> whole{};
};

// One hosted call on a direct line.
CallTimes HostedCall(Site& site, sim::TerminalConfig config, int punches) {
  auto pty = comm::PtyPair::Open();
  auto far_end = pty.TakeMaster();
  sim::ZonTerminal terminal(config, Punches(punches));
  shell::LineSettings settings;
  settings.device = pty.SlavePath();
  shell::LineRunner loop(settings, std::span(&kZon, 1), *site.controller, *site.services);
  CallTimes times;
  const auto start = std::chrono::steady_clock::now();
  std::thread caller([&] {
    terminal.CallIn(*far_end);
    times.exchange = std::chrono::steady_clock::now() - start;
  });
  const bool ok = loop.Host(true);
  times.whole = std::chrono::steady_clock::now() - start;
  caller.join();
  if (!ok || terminal.LastOutcome() != sim::CallOutcome::kCompleted) {
    throw std::runtime_error("the benchmark call failed");
  }
  times.stats = terminal.Stats();
  return times;
}

bench::Limit round_trip_limit;

// Waits for one byte on fd and reads it; false on hang-up or error.
bool ReadOne(int fd) {
  pollfd p{fd, POLLIN, 0};
  char c;
  return poll(&p, 1, 5000) == 1 && read(fd, &c, 1) == 1;
}

// The limit of a call's exchange: one byte each way over a raw pty pair, each side waiting in
// poll() for the other, as a packet and its acknowledgement do.
void BM_PtyPingPongLimit(benchmark::State& state) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
    state.SkipWithError("no pty");
    return;
  }
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios raw{};
  tcgetattr(slave, &raw);
  cfmakeraw(&raw);
  tcsetattr(slave, TCSANOW, &raw);
  const int round_trips = static_cast<int>(state.range(0));
  std::thread echo([&] {
    for (int i = 0; i < round_trips * static_cast<int>(state.max_iterations); ++i) {
      if (!ReadOne(slave) || write(slave, "a", 1) != 1) return;
    }
  });
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    for (int i = 0; i < round_trips; ++i) {
      if (write(master, "p", 1) != 1 || !ReadOne(master)) state.SkipWithError("pty failed");
    }
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  echo.join();
  close(slave);
  close(master);
  const double per_second = static_cast<double>(state.iterations()) * round_trips / elapsed.count();
  state.counters["per_s"] = per_second;
  round_trip_limit.Record(per_second);
}
BENCHMARK(BM_PtyPingPongLimit)->Arg(10000)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_HostedCall1000Punches(benchmark::State& state) {
  Site site;
  const int punches = static_cast<int>(state.range(0));
  int call = 0;
  std::chrono::duration<double> exchange{}, whole{};
  for (auto _ : state) {
    // Each call from another clock number: its punches are new ones, not a batch sent again.
    sim::TerminalConfig config;
    config.clock_number = 101 + call++;
    const CallTimes times = HostedCall(site, config, punches);
    exchange += times.exchange;
    whole += times.whole;
  }
  const double all = static_cast<double>(state.iterations()) * punches;
  state.counters["per_s"] = all / exchange.count();
  state.counters["whole_call_per_s"] = all / whole.count();
  round_trip_limit.Report(state, all / exchange.count());
  state.SetItemsProcessed(state.iterations() * punches);
  state.counters["rows"] = static_cast<double>(site.Rows());
}
BENCHMARK(BM_HostedCall1000Punches)
    ->Arg(1000)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The terminal sends at the pace of a 9600 bit/s line; the call should take little more than the
// time its bytes need on the wire.
void BM_PacedCallAgainstWireTime(benchmark::State& state) {
  Site site;
  sim::TerminalConfig config;
  config.pace = comm::LineSettings::Parse("9600,N,8,1");
  const int punches = static_cast<int>(state.range(0));
  for (auto _ : state) {
    const CallTimes times = HostedCall(site, config, punches);
    const std::chrono::duration<double> wire = times.stats.wire_time;
    state.counters["wire_s"] = wire.count();
    state.counters["call_over_wire"] = times.exchange / wire;
    state.counters["whole_call_over_wire"] = times.whole / wire;
  }
  state.SetItemsProcessed(state.iterations() * punches);
}
BENCHMARK(BM_PacedCallAgainstWireTime)
    ->Arg(300)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The host loop waiting for a call that does not come, for 10 s, then End.
void BM_IdleHostLoop(benchmark::State& state) {
  Site site;
  auto pty = comm::PtyPair::Open();
  auto far_end = pty.TakeMaster();
  shell::LineSettings settings;
  settings.device = pty.SlavePath();
  double cpu = 0;
  for (auto _ : state) {
    shell::LineRunner loop(settings, std::span(&kZon, 1), *site.controller, *site.services);
    std::thread host([&] { loop.Host(false); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // let the loop settle
    const double before = ProcessCpuSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(state.range(0)));
    cpu = ProcessCpuSeconds() - before;
    site.controller->PressEnd();
    host.join();
  }
  state.counters["cpu_s"] = cpu;
}
BENCHMARK(BM_IdleHostLoop)->Arg(10)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
}  // namespace clockcomm

BENCHMARK_MAIN();
