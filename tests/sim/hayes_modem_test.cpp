// The simulated modem's own rules, from the program's side of its port. Whole calls through it are
// the integration's modem calls and the modem transcript.
#include "sim/hayes_modem.h"

#include <gtest/gtest.h>

#include <thread>

#include "core/text.h"
#include "test_host.h"

namespace clockcomm::sim {
namespace {

using namespace std::chrono_literals;
using test::ScriptedHost;

const std::vector<std::string> kPunches = {"2,12,,,,,I,091020,1224,,,,1",
                                           "3,12,,,,,O,091020,1705,,,,1"};
constexpr auto kGuard = 100ms;

ModemOptions Options() {
  return {.guard_time = kGuard, .ring_interval = 10s};  // one RING per test unless answered
}

// The program's port (a pty slave) and a modem on its master, the terminal at 5551234.
struct ModemRig {
  explicit ModemRig(ModemOptions options, TerminalConfig config = {})
      : terminal(std::move(config), kPunches, &stop) {
    port.Open(pair.SlavePath());
    modem = std::make_unique<HayesModem>(pair.TakeMaster(), options, stop);
    modem->AddToPhoneBook("555-1234", terminal);
    thread = std::thread([this] { modem->Run(); });
  }
  ~ModemRig() {
    stop.Request();
    thread.join();
  }

  void Write(const std::string& text) { program.WriteText(text); }
  // Reads until the text has come (or 2 s passed) and returns everything read up to it.
  std::string ReadUntil(const std::string& needle) {
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    while (received.find(needle) == std::string::npos &&
           program.WaitForInput(deadline, {}) == comm::WaitResult::kReadable) {
      received += program.Read();
    }
    const size_t at = received.find(needle);
    const size_t end = at == std::string::npos ? received.size() : at + needle.size();
    std::string out = received.substr(0, end);
    received.erase(0, end);
    return out;
  }
  // True when nothing at all came during the wait.
  bool QuietFor(std::chrono::milliseconds wait) {
    if (program.WaitForInput(std::chrono::steady_clock::now() + wait, {}) ==
        comm::WaitResult::kTimedOut) {
      return true;
    }
    received += program.Read();
    return false;
  }
  // The echo (or the blank line before the result) and the result line.
  std::string Command(const std::string& command) {
    Write(command + "\r");
    std::string first = ReadUntil("\r\n");
    return first + ReadUntil("\r\n");
  }
  // Takes the incoming call at once (S0=1) and reads up to its CONNECT.
  void Connect() {
    EXPECT_EQ(Command("ATE0S0=1"), "ATE0S0=1\r\r\nOK\r\n");
    modem->IncomingCall("5551234");
    EXPECT_EQ(ReadUntil("\r\nCONNECT 2400\r\n"), "\r\nRING\r\n\r\nCONNECT 2400\r\n");
  }

  core::StopSignal stop;
  comm::PtyPair pair = comm::PtyPair::Open();
  comm::SerialLine port;
  comm::SerialConnection program{port};
  ZonTerminal terminal;
  std::unique_ptr<HayesModem> modem;
  std::thread thread;
  std::string received;
};

TEST(HayesModemTest, AnswersCommandsWithEchoAndVerboseCodes) {
  ModemRig rig(Options());
  struct Step {
    std::string send;
    std::string expected;  // echo (while on) and result, byte for byte
  };
  std::vector<Step> steps = {
      {"ATZ\r", "ATZ\r\r\nOK\r\n"},
      {"ATE1Q0V1X4S0=1\r", "ATE1Q0V1X4S0=1\r\r\nOK\r\n"},
      {"AT&C1\r", "AT&C1\r\r\nOK\r\n"},
      {"ATS0?\r", "ATS0?\r\r\n001\r\n\r\nOK\r\n"},
      {"AT!\r", "AT!\r\r\nERROR\r\n"},
      {"ATX\bE0\r", "ATX\bE0\r\r\nOK\r\n"},  // backspace took the X out
      {"ATH0\r", "\r\nOK\r\n"},              // echo is off now
      {"ATV0\r", "0\r"},
      {"ATQ1\r", ""},  // quiet: no result code at all
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(core::Printable(step.send));
    rig.Write(step.send);
    if (step.expected.empty()) {
      EXPECT_TRUE(rig.QuietFor(200ms));
    } else {
      EXPECT_EQ(rig.ReadUntil(step.expected), step.expected);
    }
  }
  EXPECT_EQ(rig.modem->Stats().commands, 9);
}

TEST(HayesModemTest, DialResultsForFailuresUnknownNumbersAndNoLine) {
  ModemOptions busy = Options(), unplugged = Options();
  busy.fail_dials = 1;
  busy.fail_code = ResultCode::kBusy;
  unplugged.no_dialtone = true;
  struct Case {
    const char* legend;
    ModemOptions options;
    std::vector<std::pair<const char*, const char*>> dials;  // command, answer
  } cases[] = {
      {"a failed dial, then the call",
       busy,
       {{"ATDT5551234", "\r\nBUSY\r\n"}, {"ATDT5551234", "\r\nCONNECT 2400\r\n"}}},
      {"nobody at that number", Options(), {{"ATDT5559999", "\r\nNO CARRIER\r\n"}}},
      {"no number", Options(), {{"ATD", "\r\nERROR\r\n"}}},
      {"no line plugged in", unplugged, {{"ATDT5551234", "\r\nNO DIALTONE\r\n"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.legend);
    ModemRig rig(c.options);
    EXPECT_EQ(rig.Command("ATE0"), "ATE0\r\r\nOK\r\n");
    for (const auto& [command, answer] : c.dials) EXPECT_EQ(rig.Command(command), answer);
  }
}

TEST(HayesModemTest, TerminalDroppingTheLineGivesNoCarrier) {
  ModemRig rig(Options(), {.faults = {.drop_after = 1}});
  rig.Connect();
  ScriptedHost host(rig.program, true);
  host.Enq();
  EXPECT_TRUE(ScriptedHost::CheckOk(host.ReadLine()));  // header
  host.Ack();
  EXPECT_TRUE(ScriptedHost::CheckOk(host.ReadLine()));  // first punch
  host.Ack();
  EXPECT_EQ(host.ReadLine(), "");
  EXPECT_EQ(host.ReadLine(), "NO CARRIER");
  EXPECT_FALSE(rig.modem->Connected());
  EXPECT_EQ(rig.modem->Stats().carrier_losses, 1);
  EXPECT_EQ(rig.modem->LastTerminalOutcome(), CallOutcome::kDroppedLine);
  EXPECT_EQ(rig.terminal.PendingPunches(), kPunches);
}

// The escape between guard times and the hang-up after it are in the modem transcript.
TEST(HayesModemTest, PlusesWithoutGuardTimeAreDataAndTheEscapeNeedsSilence) {
  ModemRig rig(Options());
  rig.Connect();
  rig.Write("+++ATH\r");  // no guard time: all of it goes down the line
  EXPECT_TRUE(rig.QuietFor(kGuard * 3));
  EXPECT_TRUE(rig.modem->Connected());
  EXPECT_EQ(rig.modem->Stats().escapes, 0);

  rig.Write("+++");
  EXPECT_EQ(rig.ReadUntil("\r\nOK\r\n"), "\r\nOK\r\n");
  EXPECT_EQ(rig.Command("ATO"), "\r\nCONNECT 2400\r\n") << "back on line";
  EXPECT_TRUE(rig.modem->Connected());
  EXPECT_EQ(rig.modem->Stats().escapes, 1);
}

}  // namespace
}  // namespace clockcomm::sim
