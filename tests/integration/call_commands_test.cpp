// The call commands of the built binary: the T4 host, the poll list, and what the call commands
// refuse. A hosted call over a pty through the binary is the kill-and-restart test's.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace clockcomm::test
