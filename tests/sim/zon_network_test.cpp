// A Zon/Tranz terminal on a network: calling in over a TCP connection of its own to a host on
// 127.0.0.1, and the simulator's command line (--connect, --listen) run as an operator would.
#include <gtest/gtest.h>

#include <chrono>
#include <regex>

#include "sim/zon_swarm.h"
#include "tcp_call_host.h"
#include "test_support/child_process.h"

namespace clockcomm::sim {
namespace {

using test::TcpCallInHost;
using namespace std::chrono_literals;

const std::vector<std::string> kPunches = {
    "2,12,,,,,I,091020,1224,,,,1",
    "3,12,,,,,O,091020,1705,,,,1",
};
const std::string kSim = CLOCKCOMM_BINARY_DIR "/clockcomm-sim";

TerminalConfig ShortWaits() {
  TerminalConfig config;
  config.clock_name = "NET1";
  config.timeouts = {1s, 1s, 1s, 1s, 1s, 1s};
  return config;
}

// An address where nothing listens: a port the system just handed out and took back.
comm::EndPoint ClosedAddress() {
  comm::TcpListener listener("127.0.0.1", 0);
  return {"127.0.0.1", listener.Port()};
}

// Each row: how the host answers, and what the terminal makes of it. Punches go only with an EOT.
TEST(ZonNetworkTest, CallInOverItsOwnConnection) {
  struct Row {
    TcpCallInHost::Answer answer;
    CallOutcome outcome;
    bool delivered;
  };
  const Row rows[] = {
      {TcpCallInHost::Answer::kEot, CallOutcome::kCompleted, true},
      {TcpCallInHost::Answer::kHangUp, CallOutcome::kLineClosed, false},
      {TcpCallInHost::Answer::kSilent, CallOutcome::kNoAnswer, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.answer));
    TcpCallInHost host(row.answer);
    ZonTerminal terminal(ShortWaits(), kPunches);
    const NetworkCall call = CallInOverTcp(terminal, host.Address(), nullptr);
    EXPECT_EQ(call.outcome, row.outcome);
    EXPECT_EQ(call.Completed(), row.delivered);
    EXPECT_EQ(terminal.PendingPunches().empty(), row.delivered);
    EXPECT_EQ(host.Connections(), 1);
    if (row.answer == TcpCallInHost::Answer::kSilent) continue;
    // The host records the call once the terminal has hung up (or it gave up waiting).
    EXPECT_TRUE(host.WaitForCalls(1, 6s));
    const auto calls = host.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].upload.data, kPunches);
    EXPECT_NE(calls[0].upload.header.find("NET1"), std::string::npos);
    EXPECT_EQ(calls[0].terminal_hung_up, row.delivered);
  }
}

TEST(ZonNetworkTest, RefusedConnectionIsNoCall) {
  const comm::EndPoint closed = ClosedAddress();
  ZonTerminal terminal(ShortWaits(), kPunches);
  const NetworkCall call = CallInOverTcp(terminal, closed, nullptr);
  EXPECT_EQ(call.connect, NetworkCall::Connect::kRefused);
  EXPECT_EQ(call.Name(), "connection refused");
  EXPECT_EQ(call.connect_error,
            "cannot connect to 127.0.0.1:" + std::to_string(closed.port) + ": Connection refused");
  EXPECT_EQ(terminal.Stats().calls, 0);
  EXPECT_EQ(terminal.PendingPunches(), kPunches);
}

// The terminal listens; the test plays the program polling it over a connection of its own.
TEST(ZonNetworkTest, ListeningTerminalAnswersAPoll) {
  clockcomm::test::Child sim({kSim, "zon", "--listen", "127.0.0.1:0", "--once", "--punches", "3",
                              "--clock-name", "POLLED"});
  const std::regex ready(
      R"(Terminal POLLED listening on 127\.0\.0\.1:(\d+) \(3 punches, answers polls\))");
  std::smatch port;
  clockcomm::test::Child::Pump({&sim}, clockcomm::test::Steady::now() + 10s, [&] {
    return !sim.Lines().empty() && std::regex_match(sim.Lines()[0].text, port, ready);
  });
  ASSERT_FALSE(port.empty()) << sim.Tail();

  auto line =
      comm::TcpConnection::Connect("127.0.0.1", static_cast<uint16_t>(std::stoi(port[1])), 5s);
  test::ScriptedHost host(*line, /*framed=*/false);
  host.Enq();
  EXPECT_EQ(host.ReadLine(), std::string(1, test::ProtocolChar::kAck));
  host.Send(std::string(1, test::ProtocolChar::kStx) + "1" + test::ProtocolChar::kEtx);
  EXPECT_EQ(host.ReadLine(), std::string(1, test::ProtocolChar::kEnq));
  host.Enq();
  const test::HostCall call = host.ReceiveUpload();
  host.Eot();
  EXPECT_TRUE(call.ended);
  EXPECT_EQ(call.data.size(), 3u);

  sim.Drain(clockcomm::test::Steady::now() + 10s);
  EXPECT_EQ(sim.Wait(), 0) << sim.Tail();
  EXPECT_TRUE(sim.Find("Call 1: completed, 0 punches pending")) << sim.Tail();
}

// Options as an operator gives them: the exit status and a line that must be in the output.
TEST(ZonNetworkTest, CommandLine) {
  const comm::EndPoint closed = ClosedAddress();
  const std::string refused = "127.0.0.1:" + std::to_string(closed.port);
  struct Row {
    std::vector<std::string> args;
    int status;
    std::string shows;
  };
  const Row rows[] = {
      {{"--connect", refused, "--once"},
       1,
       "cannot connect to " + refused + ": Connection refused"},
      {{"--connect", refused, "--call-in", "--once"}, 1, "Call 1: connection refused"},
      {{"--connect", refused, "--swarm", "3", "--within", "0"},
       1,
       "Swarm: 3 terminals, 0 calls completed, 3 failed, 0 punches delivered"},
      {{"--connect", "127.0.0.1", "--once"}, 1, "is not a network address"},
      {{"--swarm", "3"}, 107, "--swarm requires --connect"},
      {{"--pty", "--listen", "127.0.0.1:0"}, 108, "--pty excludes --listen"},
      {{"--listen", "127.0.0.1:0", "--hours", "7"}, 2, "--hours needs a serial line"},
      {{"--connect", refused, "--swarm", "2", "--punch-file", kSim}, 2, "no --punch-file"},
  };
  for (const auto& row : rows) {
    std::vector<std::string> argv = {kSim, "zon"};
    argv.insert(argv.end(), row.args.begin(), row.args.end());
    SCOPED_TRACE(row.shows);
    clockcomm::test::Child sim(argv);
    sim.Drain(clockcomm::test::Steady::now() + 10s);
    const int status = sim.Wait();
    ASSERT_TRUE(WIFEXITED(status)) << sim.Tail();
    EXPECT_EQ(WEXITSTATUS(status), row.status) << sim.Tail();
    EXPECT_TRUE(sim.Find(row.shows)) << sim.Tail();
  }
}

}  // namespace
}  // namespace clockcomm::sim
