// The call commands of the built binary: host against a simulated terminal on a pty, the poll
// list, the T4 host, and the refusals of poll --timed, auto and a LAN address not of this machine.
#include <gtest/gtest.h>

#include <future>

#include "comm/pty_pair.h"
#include "db/open.h"
#include "sim/zon_terminal.h"
#include "test_support/child_process.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::test {
namespace {

class CallCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(Run("init").exit_code, 0);
    ASSERT_EQ(Run("company add Acme --clock DEMODATA --dir acme").exit_code, 0);
  }
  CommandResult Run(const std::string& args) { return RunClockcomm(dir_.path(), args); }

  TempDir dir_;
};

TEST_F(CallCommandsTest, HostOnceTakesACallAndExitsWithItsOutcome) {
  auto pty = comm::PtyPair::Open();
  auto line = pty.TakeMaster();
  sim::ZonTerminal terminal(sim::TerminalConfig{},
                            {"1,12,,,,,I,091020,0800,,,,1", "2,12,,,,,O,091020,1600,,,,1"});
  auto call = std::async(std::launch::async, [&] { return terminal.CallIn(*line); });
  const auto r = Run("host --once --port " + pty.SlavePath());
  EXPECT_EQ(call.get(), sim::CallOutcome::kCompleted);
  EXPECT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("End of transmission"), std::string::npos) << r.out;
  auto db = db::Open(dir_.path() / "data" / "acme" / "Company.db");
  EXPECT_EQ(db->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt(), 2);
}

// `t4 host`, and `auto` on a terminal type 2 line, run the T4 host: the terminal's outage is shown
// once, and SIGTERM ends the program as End does.
TEST_F(CallCommandsTest, T4HostRunsUntilTheStopSignal) {
  ASSERT_EQ(Run("t4 clocks add Gate --address 127.0.0.1:9").exit_code, 0);
  ASSERT_EQ(Run("settings set terminal_type=2 connection_type=3 auto_start_mode=2").exit_code, 0);
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"t4", "host"}, std::vector<std::string>{"auto"}}) {
    std::vector<std::string> argv = {CLOCKCOMM_BINARY_DIR "/clockcomm", "--home",
                                     dir_.path().string()};
    argv.insert(argv.end(), command.begin(), command.end());
    Child program(argv);
    ASSERT_TRUE(Child::Pump({&program}, Steady::now() + std::chrono::seconds(20),
                            [&] { return program.Find("T4 Clock Offline: Gate").has_value(); }))
        << command.back() << ": " << program.Tail();
    program.Signal(SIGTERM);
    EXPECT_TRUE(program.Drain(Steady::now() + std::chrono::seconds(20))) << command.back();
    const int status = program.Wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command.back() << ": " << status;
  }
}

TEST_F(CallCommandsTest, PollListAddListRemove) {
  auto r = Run("poll-list add Dock --phone 5551234 --dial-time 6:30 --terminal-id 7");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_NE(Run("poll-list list").out.find("06:30"), std::string::npos);
  r = Run("poll-list add Yard --dial-time 25:00");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("--dial-time"), std::string::npos) << r.err;
  EXPECT_EQ(Run("poll-list remove 1").exit_code, 0);
  EXPECT_EQ(Run("poll-list list").out.find("Dock"), std::string::npos);
  r = Run("poll-list remove 1");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("1"), std::string::npos);
}

TEST_F(CallCommandsTest, RefusalsNameWhatIsMissing) {
  // No call times in the poll list: timed polling has nothing to do.
  ASSERT_EQ(Run("poll-list add Dock --phone 5551234").exit_code, 0);
  auto r = Run("poll --timed");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.out.find("There are no clocks with call times. Clock entries must have call times "
                       "to be AutoPolled."),
            std::string::npos)
      << r.out << r.err;

  r = Run("auto");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("auto_start_mode is 1"), std::string::npos) << r.err;

  // A terminal type without a loop of its own would keep its punches and send them again on
  // every call: host, poll and auto refuse it, and settings set warns.
  for (const char* type : {"5", "6"}) {
    r = Run(std::string("settings set terminal_type=") + type);
    ASSERT_EQ(r.exit_code, 0);
    EXPECT_NE(r.err.find("is not served yet"), std::string::npos) << r.err;
    for (const char* command : {"host --once", "poll", "auto"}) {
      r = Run(command);
      EXPECT_NE(r.exit_code, 0) << command;
      EXPECT_NE(r.err.find(std::string("Terminal type ") + type), std::string::npos)
          << command << ": " << r.err;
    }
  }
  // T4 terminals are served from the T4 clock list, on the network only.
  r = Run("settings set terminal_type=2 connection_type=Serial");
  EXPECT_NE(r.err.find("reached over the network only"), std::string::npos) << r.err;
  r = Run("poll");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("The T4 clock list has no clock"), std::string::npos) << r.err;
  ASSERT_EQ(Run("t4 clocks add Gate --address 127.0.0.1:9").exit_code, 0);
  r = Run("poll");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.out.find("Gate at 127.0.0.1:9 does not answer: T4 terminals are reached over the "
                       "network only, not by serial line"),
            std::string::npos)
      << r.out;
  r = Run("host --once");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("no --once"), std::string::npos) << r.err;

  // ATS terminals are polled, never waited for.
  ASSERT_EQ(Run("settings set terminal_type=7").exit_code, 0);
  r = Run("host --once");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("never calls in"), std::string::npos) << r.err;

  // A LAN listener address that is not this machine's.
  ASSERT_EQ(Run("settings set terminal_type=1 connection_type=LAN").exit_code, 0);
  r = Run("host --once --listen 192.0.2.1:3001");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("cannot listen for LAN terminals on 192.0.2.1:3001"), std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("address"), std::string::npos) << r.err;

  ASSERT_EQ(Run("settings set connection_type=Serial").exit_code, 0);
  r = Run("host --once --port /dev/clockcomm-no-such-port");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.out.find("Invalid Com Port\nSelect valid Com Port and then restart."),
            std::string::npos)
      << r.out;
  EXPECT_EQ(r.out.find("Mode ="), std::string::npos) << "the loop is not entered: " << r.out;
  EXPECT_NE(r.err.find("/dev/clockcomm-no-such-port"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("No such file"), std::string::npos) << r.err;

  r = RunClockcomm(dir_.path() / "nowhere", "host --once");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.err.find("init"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace clockcomm::test
