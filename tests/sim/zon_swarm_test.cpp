// A swarm of network terminals against a host on 127.0.0.1 that takes each call on a thread of its
// own: every punch arrives once, the starts are spread, refusals and stops are counted, and the
// command line prints the summary and the JSON figures.
#include "sim/zon_swarm.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "core/text.h"
#include "tcp_call_host.h"
#include "test_support/child_process.h"
#include "zon/zon_header_packet.h"

namespace clockcomm::sim {
namespace {

using test::TcpCallInHost;
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

SwarmConfig Swarm(const comm::EndPoint& program, int terminals, std::chrono::milliseconds within,
                  int punches) {
  SwarmConfig config;
  config.program = program;
  config.terminals = terminals;
  config.within = within;
  config.punches_each = punches;
  config.terminal.timeouts = {2s, 2s, 2s, 2s, 2s, 2s};
  return config;
}

zon::ZonHeaderPacket Header(const TcpCallInHost::Call& call) {
  return zon::ZonHeaderPacketStatic::Parse(call.upload.header);
}

comm::EndPoint ClosedAddress() {
  comm::TcpListener listener("127.0.0.1", 0);
  return {"127.0.0.1", listener.Port()};
}

TEST(ZonSwarmTest, EveryTerminalDeliversItsOwnPunchesOnce) {
  TcpCallInHost host;
  ZonSwarm swarm(Swarm(host.Address(), 20, 500ms, 5));
  const auto names = swarm.ClockNames();
  ASSERT_EQ(names.size(), 20u);
  EXPECT_EQ(names.front(), "SW0001");
  EXPECT_EQ(names.back(), "SW0020");

  const auto start = Steady::now();
  const SwarmResult result = swarm.Run();
  const auto took = Steady::now() - start;
  ASSERT_TRUE(host.WaitForCalls(20, 5s));

  EXPECT_EQ(result.terminals, 20);
  EXPECT_EQ(result.completed, 20);
  EXPECT_EQ(result.failed, 0);
  EXPECT_EQ(result.punches_delivered, 100);
  EXPECT_EQ(result.outcomes, (std::map<std::string, int>{{"completed", 20}}));
  // The last start is at 19/20 of the window: the spread is real, not all at once.
  EXPECT_GE(took, 475ms);
  EXPECT_GT(result.p50_ms, 0);
  EXPECT_LE(result.p50_ms, result.p99_ms);
  EXPECT_LE(result.p99_ms, result.max_ms);
  using Ms = std::chrono::duration<double, std::milli>;
  EXPECT_LT(result.max_ms, Ms(took).count());
  EXPECT_GT(result.calls_per_second, 0);
  EXPECT_LE(result.calls_per_second, 20 / 0.475);

  // One call per clock name, and no punch (badge, type, date, time) sent by two terminals.
  std::set<std::string> headers_seen, punches_seen;
  size_t punches = 0;
  for (const auto& call : host.Calls()) {
    EXPECT_TRUE(call.terminal_hung_up);
    const auto header = Header(call);
    headers_seen.insert(header.ClockName());
    EXPECT_EQ(header.ClockNumber(), std::stoi(header.ClockName().substr(2)));
    for (const auto& line : call.upload.data) {
      const auto f = core::Split(line, ',');
      ASSERT_EQ(f.size(), 13u) << line;
      punches_seen.insert(f[1] + "|" + f[6] + "|" + f[7] + "|" + f[8]);
      ++punches;
    }
  }
  EXPECT_EQ(headers_seen, std::set<std::string>(names.begin(), names.end()));
  EXPECT_EQ(punches, 100u);
  EXPECT_EQ(punches_seen.size(), 100u);
}

TEST(ZonSwarmTest, RefusedAddressFailsEveryCall) {
  ZonSwarm swarm(Swarm(ClosedAddress(), 4, 0ms, 3));
  const SwarmResult result = swarm.Run();
  EXPECT_EQ(result.completed, 0);
  EXPECT_EQ(result.failed, 4);
  EXPECT_EQ(result.punches_delivered, 0);
  EXPECT_EQ(result.retries, 0);
  EXPECT_EQ(result.outcomes, (std::map<std::string, int>{{"connection refused", 4}}));
  EXPECT_EQ(result.max_ms, 0);
  EXPECT_EQ(result.calls_per_second, 0);
}

// Terminals refused while the program is not yet listening get through on a later try.
TEST(ZonSwarmTest, RetriesReachAListenerThatOpensLate) {
  const comm::EndPoint address = ClosedAddress();
  SwarmConfig config = Swarm(address, 3, 0ms, 2);
  config.retry = true;
  ZonSwarm swarm(config);
  std::unique_ptr<TcpCallInHost> host;
  std::thread opener([&] {
    core::StopSignal().WaitFor(300ms);
    host = std::make_unique<TcpCallInHost>(TcpCallInHost::Answer::kEot, address.port);
  });
  const SwarmResult result = swarm.Run();
  opener.join();
  EXPECT_EQ(result.completed, 3);
  EXPECT_EQ(result.retries, 3) << "each terminal was refused once, then got through";
  for (const auto& t : result.per_terminal) EXPECT_EQ(t.attempts, 2) << t.clock_name;
  EXPECT_NE(result.SummaryLine().find(", 3 retries"), std::string::npos);
}

// A stop ends calls under way (the host never answers) and starts no more.
TEST(ZonSwarmTest, StopEndsTheSwarmPromptly) {
  TcpCallInHost host(TcpCallInHost::Answer::kSilent);
  core::StopSignal stop;
  ZonSwarm swarm(Swarm(host.Address(), 10, 2000ms, 2), &stop);
  std::thread stopper([&] {
    core::StopSignal().WaitFor(500ms);
    stop.Request();
  });
  const auto start = Steady::now();
  const SwarmResult result = swarm.Run();
  stopper.join();
  EXPECT_LT(Steady::now() - start, 1000ms);
  EXPECT_EQ(result.completed, 0);
  EXPECT_EQ(result.failed, 10);
  ASSERT_TRUE(result.outcomes.contains("stopped") && result.outcomes.contains("not started"));
  EXPECT_EQ(result.outcomes.at("stopped") + result.outcomes.at("not started"), 10);
  EXPECT_GE(result.outcomes.at("stopped"), 2);  // the starts at 0, 200 and 400 ms
}

TEST(ZonSwarmTest, NearestRankPercentile) {
  std::vector<double> hundred;
  for (int i = 1; i <= 100; ++i) hundred.push_back(i);
  struct Row {
    std::vector<double> sorted;
    double p, expected;
  };
  const Row rows[] = {
      {{}, 0.5, 0},       {{7}, 0.99, 7},      {{1, 2}, 0.5, 1},    {{1, 2}, 0.99, 2},
      {hundred, 0.5, 50}, {hundred, 0.99, 99}, {{1, 2, 3}, 0.5, 2}, {hundred, 1.0, 100},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Percentile(row.sorted, row.p), row.expected)
        << row.sorted.size() << " values, p " << row.p;
  }
}

// The command line as an operator runs it: the summary line and the same figures as JSON.
TEST(ZonSwarmTest, CommandPrintsTheSummaryAndWritesJson) {
  TcpCallInHost host;
  const std::string json = ::testing::TempDir() + "/swarm.json";
  clockcomm::test::Child sim({CLOCKCOMM_BINARY_DIR "/clockcomm-sim", "zon", "--connect",
                              "127.0.0.1:" + std::to_string(host.Address().port), "--swarm", "4",
                              "--within", "0.2", "--punches", "3", "--clock-name", "NS", "--json",
                              json});
  sim.Drain(clockcomm::test::Steady::now() + 20s);
  EXPECT_EQ(sim.Wait(), 0) << sim.Tail();
  const auto summary = sim.Find("Swarm: 4 terminals");
  ASSERT_TRUE(summary) << sim.Tail();
  EXPECT_TRUE(std::regex_match(
      sim.Lines()[*summary].text,
      std::regex(
          R"(Swarm: 4 terminals, 4 calls completed, 0 failed, 12 punches delivered, )"
          R"(\d+\.\d calls/s, connect-to-EOT p50 \d+\.\d ms p99 \d+\.\d ms, max \d+\.\d ms)")))
      << sim.Lines()[*summary].text;
  ASSERT_TRUE(host.WaitForCalls(4, 5s));
  std::set<std::string> names;
  for (const auto& call : host.Calls()) names.insert(Header(call).ClockName());
  EXPECT_EQ(names, (std::set<std::string>{"NS0001", "NS0002", "NS0003", "NS0004"}));

  std::stringstream text;
  text << std::ifstream(json).rdbuf();
  for (const char* field :
       {"\"terminals\": 4", "\"completed\": 4", "\"failed\": 0", "\"punches_delivered\": 12",
        "\"calls_per_second\": ", "\"p50_ms\": ", "\"p99_ms\": ", "\"max_ms\": ", "\"retries\": 0",
        "\"outcomes\": {\"completed\": 4}"}) {
    EXPECT_NE(text.str().find(field), std::string::npos) << field << " in " << text.str();
  }
}

}  // namespace
}  // namespace clockcomm::sim
