// The built binary serving a site's lines: network terminals calling its LAN listener and polled
// at their address, serial lines and the listener at once, End during overlapping calls.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>

#include "comm/pty_pair.h"
#include "comm/tcp_connection.h"
#include "core/text.h"
#include "db/open.h"
#include "sim/zon_terminal.h"
#include "test_support/child_process.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;

class LanSiteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(Run("init").exit_code, 0);
    ASSERT_EQ(Run("company add Acme --clock DEMODATA --dir acme").exit_code, 0);
  }
  CommandResult Run(const std::string& args) { return RunClockcomm(dir_.path(), args); }

  Child Start(const std::string& args) {
    std::vector<std::string> argv = {CLOCKCOMM_BINARY_DIR "/clockcomm", "--home",
                                     dir_.path().string()};
    for (auto& word : core::Split(args, ' ')) argv.push_back(word);
    return Child(argv);
  }

  // The port the program's LAN listener took, from its screen line.
  static uint16_t ListenerPort(Child& program) {
    const std::string marker = "Listening for LAN terminals on 127.0.0.1:";
    EXPECT_TRUE(Child::Pump({&program}, Steady::now() + 20s, [&] {
      return program.Find(marker).has_value();
    })) << program.Tail();
    const auto line = program.Find(marker);
    if (!line) return 0;
    const std::string& text = program.Lines()[*line].text;
    return static_cast<uint16_t>(std::stoi(text.substr(text.find(marker) + marker.size())));
  }

  void AppendToRegistry(const std::string& text) {
    std::ofstream(dir_.path() / "registry.ini", std::ios::app) << text;
  }

  // Rows of [Clock Data Table], and how many distinct punches they are.
  using RowCounts = std::pair<int64_t, int64_t>;
  RowCounts Rows() {
    auto db = db::Open(dir_.path() / "data" / "acme" / "Company.db");
    auto rs = db->Query(
        "SELECT COUNT(*), COUNT(DISTINCT [Card ID] || '/' || Punch) FROM [Clock Data Table]");
    return {rs.Field(0).AsInt(), rs.Field(1).AsInt()};
  }

  // count punches of one terminal, distinct from every other terminal's by badge.
  static std::vector<std::string> Punches(int count, int badge) {
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i) {
      out.push_back(fmt::format("{},{},,,,,{},091020,{:02}{:02},,,,1", i + 1, badge,
                                i % 2 == 0 ? "I" : "O", 6 + i / 60, i % 60));
    }
    return out;
  }

  // Reads the program's screen until its calls have put count rows in.
  bool WaitForRows(Child& program, int64_t count) {
    return Child::Pump({&program}, Steady::now() + 20s, [&] { return Rows().first >= count; });
  }

  static sim::CallOutcome CallOverTcp(sim::ZonTerminal& terminal, uint16_t port) {
    auto connection = comm::TcpConnection::Connect("127.0.0.1", port, 5s);
    return terminal.CallIn(*connection);
  }

  TempDir dir_;
};

TEST_F(LanSiteTest, ANetworkTerminalCallsTheListenerAndIsPolledAtItsAddress) {
  ASSERT_EQ(Run("settings set connection_type=LAN").exit_code, 0);
  // Host: the terminal connects, holds the direct line's conversation, and hangs up.
  Child program = Start("host --once --listen 127.0.0.1:0");
  const uint16_t port = ListenerPort(program);
  ASSERT_NE(port, 0);
  sim::ZonTerminal caller(sim::TerminalConfig{}, Punches(3, 21));
  EXPECT_EQ(CallOverTcp(caller, port), sim::CallOutcome::kCompleted);
  ASSERT_TRUE(program.Drain(Steady::now() + 20s)) << program.Tail();
  const int status = program.Wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << program.Tail();
  EXPECT_EQ(Rows(), (RowCounts{3, 3}));

  // Poll: the program connects to the location's address and polls as on a direct line.
  comm::TcpListener terminal_port("127.0.0.1", 0);
  sim::TerminalConfig config;
  config.terminal_id = "7";
  sim::ZonTerminal polled(config, Punches(4, 22));
  auto answered = std::async(std::launch::async, [&] {
    auto connection = terminal_port.Accept(comm::SteadyTime::clock::now() + 20s);
    return connection ? polled.AnswerPoll(*connection) : sim::CallOutcome::kNone;
  });
  ASSERT_EQ(Run(fmt::format("poll-list add Dock --address 127.0.0.1:{} --terminal-id 7",
                            terminal_port.Port()))
                .exit_code,
            0);
  const auto r = Run("poll");
  EXPECT_EQ(answered.get(), sim::CallOutcome::kCompleted);
  EXPECT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_EQ(Rows(), (RowCounts{7, 7}));

  // A location that does not answer fails with its address named.
  ASSERT_EQ(Run("poll-list remove 1").exit_code, 0);
  ASSERT_EQ(Run("poll-list add Gone --address 127.0.0.1:1").exit_code, 0);
  const auto refused = Run("poll");
  EXPECT_NE(refused.exit_code, 0);
  EXPECT_NE(refused.out.find("Call failed"), std::string::npos) << refused.out;
}

// Two serial lines and the listener, a third line that cannot be opened and a silent connection
// hold up no one; End cuts calls short at once, and their next calls deliver everything once.
TEST_F(LanSiteTest, SerialLinesAndTheListenerServeOverlappingCallsAndEndStopsThemAll) {
  auto com1 = comm::PtyPair::Open();
  auto com2 = comm::PtyPair::Open();
  // COM3's device does not exist: that line fails, the others are served.
  AppendToRegistry(
      fmt::format("\n[Ports]\nCOM1={}\nCOM2={}\nCOM3=/dev/clockcomm-no-such-port\n\n[Lines]\n"
                  "COM2=Serial\nCOM3=Serial\nLAN=127.0.0.1:0\n",
                  com1.SlavePath(), com2.SlavePath()));
  auto com1_end = com1.TakeMaster(), com2_end = com2.TakeMaster();
  Child program = Start("host");
  const uint16_t port = ListenerPort(program);
  ASSERT_NE(port, 0);
  auto silent = comm::TcpConnection::Connect("127.0.0.1", port, 5s);
  // The three terminals call at once, on COM1, COM2 and the listener.
  auto call_all = [&](const std::vector<sim::ZonTerminal*>& terminals, uint16_t listener) {
    std::future<sim::CallOutcome> calls[] = {
        std::async(std::launch::async, [&] { return terminals[0]->CallIn(*com1_end); }),
        std::async(std::launch::async, [&] { return terminals[1]->CallIn(*com2_end); }),
        std::async(std::launch::async, [&] { return CallOverTcp(*terminals[2], listener); })};
    std::vector<sim::CallOutcome> outcomes;
    for (auto& call : calls) outcomes.push_back(call.get());
    return outcomes;
  };
  const std::vector<sim::CallOutcome> completed(3, sim::CallOutcome::kCompleted);

  sim::ZonTerminal on_com1({}, Punches(5, 31)), on_com2({}, Punches(5, 32)),
      on_lan({}, Punches(5, 33));
  EXPECT_EQ(call_all({&on_com1, &on_com2, &on_lan}, port), completed);
  EXPECT_TRUE(WaitForRows(program, 15)) << program.Tail();
  EXPECT_EQ(Rows(), (RowCounts{15, 15}));
  for (const char* line : {"[COM1]", "[COM2]", "[LAN 127.0.0.1:", "[COM3] Invalid Com Port"}) {
    EXPECT_TRUE(program.Find(line)) << line << "\n" << program.Tail(60);
  }

  // Calls cut off half way on every line, then End.
  sim::TerminalConfig cut_off;
  cut_off.faults.silent_after = 2;
  sim::ZonTerminal late1(cut_off, Punches(4, 41)), late2(cut_off, Punches(4, 42)),
      late3(cut_off, Punches(4, 43));
  EXPECT_EQ(call_all({&late1, &late2, &late3}, port),
            std::vector<sim::CallOutcome>(3, sim::CallOutcome::kWentSilent));
  const auto end_pressed = Steady::now();
  program.Signal(SIGTERM);
  ASSERT_TRUE(program.Drain(Steady::now() + 20s)) << program.Tail();
  const int status = program.Wait();
  EXPECT_LT(Steady::now() - end_pressed, 3s) << "End waits for no call's time-out";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1)
      << "COM3 failed: " << status << program.Tail(60);
  EXPECT_EQ(Rows(), (RowCounts{15, 15})) << "no cut-off call went in";

  // Their next calls deliver every punch, once.
  Child again = Start("host");
  EXPECT_EQ(call_all({&late1, &late2, &late3}, ListenerPort(again)), completed);
  EXPECT_TRUE(WaitForRows(again, 27)) << again.Tail();
  again.Signal(SIGTERM);
  ASSERT_TRUE(again.Drain(Steady::now() + 20s)) << again.Tail();
  again.Wait();
  EXPECT_EQ(Rows(), (RowCounts{27, 27}));
}

}  // namespace
}  // namespace clockcomm::test
