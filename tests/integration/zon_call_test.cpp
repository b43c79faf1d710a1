// The Zon call loop against simulated terminals over real pty pairs, a simulated modem and TCP, and
// the driver over a scripted line in virtual time: what the golden transcripts do not show.
#include <gtest/gtest.h>

#include <fstream>
#include <future>

#include "comm/pty_pair.h"
#include "comm/stub_line.h"
#include "comm/tcp_connection.h"
#include "core/durable_file.h"
#include "integration/call_fixture.h"
#include "records/terminal_data.h"
#include "shell/lan/lan_poller.h"
#include "sim/hayes_modem.h"
#include "sim/zon_terminal.h"
#include "zon/driver/zon_driver.h"
#include "zon/packet_encoder.h"
#include "zon/protocol_char.h"

namespace clockcomm::test {
namespace {

using sim::CallOutcome;
using std::chrono::milliseconds;
using std::chrono::seconds;
using terminal::InputCounters;
using namespace std::chrono_literals;

class ZonCallTest : public CallFixture {
 protected:
  shell::PollRow Location(const std::string& name, const std::string& phone = "") {
    return {.location_id = 1, .location_name = name, .location_phone = phone, .terminal_id = "7"};
  }
};

// A good packet that is no punch is kept beside the call file; a second header is ignored. Both
// are acknowledged, and every punch goes in.
TEST_F(ZonCallTest, APacketThatIsNoPunchAndASecondHeaderAreAcknowledgedAndSetAside) {
  auto punches = Punches(3);
  punches.insert(punches.begin() + 1, "not,a,punch");
  sim::ZonTerminal terminal({.faults = {.second_header = true}}, punches);
  EXPECT_EQ(HostOnce(terminal), CallOutcome::kCompleted) << screen_.All();
  EXPECT_EQ(Rows(), 3);
  const auto kept = DataFiles(".BAD");
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_NE(core::ReadWholeFile(kept[0]).find("not,a,punch"), std::string::npos);
  EXPECT_EQ(Events("Error"), 1);
  EXPECT_EQ(controller_->Snapshot().bad_input, (InputCounters{0, 0, 0, 1}));
  EXPECT_TRUE(screen_.Contains("Duplicate Header Packet Ignored"));
  EXPECT_EQ(DataFiles(".TCD").size(), 1u);
}

// The tables themselves, byte for byte, are the validation_download transcript's; here a row the
// terminal refuses is sent again and goes in once.
TEST_F(ZonCallTest, AnEndOfUploadCallSendsARefusedTableRowAgain) {
  sim::ZonTerminal terminal({.end_with_upload = true, .faults = {.nak_row = 2}}, Punches(2));
  EXPECT_EQ(HostOnce(terminal), CallOutcome::kCompleted) << screen_.All();
  EXPECT_EQ(terminal.Tables()["LEVEL1"].size(), 2u);
  EXPECT_EQ(terminal.Stats().row_naks_sent, 1);
  EXPECT_EQ(Rows(), 2);
}

TEST_F(ZonCallTest, EndPressedDuringACallStopsAtOnceAndTheTerminalKeepsItsPunches) {
  sim::ZonTerminal terminal({.faults = {.silent_after = 2}}, Punches(5));
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
  // A packet refused with the framed NAK4 and sent again.
  sim::ZonTerminal terminal({.faults = {.corrupt_packet = 1}}, Punches(3));
  ModemRig rig({.speed = GetParam().speed, .ring_interval = milliseconds(500)}, terminal);
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
    sim::ZonTerminal terminal({.terminal_id = "7"}, Punches(2, 100 * failures));
    ModemRig rig({.fail_dials = failures}, terminal);
    auto loop = Runner(Settings(rig.pty.SlavePath(), true));
    EXPECT_EQ(loop->PollLocations({Location("Depot", ModemRig::kNumber)}), failures < 3)
        << screen_.All();
    EXPECT_EQ(rig.modem.Stats().dials, 3);
    EXPECT_TRUE(screen_.Contains("Attempt #3"));
    EXPECT_EQ(terminal.PendingPunches().size(), failures < 3 ? 0u : 2u);
  }
  EXPECT_EQ(screen_.Count("Call failed: NO CARRIER"), 5);
  EXPECT_EQ(Events("Outbound Call Failed"), 5);
  EXPECT_EQ(Events("Failed to complete transfer"), 1);
  ExpectEachPunchOnce(2, 200);
}

class VirtualTimeCallTest : public CallFixture {
 protected:
  void SetUp() override {
    CallFixture::SetUp();
    controller_ = std::make_unique<terminal::CallController>(manual_, *logs_, screen_);
  }

  // One host call on a manual clock, so that the terminal's silence passes at once: the terminal
  // says what the script holds after its ENQ CR LF.
  void Call(std::vector<std::string> script) {
    records::CallIntake intake(
        {paths_->DataDirectory(), paths_->ProgramDirectory(), paths_->CompanyRegistryDatabase()},
        *companies_, *controller_, manual_);
    records::TerminalData data(*companies_, *controller_);
    comm::StubLine line(std::move(script), &manual_);
    terminal::DriverSettings settings;
    settings.packet_timeout = 30s;
    zon::ZonDriver driver({settings, line, *controller_, intake, data});
    const auto real_start = std::chrono::steady_clock::now();
    const auto virtual_start = manual_.Steady();
    driver.Host(terminal::CallStart::kInput, std::string(1, zon::ProtocolChar::kEnq) + "\r\n");
    real_time_ = std::chrono::steady_clock::now() - real_start;
    virtual_time_ = manual_.Steady() - virtual_start;
    written_ = line.Stub().Written();
    EXPECT_EQ(driver.Calls(), 1);
  }

  std::vector<std::string> Upload(std::vector<std::string> punches) {
    std::vector<std::string> packets = {
        zon::EncodeHeader(zon::ZonHeaderPacket(kClock, 101, "TC28", "F"))};
    for (const auto& p : punches) packets.push_back(zon::EncodeData(p));
    return packets;
  }

  core::ManualClock manual_{*core::DateTime::FromParts(2009, 10, 20, 14, 0, 0)};
  std::chrono::nanoseconds real_time_{}, virtual_time_{};
  std::string written_;
};

TEST_F(VirtualTimeCallTest, ATerminalThatFallsSilentTimesOutInVirtualTimeAndLosesNothing) {
  Call(Upload(Punches(2)));
  EXPECT_TRUE(screen_.Contains("2009-10-20 14:00:30 Time out waiting for packet")) << screen_.All();
  EXPECT_TRUE(screen_.Contains("Upload Incomplete"));
  EXPECT_TRUE(screen_.Contains("File opened is: "));
  EXPECT_TRUE(
      DataFiles(".TCD").empty());  // the call's file is gone; the terminal keeps its punches
  EXPECT_EQ(controller_->Snapshot().bad_input, (InputCounters{0, 0, 1, 0}));
  EXPECT_EQ(controller_->Snapshot().good_calls, 0);
  // ENQ, then ACK for the header and both punches; no EOT.
  EXPECT_EQ(written_, "\x05\x06\x06\x06");
  EXPECT_GT(virtual_time_, 30s);
  EXPECT_LT(real_time_, 1s);
  EXPECT_EQ(Rows(), 0);
}

TEST_F(VirtualTimeCallTest, AnOverlongLineIsDroppedWholeCountedAndLogged) {
  auto script = Upload(Punches(2));
  script.insert(script.begin() + 2, std::string(5000, 'x') + "\r\n");
  script.push_back(zon::EncodeEndOfTransmission());
  Call(script);
  EXPECT_EQ(controller_->Snapshot().bad_input, (InputCounters{0, 1, 0, 0})) << screen_.All();
  EXPECT_EQ(controller_->Snapshot().good_calls, 1);
  EXPECT_EQ(Events("Error"), 1);
  EXPECT_EQ(Events("Error", "1 line(s) longer than any packet were dropped."), 1);
  EXPECT_EQ(written_, "\x05\x06\x06\x06\x04");
  EXPECT_EQ(Rows(), 2);
}

// Network terminals polled several at once, each on a line of its own; End stops the calls.
class LanPollTest : public CallFixture {
 protected:
  std::unique_ptr<shell::LanPoller> Poller(int at_once) {
    static const terminal::TerminalFamily families[] = {zon::ZonFamily()};
    auto settings = Settings("", false);
    settings.connection_type = comm::ConnectionType::kLan;
    return std::make_unique<shell::LanPoller>(settings, at_once, families, *controller_, *services_,
                                              *logs_, screen_);
  }
  static shell::PollRow Location(int64_t id, const comm::TcpListener& terminal) {
    return {.location_id = id,
            .location_name = "Dock" + std::to_string(id),
            .location_phone = "127.0.0.1:" + std::to_string(terminal.Port()),
            .terminal_id = "7"};
  }
};

TEST_F(LanPollTest, LocationsArePolledAtOnceAndEndStopsTheCallsUnderWay) {
  // Each terminal answers only once both have been reached: polled one after the other, the
  // first would never answer.
  comm::TcpListener port_a("127.0.0.1", 0), port_b("127.0.0.1", 0);
  sim::ZonTerminal terminal_a({.terminal_id = "7"}, Punches(3, 1)),
      terminal_b({.terminal_id = "7"}, Punches(3, 4));
  std::mutex mutex;
  std::condition_variable reached;
  int connected = 0;
  auto answer = [&](comm::TcpListener& port, sim::ZonTerminal& terminal) {
    auto line = port.Accept(std::chrono::steady_clock::now() + 10s);
    if (!line) return sim::CallOutcome::kNone;
    std::unique_lock lock(mutex);
    ++connected;
    reached.notify_all();
    if (!reached.wait_for(lock, 10s, [&] { return connected == 2; })) {
      return sim::CallOutcome::kNone;
    }
    lock.unlock();
    return terminal.AnswerPoll(*line);
  };
  auto a = std::async(std::launch::async, [&] { return answer(port_a, terminal_a); });
  auto b = std::async(std::launch::async, [&] { return answer(port_b, terminal_b); });
  auto poller = Poller(2);
  EXPECT_TRUE(poller->PollLocations({Location(1, port_a), Location(2, port_b)})) << screen_.All();
  EXPECT_EQ(a.get(), sim::CallOutcome::kCompleted);
  EXPECT_EQ(b.get(), sim::CallOutcome::kCompleted);
  ExpectEachPunchOnce(6);
  EXPECT_EQ(poller->GoodLocations(), 2);

  // Terminals that take the connection and never answer: End ends their polls at once.
  comm::TcpListener mute_a("127.0.0.1", 0), mute_b("127.0.0.1", 0);
  auto polls = std::async(std::launch::async, [&] {
    return poller->PollLocations({Location(3, mute_a), Location(4, mute_b)});
  });
  auto line_a = mute_a.Accept(std::chrono::steady_clock::now() + 10s);
  auto line_b = mute_b.Accept(std::chrono::steady_clock::now() + 10s);
  ASSERT_TRUE(line_a && line_b);
  const auto pressed = std::chrono::steady_clock::now();
  controller_->PressEnd();
  EXPECT_FALSE(polls.get());
  EXPECT_LT(std::chrono::steady_clock::now() - pressed, 900ms) << "no response wait waited out";
  EXPECT_EQ(Rows(), 6);
}

}  // namespace
}  // namespace clockcomm::test
