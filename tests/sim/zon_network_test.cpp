// A Zon/Tranz terminal on a network: calling in over a TCP connection of its own to a host on
// 127.0.0.1, and the simulator's command line (--connect, --listen) run as an operator would.
#include <gtest/gtest.h>

#include <regex>

#include "sim/zon_swarm.h"
#include "tcp_call_host.h"
#include "test_support/child_process.h"

namespace clockcomm::sim {
namespace {

using clockcomm::test::Child;
using clockcomm::test::Steady;
using test::ProtocolChar;
using test::TcpCallInHost;
using namespace std::chrono_literals;

const std::string kSim = CLOCKCOMM_BINARY_DIR "/clockcomm-sim";

// Each row: how the host answers, and what the terminal makes of it. Punches go only with an EOT.
TEST(ZonNetworkTest, CallInOverItsOwnConnection) {
  const std::vector<std::string> punches = {"2,12,,,,,I,091020,1224,,,,1",
                                            "3,12,,,,,O,091020,1705,,,,1"};
  struct Row {
    TcpCallInHost::Answer answer;
    CallOutcome outcome;
    bool delivered;
  };
  for (const Row& row : {Row{TcpCallInHost::Answer::kEot, CallOutcome::kCompleted, true},
                         Row{TcpCallInHost::Answer::kHangUp, CallOutcome::kLineClosed, false},
                         Row{TcpCallInHost::Answer::kSilent, CallOutcome::kNoAnswer, false}}) {
    SCOPED_TRACE(ToString(row.outcome));
    TcpCallInHost host(row.answer);
    TerminalConfig config;
    config.clock_name = "NET1";
    config.timeouts = {1s, 1s, 1s, 1s, 1s, 1s};
    ZonTerminal terminal(config, punches);
    const NetworkCall call = CallInOverTcp(terminal, host.Address(), nullptr);
    EXPECT_EQ(call.outcome, row.outcome);
    EXPECT_EQ(call.Completed(), row.delivered);
    EXPECT_EQ(terminal.PendingPunches().empty(), row.delivered);
    if (row.answer == TcpCallInHost::Answer::kSilent) continue;
    const auto calls = host.WaitForCalls(1, 6s);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].upload.data, punches);
    EXPECT_NE(calls[0].upload.header.find("NET1"), std::string::npos);
    EXPECT_EQ(calls[0].terminal_hung_up, row.delivered);
  }
}

// The terminal listens; the test plays the program polling it over a connection of its own.
TEST(ZonNetworkTest, ListeningTerminalAnswersAPoll) {
  Child sim({kSim, "zon", "--listen", "127.0.0.1:0", "--once", "--punches", "3", "--clock-name",
             "POLLED"});
  const std::regex ready(
      R"(Terminal POLLED listening on 127\.0\.0\.1:(\d+) \(3 punches, answers polls\))");
  std::smatch port;
  Child::Pump({&sim}, Steady::now() + 10s, [&] {
    return !sim.Lines().empty() && std::regex_match(sim.Lines()[0].text, port, ready);
  });
  ASSERT_FALSE(port.empty()) << sim.Tail();

  auto line =
      comm::TcpConnection::Connect("127.0.0.1", static_cast<uint16_t>(std::stoi(port[1])), 5s);
  test::ScriptedHost host(*line, /*framed=*/false);
  host.Enq();
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kAck));
  host.Send(std::string(1, ProtocolChar::kStx) + "1" + ProtocolChar::kEtx);
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kEnq));
  host.Enq();
  const test::HostCall call = host.ReceiveUpload();
  host.Eot();
  EXPECT_TRUE(call.ended);
  EXPECT_EQ(call.data.size(), 3u);

  sim.Drain(Steady::now() + 10s);
  EXPECT_EQ(sim.Wait(), 0) << sim.Tail();
  EXPECT_TRUE(sim.Find("Call 1: completed, 0 punches pending")) << sim.Tail();
}

// Options as an operator gives them: the exit status and a line that must be in the output.
TEST(ZonNetworkTest, CommandLine) {
  // A port the system just handed out and took back: nothing listens there.
  const std::string refused =
      "127.0.0.1:" + std::to_string(comm::TcpListener("127.0.0.1", 0).Port());
  struct Row {
    std::vector<std::string> args;
    int status;
    std::string shows;
  };
  const Row rows[] = {
      {{"--connect", refused, "--call-in", "--once"},
       1,
       "call 1: cannot connect to " + refused + ": Connection refused"},
      {{"--connect", refused, "--swarm", "3", "--within", "0"},
       1,
       "Swarm: 3 terminals, 0 calls completed, 3 failed, 0 punches delivered"},
      {{"--connect", "127.0.0.1", "--once"}, 1, "is not a network address"},
      {{"--swarm", "3"}, 107, "--swarm requires --connect"},
      {{"--pty", "--listen", "127.0.0.1:0"}, 108, "--pty excludes --listen"},
      {{"--listen", "127.0.0.1:0", "--hours", "7"}, 2, "--hours needs a serial line"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.shows);
    std::vector<std::string> argv = {kSim, "zon"};
    argv.insert(argv.end(), row.args.begin(), row.args.end());
    Child sim(argv);
    sim.Drain(Steady::now() + 10s);
    const int status = sim.Wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == row.status) << sim.Tail();
    EXPECT_TRUE(sim.Find(row.shows)) << sim.Tail();
  }
}

}  // namespace
}  // namespace clockcomm::sim
