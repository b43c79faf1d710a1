// One clockcomm process serving a site's lines: Zon/Tranz terminals calling the LAN listener and
// polled at their network address, two serial lines and the listener at once, End during
// overlapping calls. The built binary against simulated terminals on real ptys and sockets.
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

// Two serial lines and the LAN listener in one process, and a third serial line that cannot be
// opened: the failed line and a silent network terminal hold up no one, the three calls overlap and
// all go in; End during calls in progress ends the program at once, and the terminals that were cut
// off deliver everything once on their next call.
TEST_F(LanSiteTest, SerialLinesAndTheListenerServeOverlappingCallsAndEndStopsThemAll) {
  auto com1 = comm::PtyPair::Open();
  auto com2 = comm::PtyPair::Open();
  // COM3's device does not exist: that line fails, the others are served.
  AppendToRegistry(
      fmt::format("\n[Ports]\nCOM1={}\nCOM2={}\nCOM3=/dev/clockcomm-no-such-port\n\n[Lines]\n"
                  "COM2=Serial\nCOM3=Serial\nLAN=127.0.0.1:0\n",
                  com1.SlavePath(), com2.SlavePath()));
  auto line1 = com1.TakeMaster();
  auto line2 = com2.TakeMaster();
  Child program = Start("host");
  const uint16_t port = ListenerPort(program);
  ASSERT_NE(port, 0);
  auto silent = comm::TcpConnection::Connect("127.0.0.1", port, 5s);

  sim::ZonTerminal on_com1(sim::TerminalConfig{}, Punches(5, 31));
  sim::ZonTerminal on_com2(sim::TerminalConfig{}, Punches(5, 32));
  sim::ZonTerminal on_lan(sim::TerminalConfig{}, Punches(5, 33));
  auto call1 = std::async(std::launch::async, [&] { return on_com1.CallIn(*line1); });
  auto call2 = std::async(std::launch::async, [&] { return on_com2.CallIn(*line2); });
  auto call3 = std::async(std::launch::async, [&] { return CallOverTcp(on_lan, port); });
  EXPECT_EQ(call1.get(), sim::CallOutcome::kCompleted);
  EXPECT_EQ(call2.get(), sim::CallOutcome::kCompleted);
  EXPECT_EQ(call3.get(), sim::CallOutcome::kCompleted);
  EXPECT_TRUE(WaitForRows(program, 15)) << program.Tail();
  EXPECT_EQ(Rows(), (RowCounts{15, 15}));
  for (const char* line : {"[COM1]", "[COM2]", "[LAN 127.0.0.1:", "[COM3] Invalid Com Port"}) {
    EXPECT_TRUE(program.Find(line)) << line << "\n" << program.Tail(60);
  }

  // Calls cut off half way on every line, then End.
  auto cut_off = [](int badge) {
    sim::TerminalConfig config;
    config.faults.silent_after = 2;
    return std::make_unique<sim::ZonTerminal>(config, Punches(4, badge));
  };
  auto late1 = cut_off(41), late2 = cut_off(42), late3 = cut_off(43);
  auto cut1 = std::async(std::launch::async, [&] { return late1->CallIn(*line1); });
  auto cut2 = std::async(std::launch::async, [&] { return late2->CallIn(*line2); });
  auto cut3 = std::async(std::launch::async, [&] { return CallOverTcp(*late3, port); });
  for (auto* cut : {&cut1, &cut2, &cut3}) EXPECT_EQ(cut->get(), sim::CallOutcome::kWentSilent);
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
  const uint16_t again_port = ListenerPort(again);
  auto redo1 = std::async(std::launch::async, [&] { return late1->CallIn(*line1); });
  auto redo2 = std::async(std::launch::async, [&] { return late2->CallIn(*line2); });
  EXPECT_EQ(CallOverTcp(*late3, again_port), sim::CallOutcome::kCompleted);
  EXPECT_EQ(redo1.get(), sim::CallOutcome::kCompleted);
  EXPECT_EQ(redo2.get(), sim::CallOutcome::kCompleted);
  EXPECT_TRUE(WaitForRows(again, 27)) << again.Tail();
  again.Signal(SIGTERM);
  ASSERT_TRUE(again.Drain(Steady::now() + 20s)) << again.Tail();
  again.Wait();
  EXPECT_EQ(Rows(), (RowCounts{27, 27}));
}

}  // namespace
}  // namespace clockcomm::test
