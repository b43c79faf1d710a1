#include "sim/hayes_modem.h"

#include <gtest/gtest.h>

#include <thread>

#include "core/text.h"
#include "test_host.h"

namespace clockcomm::sim {
namespace {

using namespace std::chrono_literals;
using test::ScriptedHost;
using zon::ProtocolChar;

const std::vector<std::string> kPunches = {"2,12,,,,,I,091020,1224,,,,1",
                                           "3,12,,,,,O,091020,1705,,,,1"};
constexpr auto kGuard = 100ms;

TerminalConfig TerminalSetup() {
  TerminalConfig config;
  config.terminal_id = "101";
  config.timeouts.ack_wait = 2s;
  config.timeouts.eot_wait = 2s;
  config.timeouts.answer_wait = 2s;
  config.timeouts.poll_step_wait = 2s;
  return config;
}

ModemOptions Options() {
  ModemOptions options;
  options.guard_time = kGuard;
  options.ring_interval = 10s;  // one RING per test unless a test answers
  return options;
}

// The program's side: the modem port (a pty slave) and a modem running on its master.
class ModemRig {
 public:
  explicit ModemRig(ModemOptions options, TerminalConfig config = TerminalSetup())
      : pair_(comm::PtyPair::Open()), terminal_(std::move(config), kPunches, &stop_) {
    port_.Open(pair_.SlavePath());
    program_ = std::make_unique<comm::SerialConnection>(port_);
    modem_ = std::make_unique<HayesModem>(pair_.TakeMaster(), options, stop_);
    modem_->AddToPhoneBook("555-1234", terminal_);
    thread_ = std::thread([this] { modem_->Run(); });
  }
  ~ModemRig() {
    stop_.Request();
    thread_.join();
  }

  void Write(const std::string& text) { program_->WriteText(text); }

  // Reads until the text has come (or 2 s passed) and returns everything read.
  std::string ReadUntil(const std::string& needle, std::chrono::milliseconds wait = 2s) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (received_.find(needle) == std::string::npos) {
      if (program_->WaitForInput(deadline, {}) != comm::WaitResult::kReadable) break;
      received_ += program_->Read();
    }
    size_t at = received_.find(needle);
    size_t end = at == std::string::npos ? received_.size() : at + needle.size();
    std::string out = received_.substr(0, end);
    received_.erase(0, end);
    return out;
  }
  // True when nothing at all came during the wait.
  bool QuietFor(std::chrono::milliseconds wait) {
    if (program_->WaitForInput(std::chrono::steady_clock::now() + wait, {}) ==
        comm::WaitResult::kTimedOut) {
      return true;
    }
    received_ += program_->Read();
    return false;
  }

  std::string Command(const std::string& command) {
    Write(command + "\r");
    std::string first = ReadUntil("\r\n", 2s);  // the echo, or the blank line before the code
    return first + ReadUntil("\r\n", 2s);
  }

  comm::IConnection& Program() { return *program_; }
  HayesModem& Modem() { return *modem_; }
  ZonTerminal& Terminal() { return terminal_; }

 private:
  core::StopSignal stop_;
  comm::PtyPair pair_;
  comm::SerialLine port_;
  std::unique_ptr<comm::SerialConnection> program_;
  ZonTerminal terminal_;
  std::unique_ptr<HayesModem> modem_;
  std::thread thread_;
  std::string received_;
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
  EXPECT_EQ(rig.Modem().Stats().commands, 9);
}

// A whole call through the modem, from RING to the terminal's punches, is the modem transcript
// and the integration's host call; here the modem's own rules.
TEST(HayesModemTest, WithoutAutoAnswerItRingsUntilAnsweredByAta) {
  ModemRig rig(Options());
  EXPECT_EQ(rig.Command("ATE0S0=0"), "ATE0S0=0\r\r\nOK\r\n");
  rig.Modem().IncomingCall("5551234");
  EXPECT_EQ(rig.ReadUntil("\r\nRING\r\n"), "\r\nRING\r\n");
  EXPECT_TRUE(rig.QuietFor(100ms)) << "no answer without S0";
  rig.Write("ATA\r");
  EXPECT_EQ(rig.ReadUntil("\r\nCONNECT 2400\r\n"), "\r\nCONNECT 2400\r\n");
}

TEST(HayesModemTest, DialResultsForFailuresUnknownNumbersAndNoLine) {
  ModemOptions busy = Options();
  busy.fail_dials = 2;
  busy.fail_code = ResultCode::kBusy;
  ModemOptions unplugged = Options();
  unplugged.no_dialtone = true;
  struct Case {
    const char* legend;
    ModemOptions options;
    std::vector<std::pair<const char*, const char*>> dials;  // command, answer
  } cases[] = {
      {"failed dials, then the call",
       busy,
       {{"ATDT5551234", "\r\nBUSY\r\n"},
        {"ATDT5551234", "\r\nBUSY\r\n"},
        {"ATDT5551234", "\r\nCONNECT 2400\r\n"}}},
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
  TerminalConfig config = TerminalSetup();
  config.faults.drop_after = 1;
  ModemRig rig(Options(), config);
  EXPECT_EQ(rig.Command("ATE0S0=1"), "ATE0S0=1\r\r\nOK\r\n");
  rig.Modem().IncomingCall("5551234");
  rig.ReadUntil("\r\nCONNECT 2400\r\n");
  ScriptedHost host(rig.Program(), true);
  host.Enq();
  EXPECT_TRUE(ScriptedHost::CheckOk(host.ReadLine()));  // header
  host.Ack();
  EXPECT_TRUE(ScriptedHost::CheckOk(host.ReadLine()));  // first punch
  host.Ack();
  EXPECT_EQ(host.ReadLine(), "");
  EXPECT_EQ(host.ReadLine(), "NO CARRIER");
  EXPECT_FALSE(rig.Modem().Connected());
  EXPECT_EQ(rig.Modem().Stats().carrier_losses, 1);
  EXPECT_EQ(rig.Terminal().PendingPunches(), kPunches);
}

TEST(HayesModemTest, PlusesWithoutGuardTimeAreDataAndTheEscapeNeedsSilence) {
  ModemRig rig(Options());
  EXPECT_EQ(rig.Command("ATE0S0=1"), "ATE0S0=1\r\r\nOK\r\n");
  rig.Modem().IncomingCall("5551234");
  rig.ReadUntil("\r\nCONNECT 2400\r\n");
  rig.Write("+++ATH\r");  // no guard time: all of it goes down the line
  EXPECT_TRUE(rig.QuietFor(kGuard * 3));
  EXPECT_TRUE(rig.Modem().Connected());
  EXPECT_EQ(rig.Modem().Stats().escapes, 0);

  rig.Write("+++");
  EXPECT_EQ(rig.ReadUntil("\r\nOK\r\n"), "\r\nOK\r\n");
  EXPECT_EQ(rig.Command("ATO"), "\r\nCONNECT 2400\r\n") << "back on line";
  EXPECT_TRUE(rig.QuietFor(kGuard + 50ms));
  rig.Write("+++");
  EXPECT_EQ(rig.ReadUntil("\r\nOK\r\n"), "\r\nOK\r\n");
  EXPECT_EQ(rig.Command("ATH"), "\r\nOK\r\n");
  EXPECT_FALSE(rig.Modem().Connected());
  EXPECT_EQ(rig.Modem().LastTerminalOutcome(), CallOutcome::kLineClosed);
  const auto stats = rig.Modem().Stats();
  EXPECT_EQ(stats.escapes, 2);
  EXPECT_EQ(stats.rings, 1);
  EXPECT_EQ(stats.connects, 1);
  EXPECT_EQ(stats.hang_ups, 1);
}

}  // namespace
}  // namespace clockcomm::sim
