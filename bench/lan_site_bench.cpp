// One clockcomm process serving a site's network terminals:
// - 1,000 simulated Zon/Tranz terminals each calling the LAN listener once with 10 punches, their
//   calls spread over 60 s (the site's busy minute) and all at once (the most it takes): calls
//   completed per second, connect-to-EOT p50/p99, the calls given up and made again, the punches
//   in ten company databases exactly once, peak threads, memory and CPU of the program; the
//   all-at-once run beside the same swarm against a host that stores nothing (the machine's limit
//   for these calls);
// - the host idle with the LAN listener and two serial lines open: CPU over 30 s.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

#include "bench_limit.h"
#include "bench_process.h"
#include "bench_site.h"
#include "comm/pty_pair.h"
#include "comm/tcp_connection.h"
#include "records/intake/intake_recovery.h"
#include "sim/tcp_call_host.h"
#include "sim/zon_swarm.h"

namespace clockcomm {
namespace {

using namespace std::chrono_literals;
constexpr int kTerminals = 1000;
constexpr int kPunchesEach = 10;
constexpr int kCompanies = 10;
bench::Limit null_host_limit;  // calls per second

sim::SwarmConfig Swarm(uint16_t port, std::chrono::milliseconds within) {
  sim::SwarmConfig config;
  config.program = {"127.0.0.1", port};
  config.terminals = kTerminals;
  config.within = within;
  config.punches_each = kPunchesEach;
  config.connect_timeout = 30s;  // all at once, the backlog holds some a while
  // A terminal whose call was given up calls again, as a real one does; its punches must still
  // go in once.
  config.retry = true;
  return config;
}

void Report(benchmark::State& state, const sim::SwarmResult& result) {
  state.counters["completed"] = result.completed;
  state.counters["calls_per_s"] = result.calls_per_second;
  state.counters["p50_ms"] = result.p50_ms;
  state.counters["p99_ms"] = result.p99_ms;
  state.counters["max_ms"] = result.max_ms;
  state.counters["retries"] = result.retries;
  if (result.completed != kTerminals) {
    state.SkipWithError(("not every call completed: " + result.SummaryLine()).c_str());
  }
}

void BM_LimitSwarmOnANullHost(benchmark::State& state) {
  for (auto _ : state) {
    sim::test::TcpCallInHost host;
    const auto result = sim::ZonSwarm(Swarm(host.Address().port, 0ms)).Run();
    Report(state, result);
    null_host_limit.Record(result.calls_per_second);
  }
}
BENCHMARK(BM_LimitSwarmOnANullHost)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

uint16_t FreePort() { return comm::TcpListener("127.0.0.1", 0).Port(); }

// The program folder: ten companies, each the home of a hundred of the swarm's clocks.
struct SwarmSite : bench::Site {
  SwarmSite() {
    for (int c = 0; c < kCompanies; ++c) {
      records::NewCompany company;
      company.name = "Company " + std::to_string(c);
      company.clock_name = "HOME" + std::to_string(c);
      company.directory = "c" + std::to_string(c);
      company.start = clock.Now().GetDate();
      records::RegisterCompany(
          {paths->CompanyRegistryDatabase(), paths->DataDirectory(),
           paths->CompanyDirectory(company.directory), paths->CompanyDatabase(company.directory)},
          company);
    }
    auto registry = db::Open(paths->CompanyRegistryDatabase());
    db::Transaction transaction(*registry);
    const auto names = sim::ZonSwarm(sim::SwarmConfig{{}, kTerminals}).ClockNames();
    for (size_t i = 0; i < names.size(); ++i) {
      registry->Execute(
          "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
          "[Pay Period Type], [Current Start Time], CustomDays) VALUES (?, ?, ?, ?, 'weekly', "
          "'00:00:00', 0)",
          {"Company " + std::to_string(i % kCompanies) + " " + names[i], names[i],
           "c" + std::to_string(i % kCompanies), clock.Now().GetDate().Format("yyyy-mm-dd")});
    }
    transaction.Commit();
  }
  // Rows of every company, and how many distinct punches they are.
  std::pair<int64_t, int64_t> SwarmRows() {
    int64_t rows = 0, distinct = 0;
    for (int c = 0; c < kCompanies; ++c) {
      auto db = db::Open(paths->CompanyDatabase("c" + std::to_string(c)));
      // Every punch of the swarm has a badge of its own.
      auto rs = db->Query("SELECT COUNT(*), COUNT(DISTINCT [Card ID]) FROM [Clock Data Table]");
      rows += rs.Field(0).AsInt();
      distinct += rs.Field(1).AsInt();
    }
    return {rows, distinct};
  }
};

pid_t StartProgram(const std::filesystem::path& home, const std::vector<std::string>& args) {
  std::vector<std::string> argv = {CLOCKCOMM_BINARY_DIR "/clockcomm", "--home", home.string()};
  argv.insert(argv.end(), args.begin(), args.end());
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    std::vector<char*> c_args;
    for (auto& a : argv) c_args.push_back(a.data());
    c_args.push_back(nullptr);
    execv(c_args[0], c_args.data());
    _exit(127);
  }
  return child;
}

// Waits until the program's listener takes connections.
bool WaitForListener(uint16_t port) {
  for (auto give_up = std::chrono::steady_clock::now() + 20s;
       std::chrono::steady_clock::now() < give_up; std::this_thread::sleep_for(50ms)) {
    try {
      comm::TcpConnection::Connect("127.0.0.1", port, 1s);
      return true;
    } catch (const core::Error&) {
    }
  }
  return false;
}

void Stop(pid_t child) {
  kill(child, SIGTERM);
  int status = 0;
  waitpid(child, &status, 0);
}

void BM_LanHostSwarm(benchmark::State& state) {
  const auto within = std::chrono::milliseconds(state.range(0) * 1000);
  for (auto _ : state) {
    SwarmSite site;
    std::system(("'" CLOCKCOMM_BINARY_DIR "/clockcomm' --home '" + site.home.string() +
                 "' settings set connection_type=LAN >/dev/null")
                    .c_str());
    const uint16_t port = FreePort();
    const pid_t child =
        StartProgram(site.home, {"host", "--listen", "127.0.0.1:" + std::to_string(port)});
    if (!WaitForListener(port)) {
      state.SkipWithError("the program did not listen");
      Stop(child);
      return;
    }
    // Peak threads, sampled while the swarm runs.
    std::atomic<bool> sampling{true};
    double peak_threads = 0;
    std::thread sampler([&] {
      for (; sampling; std::this_thread::sleep_for(20ms)) {
        peak_threads = std::max(peak_threads, bench::StatusValue(child, "Threads"));
      }
    });
    const double cpu_before = bench::CpuSeconds(child);
    const auto start = std::chrono::steady_clock::now();
    const auto result = sim::ZonSwarm(Swarm(port, within)).Run();
    const auto last_eot = std::chrono::steady_clock::now();
    // The last calls' rows go in just after their EOT.
    const int64_t expected = static_cast<int64_t>(kTerminals) * kPunchesEach;
    auto rows = site.SwarmRows();
    for (auto give_up = last_eot + 60s;
         rows.first < expected && std::chrono::steady_clock::now() < give_up;
         std::this_thread::sleep_for(100ms)) {
      rows = site.SwarmRows();
    }
    const auto all_in = std::chrono::steady_clock::now();
    const double cpu = bench::CpuSeconds(child) - cpu_before;
    sampling = false;
    sampler.join();
    state.counters["peak_threads"] = peak_threads;
    state.counters["peak_rss_mb"] = bench::StatusValue(child, "VmHWM") / 1024;
    state.counters["cpu_cores"] = cpu / std::chrono::duration<double>(all_in - start).count();
    state.counters["cpu_ms_per_call"] = cpu * 1000 / kTerminals;
    state.counters["rows"] = static_cast<double>(rows.first);
    state.counters["distinct_rows"] = static_cast<double>(rows.second);
    state.counters["rows_in_after_last_eot_ms"] =
        std::chrono::duration<double, std::milli>(all_in - last_eot).count();
    Stop(child);
    // A transfer that gave up on a database busy with another line's leaves its file waiting
    // for the recovery sweep.
    state.counters["files_waiting"] =
        static_cast<double>(records::IntakeRecovery(shell::IntakePathsOf(*site.paths),
                                                    *site.companies, *site.controller, site.clock)
                                .Waiting()
                                .size());
    Report(state, result);
    if (within.count() == 0) null_host_limit.Report(state, result.calls_per_second);
    if (rows.first != expected || rows.second != expected) {
      state.SkipWithError("the punches are not in the databases exactly once");
    }
  }
}
BENCHMARK(BM_LanHostSwarm)
    ->ArgName("within_s")
    ->Arg(60)
    ->Arg(0)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kSecond);

void BM_HostIdleWithLanAndTwoSerialLines(benchmark::State& state) {
  for (auto _ : state) {
    bench::Site site;
    auto com1 = comm::PtyPair::Open();
    auto com2 = comm::PtyPair::Open();
    const uint16_t port = FreePort();
    std::ofstream(site.home / "registry.ini", std::ios::app)
        << "\n[Ports]\nCOM1=" << com1.SlavePath() << "\nCOM2=" << com2.SlavePath()
        << "\n\n[Lines]\nCOM2=Serial\nLAN=127.0.0.1:" << port << "\n";
    const pid_t child = StartProgram(site.home, {"host"});
    if (!WaitForListener(port)) {
      state.SkipWithError("the program did not listen");
      Stop(child);
      return;
    }
    std::this_thread::sleep_for(1s);  // start-up done
    const double cpu_before = bench::CpuSeconds(child);
    std::this_thread::sleep_for(30s);
    state.counters["cpu_cores"] = (bench::CpuSeconds(child) - cpu_before) / 30;
    state.counters["threads"] = bench::StatusValue(child, "Threads");
    state.counters["rss_mb"] = bench::StatusValue(child, "VmRSS") / 1024;
    Stop(child);
  }
}
BENCHMARK(BM_HostIdleWithLanAndTwoSerialLines)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kSecond);

}  // namespace
}  // namespace clockcomm

BENCHMARK_MAIN();
