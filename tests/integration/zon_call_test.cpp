// The call loop against simulated terminals and a simulated modem over real pty pairs: what the
// golden transcripts (tests/transcripts) do not show, faults and the terminal's own side.
#include <gtest/gtest.h>

#include <fstream>
#include <future>

#include "comm/pty_pair.h"
#include "core/durable_file.h"
#include "integration/call_fixture.h"
#include "sim/hayes_modem.h"
#include "sim/zon_terminal.h"
#include "zon/protocol_char.h"

namespace clockcomm::test {
namespace {

using sim::CallOutcome;
using std::chrono::milliseconds;
using std::chrono::seconds;
using terminal::InputCounters;

class ZonCallTest : public CallFixture {
 protected:
  shell::PollRow Location(const std::string& name, const std::string& phone = "") {
    shell::PollRow row;
    row.location_id = 1;
    row.location_name = name;
    row.location_phone = phone;
    row.terminal_id = "7";
    return row;
  }
};

TEST_F(ZonCallTest, AGoodPacketThatIsNoPunchIsAcknowledgedAndKeptBesideTheCallFile) {
  auto punches = Punches(3);
  punches.insert(punches.begin() + 1, "not,a,punch");
  sim::ZonTerminal terminal(sim::TerminalConfig{}, punches);
  EXPECT_EQ(HostOnce(terminal), CallOutcome::kCompleted) << screen_.All();
  EXPECT_EQ(Rows(), 3);
  const auto kept = DataFiles(".BAD");
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_NE(core::ReadWholeFile(kept[0]).find("not,a,punch"), std::string::npos);
  EXPECT_EQ(Events("Error"), 1);
  EXPECT_EQ(controller_->Snapshot().bad_input, (InputCounters{0, 0, 0, 1}));
}

TEST_F(ZonCallTest, ASecondHeaderIsAcknowledgedAndIgnored) {
  sim::TerminalConfig config;
  config.faults.second_header = true;
  sim::ZonTerminal terminal(config, Punches(3));
  EXPECT_EQ(HostOnce(terminal), CallOutcome::kCompleted) << screen_.All();
  EXPECT_TRUE(screen_.Contains("Duplicate Header Packet Ignored"));
  EXPECT_EQ(Rows(), 3);
  EXPECT_EQ(DataFiles(".TCD").size(), 1u);
}

TEST_F(ZonCallTest, AnEndOfUploadCallReceivesTheValidationTablesBeforeTheFinalEot) {
  sim::TerminalConfig config;
  config.end_with_upload = true;
  config.faults.nak_row = 2;
  sim::ZonTerminal terminal(config, Punches(2));
  EXPECT_EQ(HostOnce(terminal), CallOutcome::kCompleted) << screen_.All();
  auto tables = terminal.Tables();
  ASSERT_EQ(tables["LEVEL1"].size(), 2u);  // the inactive employee is not sent
  EXPECT_EQ(tables["LEVEL1"][0], (std::vector<std::string>{"12", "Ada Lovelace"}));
  EXPECT_EQ(tables["LEVEL2"].size(), 1u);
  EXPECT_EQ(tables["LEVEL3"].size(), 2u);
  EXPECT_EQ(terminal.Stats().row_naks_sent, 1);
  EXPECT_TRUE(screen_.Contains("Final EOT Sent"));
  EXPECT_TRUE(screen_.Contains("Downloading 2 Packets"));
  EXPECT_EQ(Rows(), 2);
}

TEST_F(ZonCallTest, EndPressedDuringACallStopsAtOnceAndTheTerminalKeepsItsPunches) {
  sim::TerminalConfig config;
  config.faults.silent_after = 2;
  sim::ZonTerminal terminal(config, Punches(5));
  auto presser = std::async(std::launch::async, [&] {
    EXPECT_TRUE(screen_.WaitFor("Uploading Packets"));
    // Give the terminal time to fall silent; the loop then waits on the line for 30 s.
    std::this_thread::sleep_for(milliseconds(200));
    controller_->PressEnd();
    return std::chrono::steady_clock::now();
  });
  HostOnce(terminal, nullptr, false, seconds(30));
  EXPECT_LT(std::chrono::steady_clock::now() - presser.get(), seconds(5)) << "End took too long";
  EXPECT_TRUE(screen_.Contains("Upload Incomplete"));
  EXPECT_TRUE(screen_.Contains("Closing Port"));
  EXPECT_EQ(terminal.PendingPunches().size(), 5u);
  EXPECT_EQ(Rows(), 0);
}

TEST_F(ZonCallTest, WhenAllCallFilesOfTheDayAreUsedTheRunEndsAndNothingIsLost) {
  const std::string day = clock_.Now().GetDate().Format("mmdd");
  for (int i = 1; i <= 9999; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "%s%04d.TCD", day.c_str(), i);
    std::ofstream(paths_->DataDirectory() / name);
  }
  sim::ZonTerminal terminal(sim::TerminalConfig{}, Punches(2));
  bool ok = true;
  // Not a clean stop: the host ends by itself and says it failed (a service manager sees it).
  EXPECT_NE(HostOnce(terminal, &ok, false), CallOutcome::kCompleted);
  EXPECT_FALSE(ok);
  EXPECT_TRUE(screen_.Contains("System error, All 9999 date files for today have been used"));
  EXPECT_EQ(Events("System error"), 1);
  EXPECT_EQ(terminal.PendingPunches().size(), 2u);
  EXPECT_EQ(Rows(), 0);
}

TEST_F(ZonCallTest, ADirectLinePollWithoutAnswerFailsAfterFiveEnquiriesAndIsNotRetried) {
  auto pty = comm::PtyPair::Open();
  auto master = pty.TakeMaster();  // nobody answers on it
  auto loop = Runner(Settings(pty.SlavePath(), false));
  EXPECT_FALSE(loop->PollLocations({Location("Nowhere")}));
  EXPECT_EQ(Events("Poll Failed, No Response to ENQ"), 1);
  EXPECT_EQ(screen_.Count("Polling Nowhere"), 1);
  const std::string sent = master->Read();
  EXPECT_EQ(std::count(sent.begin(), sent.end(), zon::ProtocolChar::kEnq), 5);
}

// A CONNECT without speed runs the call at 300; one at a carrier speed no serial port runs at
// (V.34's 33600) keeps the port's rate.
struct Connect {
  std::optional<int> speed;
  const char* shown;
};
class ModemCallTest : public ZonCallTest, public ::testing::WithParamInterface<Connect> {};

// A site's own init string answering on the second ring; End leaves the modem with auto-answer
// off, whatever the site's string said.
TEST_P(ModemCallTest, AHostedCallThroughTheModemRunsAtTheSpeedItConnectsAt) {
  sim::TerminalConfig config;
  config.faults.corrupt_packet = 1;  // refused with the framed NAK4, sent again
  sim::ZonTerminal terminal(config, Punches(3));
  sim::ModemOptions options;
  options.speed = GetParam().speed;
  options.ring_interval = milliseconds(500);
  ModemRig rig(options, terminal);
  auto settings = Settings(rig.pty.SlavePath(), true);
  settings.modem_init = "ATE1Q0V1X4S0=2";
  auto loop = Runner(settings);
  auto ring = std::async(std::launch::async, [&] {
    EXPECT_TRUE(screen_.WaitFor("Waiting for next event")) << screen_.All();
    rig.modem.IncomingCall(ModemRig::kNumber);
  });
  EXPECT_TRUE(loop->Host(true)) << screen_.All();
  ring.get();
  EXPECT_TRUE(screen_.Contains(GetParam().shown)) << screen_.All();
  EXPECT_EQ(rig.modem.Stats().rings, 2);
  EXPECT_TRUE(terminal.PendingPunches().empty());
  EXPECT_EQ(terminal.Stats().resends, 1);
  ExpectEachPunchOnce(3);
  rig.Stop();
  EXPECT_EQ(rig.modem.Register(0), 0);
}

INSTANTIATE_TEST_SUITE_P(Speeds, ModemCallTest,
                         ::testing::Values(Connect{std::nullopt, "Terminal is Connected at 300"},
                                           Connect{33600, "Terminal is Connected at 33600"}),
                         [](const auto& connect) {
                           const auto speed = connect.param.speed;
                           return speed ? "At" + std::to_string(*speed) : std::string("NoSpeed");
                         });

// Dials that fail are retried up to the third attempt; three failures give the location up.
TEST_F(ModemCallTest, AFailedDialIsRetriedUntilTheThirdAttempt) {
  for (const int failures : {2, 3}) {
    SCOPED_TRACE(failures);
    sim::TerminalConfig config;
    config.terminal_id = "7";
    sim::ZonTerminal terminal(config, Punches(2, 100 * failures));
    sim::ModemOptions options;
    options.fail_dials = failures;
    ModemRig rig(options, terminal);
    auto loop = Runner(Settings(rig.pty.SlavePath(), true));
    EXPECT_EQ(loop->PollLocations({Location("Depot", ModemRig::kNumber)}), failures < 3) << screen_.All();
    EXPECT_EQ(rig.modem.Stats().dials, 3);
    EXPECT_TRUE(screen_.Contains("Attempt #3"));
    EXPECT_EQ(terminal.PendingPunches().size(), failures < 3 ? 0u : 2u);
  }
  EXPECT_EQ(screen_.Count("Call failed: NO CARRIER"), 5);
  EXPECT_EQ(Events("Outbound Call Failed"), 5);
  EXPECT_EQ(Events("Failed to complete transfer"), 1);
  ExpectEachPunchOnce(2, 200);
}

}  // namespace
}  // namespace clockcomm::test
