// The T4 road over real sockets against the simulated terminal on the loopback:
// - a bulk download of 100,000 40-byte records at 0, 1, 2 and 5 ms between the terminal's reply
//   packets (TCP; UDP at 0 and 1 ms), ten runs each: wall time beside the terminal's own pacing
//   floor (the pauses it took), and every run must deliver the terminal's count; at 0 ms beside a
//   plain loopback copy of the same bytes;
// - a real-time punch from the terminal's event to its committed row, 10,000 times;
// - the `clockcomm t4 host` process with 100 idle terminals connected: memory, and CPU over 60 s.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <thread>

#include "bench_limit.h"
#include "bench_process.h"
#include "bench_site.h"
#include "comm/tcp_connection.h"
#include "db/schema.h"
#include "sim/t4_terminal_sim.h"
#include "t4/clock_assignments.h"
#include "t4/host/t4_host.h"
#include "t4/net/t4_net_device.h"
#include "t4/net/t4_time_code.h"
#include "t4/punch_type_rules.h"

namespace clockcomm {
namespace {

using namespace std::chrono_literals;
constexpr size_t kRecords = 100'000;
bench::Limit loopback_limit;  // bytes per second

void BM_LimitLoopbackCopy(benchmark::State& state) {
  const std::string bytes(kRecords * 40 + 4, 'x');
  comm::TcpListener listener("127.0.0.1", 0);
  std::chrono::nanoseconds elapsed{0};
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    std::thread writer([&] {
      auto out = comm::TcpConnection::Connect("127.0.0.1", listener.Port(), 5s);
      out->WriteText(bytes);
    });
    auto in = listener.Accept(comm::kNoDeadline);
    size_t received = 0;
    while (received < bytes.size()) {
      if (in->WaitForInput(comm::kNoDeadline, {}) != comm::WaitResult::kReadable) break;
      received += in->Read().size();
    }
    writer.join();
    elapsed += std::chrono::steady_clock::now() - start;
  }
  loopback_limit.Record(static_cast<double>(bytes.size() * state.iterations()) /
                        std::chrono::duration<double>(elapsed).count());
  state.SetBytesProcessed(static_cast<int64_t>(bytes.size() * state.iterations()));
}
BENCHMARK(BM_LimitLoopbackCopy)->Iterations(10)->UseRealTime();

std::vector<t4::net::T4Record> Log(const core::Date& day) {
  std::vector<t4::net::T4Record> log;
  log.reserve(kRecords);
  for (size_t i = 0; i < kRecords; ++i) {
    t4::net::T4Record r;
    r.user_id = std::to_string(1000 + i % 10'000);
    r.verify = 1;
    r.time = t4::net::EncodeTimeCode(
        core::DateTime(day, core::TimeOfDay::FromSeconds(static_cast<int>(6 * 3600 + i / 10))));
    log.push_back(r);
  }
  return log;
}

// state.range(0): milliseconds between reply packets; range(1): 1 for UDP.
void BM_T4Download100k(benchmark::State& state) {
  core::SystemClock clock;
  sim::T4SimConfig config;
  config.pace = std::chrono::milliseconds(state.range(0));
  sim::T4TerminalSim terminal(config, clock);
  for (const auto& r : Log(clock.Now().GetDate())) terminal.Punch(r);
  terminal.Listen("127.0.0.1", 0);
  core::NullLogSink log;
  t4::net::T4NetOptions options;
  options.transport =
      state.range(1) ? t4::net::T4TransportKind::kUdp : t4::net::T4TransportKind::kTcp;
  int complete = 0;
  std::chrono::nanoseconds paced{0}, elapsed{0};
  for (auto _ : state) {
    const auto before = terminal.Stats().paced;
    const auto start = std::chrono::steady_clock::now();
    t4::net::T4NetDevice device(options, log);
    int count = 0;
    const bool read = device.Connect_Net("127.0.0.1", terminal.Port()) &&
                      device.EnableDevice(1, false) &&
                      device.GetDeviceStatus(1, t4::kAttendanceRecordCount, count) &&
                      device.ReadGeneralLogData(1);
    if (read && device.Downloaded().records.size() == static_cast<size_t>(count) &&
        count == static_cast<int>(kRecords)) {
      ++complete;
    }
    device.EnableDevice(1, true);
    device.Disconnect();
    elapsed += std::chrono::steady_clock::now() - start;
    paced += terminal.Stats().paced - before;
  }
  const double seconds = std::chrono::duration<double>(elapsed).count();
  if (paced.count() > 0) {
    state.counters["of_pacing_floor"] = seconds / std::chrono::duration<double>(paced).count();
  } else {
    loopback_limit.Report(state,
                          static_cast<double>((kRecords * 40 + 4) * state.iterations()) / seconds);
  }
  state.counters["complete_runs"] = complete;
  state.counters["runs"] = static_cast<double>(state.iterations());
  state.counters["paced_s"] = std::chrono::duration<double>(paced).count();
  state.SetItemsProcessed(static_cast<int64_t>(kRecords * state.iterations()));
  state.SetBytesProcessed(static_cast<int64_t>((kRecords * 40 + 4) * state.iterations()));
  if (complete != state.iterations()) state.SkipWithError("a run did not read the whole log");
}
BENCHMARK(BM_T4Download100k)
    ->ArgsProduct({{0, 1, 2, 5}, {0}})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Iterations(10)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The host of one terminal: each punch the terminal makes is pushed, stored and committed; the
// latency from the punch to the committed row.
void BM_T4EventToRow(benchmark::State& state) {
  constexpr int kEvents = 10'000;
  bench::Site site;
  core::SystemClock clock;
  sim::T4TerminalSim terminal(sim::T4SimConfig{}, clock);
  terminal.Listen("127.0.0.1", 0);
  t4::PunchTypeRules rules;
  t4::ClockAssignments assignments;
  t4::T4PacketWriter writer(*site.companies, rules, assignments, site.home, *site.logs, site.clock);
  {
    auto product = db::Open(site.paths->ClockwynDatabase(), db::OpenMode::kCreate);
    db::CreateProductSchema(*product);
    t4::T4ClockList(*product).Add(
        {0, "DEMODATA", "127.0.0.1:" + std::to_string(terminal.Port()), 1});
  }
  core::NullLogSink log;
  t4::T4Host host([&] { return db::Open(site.paths->ClockwynDatabase()); },
                  [&](const t4::T4ClockEntry& e) -> std::unique_ptr<t4::IT4Connection> {
                    return std::make_unique<t4::T4EthernetConnection>(
                        std::make_unique<t4::net::T4NetDevice>(t4::net::T4NetOptions{}, log),
                        e.address, e.device_number, e.name, log);
                  },
                  *site.companies, writer, assignments, t4::T4StationSettings{.cycle_interval = 1h},
                  clock, log);
  core::StopSignal stop;
  std::thread running([&] { host.Run(stop); });
  // Registered for events once the terminal has been asked for them.
  while (terminal.Stats().commands[t4::net::cmd::kRegEvent] == 0) std::this_thread::sleep_for(10ms);
  std::vector<double> latencies;
  latencies.reserve(kEvents);
  const core::Date day = clock.Now().GetDate();
  for (auto _ : state) {
    for (int i = 0; i < kEvents; ++i) {
      t4::net::T4Record r;
      r.user_id = std::to_string(1 + i % 1000);
      r.time = t4::net::EncodeTimeCode(core::DateTime(day, core::TimeOfDay::FromSeconds(i * 3)));
      const auto start = std::chrono::steady_clock::now();
      terminal.Punch(r);
      if (!host.WaitForPunchesStored(i + 1, start + 5s)) {
        state.SkipWithError("a real-time punch was not stored within 5 s");
        break;
      }
      latencies.push_back(
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
              .count());
    }
  }
  stop.Request();
  running.join();
  if (latencies.empty()) return;
  std::sort(latencies.begin(), latencies.end());
  state.counters["p50_ms"] = latencies[latencies.size() / 2];
  state.counters["p99_ms"] = latencies[latencies.size() * 99 / 100];
  state.counters["max_ms"] = latencies.back();
  state.SetItemsProcessed(static_cast<int64_t>(latencies.size()));
}
BENCHMARK(BM_T4EventToRow)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_T4HostIdle100(benchmark::State& state) {
  constexpr int kTerminals = 100;
  bench::Site site;
  core::SystemClock clock;
  std::vector<std::unique_ptr<sim::T4TerminalSim>> terminals;
  {
    auto product = db::Open(site.paths->ClockwynDatabase(), db::OpenMode::kCreate);
    db::CreateProductSchema(*product);
    for (int i = 0; i < kTerminals; ++i) {
      terminals.push_back(std::make_unique<sim::T4TerminalSim>(sim::T4SimConfig{}, clock));
      terminals.back()->Listen("127.0.0.1", 0);
      t4::T4ClockList(*product).Add(
          {0, "DEMODATA", "127.0.0.1:" + std::to_string(terminals.back()->Port()), 1});
    }
  }
  for (auto _ : state) {
    const pid_t child = fork();
    if (child == 0) {
      const int null = open("/dev/null", O_WRONLY);
      dup2(null, 1);
      execl(CLOCKCOMM_BINARY_DIR "/clockcomm", "clockcomm", "--home", site.home.c_str(), "t4",
            "host", nullptr);
      _exit(127);
    }
    auto all_registered = [&] {
      return std::all_of(terminals.begin(), terminals.end(), [](const auto& t) {
        return t->Stats().commands[t4::net::cmd::kRegEvent] > 0;
      });
    };
    const auto give_up = std::chrono::steady_clock::now() + 60s;
    while (!all_registered() && std::chrono::steady_clock::now() < give_up) {
      std::this_thread::sleep_for(100ms);
    }
    if (!all_registered()) state.SkipWithError("not every terminal was connected within 60 s");
    const double cpu_before = bench::CpuSeconds(child);
    std::this_thread::sleep_for(60s);  // the host idles: what it does meanwhile is the figure
    const double cpu = bench::CpuSeconds(child) - cpu_before;
    state.counters["cpu_cores"] = cpu / 60.0;
    state.counters["rss_mb"] = bench::StatusValue(child, "VmRSS") / 1024;
    state.counters["peak_rss_mb"] = bench::StatusValue(child, "VmHWM") / 1024;
    kill(child, SIGTERM);
    int status = 0;
    waitpid(child, &status, 0);
  }
}
BENCHMARK(BM_T4HostIdle100)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace clockcomm

BENCHMARK_MAIN();
