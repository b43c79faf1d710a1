// The built binary serving a site's lines: network terminals calling its LAN listener and polled
// at their address, serial lines and the listener at once, End during overlapping calls; and the
// call commands: the T4 host, the poll list, and what they refuse; the demo on a PostgreSQL server.
// (A hosted call over a pty through the binary is the kill-and-restart test's.)
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
#include "test_support/postgres_schema.h"
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
using CallCommandsTest = LanSiteTest;

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
  sim::ZonTerminal polled({.terminal_id = "7"}, Punches(4, 22));
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
  const sim::TerminalConfig cut_off{.faults = {.silent_after = 2}};
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

// `t4 host`, and `auto` on a terminal type 2 line, run the T4 host: the terminal's outage is shown
// once, and SIGTERM ends the program as End does.
TEST_F(CallCommandsTest, T4HostRunsUntilTheStopSignal) {
  ASSERT_EQ(Run("t4 clocks add Gate --address 127.0.0.1:9").exit_code, 0);
  ASSERT_EQ(Run("settings set terminal_type=2 connection_type=3 auto_start_mode=2").exit_code, 0);
  for (const char* command : {"t4 host", "auto"}) {
    Child program = Start(command);
    ASSERT_TRUE(Child::Pump({&program}, Steady::now() + std::chrono::seconds(20),
                            [&] { return program.Find("T4 Clock Offline: Gate").has_value(); }))
        << command << ": " << program.Tail();
    program.Signal(SIGTERM);
    EXPECT_TRUE(program.Drain(Steady::now() + std::chrono::seconds(20))) << command;
    const int status = program.Wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command << ": " << status;
  }
}

// The poll list's commands, then what host, poll and auto refuse and why, in one program folder.
TEST_F(CallCommandsTest, PollListAndTheRefusalsThatNameWhatIsMissing) {
  struct Step {
    std::string command;
    bool ok;
    std::vector<std::string> out, err;  // texts that must be in stdout, stderr
    std::string not_out = {};           // a text that must not be in stdout
  };
  std::vector<Step> steps = {
      {"poll-list add Dock --phone 5551234 --dial-time 6:30 --terminal-id 7", true, {}, {}},
      {"poll-list list", true, {"06:30"}, {}},
      {"poll-list add Yard --dial-time 25:00", false, {}, {"--dial-time"}},
      {"poll-list remove 1", true, {}, {}},
      {"poll-list list", true, {}, {}, "Dock"},
      {"poll-list remove 1", false, {}, {"1"}},
      // No call times in the poll list: timed polling has nothing to do.
      {"poll-list add Dock --phone 5551234", true, {}, {}},
      {"poll --timed",
       false,
       {"There are no clocks with call times. Clock entries must have call times to be "
        "AutoPolled."},
       {}},
      {"auto", false, {}, {"auto_start_mode is 1"}},
  };
  // A type without a loop of its own would send its punches again on every call: refused.
  for (const std::string type : {"5", "6"}) {
    steps.push_back({"settings set terminal_type=" + type, true, {}, {"is not served yet"}});
    for (const char* command : {"host --once", "poll", "auto"}) {
      steps.push_back({command, false, {}, {"Terminal type " + type}});
    }
  }
  const std::vector<Step> more = {
      // T4 terminals are served from the T4 clock list, on the network only.
      {"settings set terminal_type=2 connection_type=Serial",
       true,
       {},
       {"reached over the network only"}},
      {"poll", false, {}, {"The T4 clock list has no clock"}},
      {"t4 clocks add Gate --address 127.0.0.1:9", true, {}, {}},
      {"poll",
       false,
       {"Gate at 127.0.0.1:9 does not answer: T4 terminals are reached over the network only, not "
        "by serial line"},
       {}},
      {"host --once", false, {}, {"no --once"}},
      // ATS terminals are polled, never waited for.
      {"settings set terminal_type=7", true, {}, {}},
      {"host --once", false, {}, {"never calls in"}},
      // A LAN listener address that is not this machine's.
      {"settings set terminal_type=1 connection_type=LAN", true, {}, {}},
      {"host --once --listen 192.0.2.1:3001",
       false,
       {},
       {"cannot listen for LAN terminals on 192.0.2.1:3001", "address"}},
      {"settings set connection_type=Serial", true, {}, {}},
      {"host --once --port /dev/clockcomm-no-such-port",
       false,
       {"Invalid Com Port\nSelect valid Com Port and then restart."},
       {"/dev/clockcomm-no-such-port", "No such file"},
       "Mode ="},  // the loop is not entered
  };
  steps.insert(steps.end(), more.begin(), more.end());
  for (const Step& step : steps) {
    SCOPED_TRACE(step.command);
    const CommandResult r = Run(step.command);
    EXPECT_EQ(r.exit_code == 0, step.ok) << r.out << r.err;
    for (const auto& text : step.out) EXPECT_NE(r.out.find(text), std::string::npos) << r.out;
    for (const auto& text : step.err) EXPECT_NE(r.err.find(text), std::string::npos) << r.err;
    EXPECT_TRUE(step.not_out.empty() || r.out.find(step.not_out) == std::string::npos) << r.out;
  }
  const CommandResult r = RunClockcomm(dir_.path() / "nowhere", "host --once");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("init"), std::string::npos) << r.err;
}

// The demo's calls of every kind and the T4 host with every database on the server (the demo fails
// unless each punch is there), and no password in what it prints.
TEST(PostgresDemoTest, TheDemosRoadRunsIntoTheServer) {
  const auto& server = PostgresTestServer::Get();
  TempDir home;
  const CommandResult r =
      RunClockcomm(home.path() / "demo", "demo --database '" + server.Url() + "'");
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_EQ(r.out.find(server.Password()), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(home.path() / "demo/data/demo/Company.db"));
  auto company = db::Open(db::LocationInSchema(server.Url(), "demo_company"));
  const int64_t rows = company->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt();
  EXPECT_NE(r.out.find("Rows in [Clock Data Table]: " + std::to_string(rows) + "\n"),
            std::string::npos)
      << r.out;
  EXPECT_GT(db::Open(db::LocationInSchema(server.Url(), "demo_site"))
                ->Query("SELECT COUNT(*) FROM LogTable")
                .Field(0)
                .AsInt(),
            0);
}

}  // namespace
}  // namespace clockcomm::test
