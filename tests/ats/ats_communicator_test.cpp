// The ATS conversation against a terminal scripted here with the frame functions, in virtual time
// over the stub: the communicator's commands and packet reads, and the driver's call into a real
// intake, each packet durable before its ACK leaves.
#include "ats/ats_communicator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <functional>

#include "ats/ats_frame.h"
#include "ats/driver/ats_driver.h"
#include "ats/driver/ats_family.h"
#include "comm/stub_line.h"
#include "core/durable_file.h"
#include "records/intake/call_state.h"
#include "records/transfer_fixture.h"

namespace clockcomm::ats {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr int kTerminal = 7;
const std::string kEotText(1, kEot);
std::string Data(std::string_view packet) { return CommandFrame(kTerminal, kTerminal, packet); }
std::string Probe() { return EnquiryFrame(1, kTerminal, kStatusEnquiry); }
std::string PollFrame() { return EnquiryFrame(1, kTerminal, kPollEnquiry); }
std::string ProgramReply(bool ack) { return ReplyFrame(1, kTerminal, ack); }
std::string TerminalReply(bool ack) { return ReplyFrame(kTerminal, 1, ack); }

size_t Count(std::string_view text, std::string_view what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// A terminal behind the stub: answers each frame the program writes, as the protocol has it.
struct ScriptedTerminal {
  int busy_probes = 0;       // status enquiries answered NAK before the first ACK
  int refused_commands = 0;  // commands answered NAK before one is taken
  bool silent = false;       // answers nothing at all
  std::string after_what_are_you = kEotText;
  std::deque<std::string> queue;  // the oldest goes on each poll until an ACK takes it
  std::function<void()> on_ack;
  int probes = 0;
  std::vector<std::string> commands;

  std::string operator()(std::string_view written) {
    if (silent) return {};
    if (written == Probe()) return TerminalReply(++probes > busy_probes);
    if (written == PollFrame()) return queue.empty() ? kEotText : queue.front();
    if (written == ProgramReply(true)) {
      if (on_ack) on_ack();
      if (!queue.empty()) queue.pop_front();
    } else if (written.size() > 5 && written[0] == kSoh) {
      commands.emplace_back(written.substr(kTypeOffset, written.find(kEtx) - kTypeOffset));
      const bool taken = static_cast<int>(commands.size()) > refused_commands;
      return TerminalReply(taken) +
             (taken && commands.back() == "S00\x1E" ? after_what_are_you : "");
    }
    return {};
  }
};

// An E-Series punch frame of the badge.
std::string Punch(const std::string& badge) {
  return Data("PN0010" + std::string(1, kRs) + badge + kRs + "2410201224");
}

struct NullScreen : terminal::ScreenSink {
  void Line(std::string_view) override {}
  void Status(std::string_view) override {}
  void AppendStatus(std::string_view) override {}
};

class ATSTest : public ::testing::Test, public records::test_support::TransferFixture {
 protected:
  ATSTest() {
    stub.SetResponder([this](std::string_view w) { return terminal(w); });
    companies.Initialize(registry_path);
    std::filesystem::create_directory(dir.path() / "data");
  }
  std::string LastWritten() const { return stub.Written().substr(stub.Written().size() - 5); }

  comm::StubLine line{{}, &clock};
  comm::StubConnection& stub = line.Stub();
  core::StopSignal stop;
  DataSentLog sent{dir.path(), clock, log};
  ATSSerialConnection connection{stub, clock, stop, kTerminal, "Front", "/dev/ttyS0"};
  ScriptedTerminal terminal;
  ATSCommunicator comm{connection, kTerminal, clock, log, stop, sent};
  // The driver's call.
  records::CompanyFactory companies{log, dir.path()};
  records::CallIntake intake{
      {dir.path() / "data", dir.path(), registry_path}, companies, log, clock};
  NullScreen screen;
  terminal::CallController controller{clock, log, screen};
  records::TerminalData data{companies, log};
};

TEST_F(ATSTest, CommandsWaitForReadinessGoAgainWhenRefusedAndAreLoggedEachTime) {
  const struct {
    int busy_probes, refused;
    size_t probes, frames;  // written
  } rows[] = {{5, 0, 6, 1}, {0, 1, 2, 2}};
  for (const auto& [busy, refused, probes, frames] : rows) {
    terminal = ScriptedTerminal{.busy_probes = busy, .refused_commands = refused};
    const size_t before = stub.Written().size();
    ASSERT_TRUE(comm.LockATSClock());
    const std::string written = stub.Written().substr(before);
    EXPECT_EQ(Count(written, Probe()), probes) << busy << refused;
    EXPECT_EQ(Count(written, CommandFrame(1, kTerminal, "O00")), frames) << busy << refused;
  }
  // The clock type is asked once; an E-Series terminal's status packet is acknowledged.
  EXPECT_EQ(comm.GetClockType(), "CyberSeries");
  EXPECT_EQ(comm.GetClockType(), "CyberSeries");
  ATSCommunicator eseries{connection, kTerminal, clock, log, stop, sent};
  terminal.after_what_are_you = Data("SR0001");
  EXPECT_EQ(eseries.GetClockType(), "ESeries");
  EXPECT_EQ(LastWritten(), ProgramReply(true));
  EXPECT_TRUE(log.events.empty());
  const std::string logged = core::ReadWholeFile(dir.path() / DataSentLog::kFileName);
  EXPECT_THAT(logged, HasSubstr("2009-10-21 09:00"));
  EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), 5);
}

TEST_F(ATSTest, ANeverReadyTerminalGetsNoCommandAndIsReported) {
  terminal.silent = true;
  const auto start = clock.Steady();
  EXPECT_FALSE(comm.UnlockATSClock());
  EXPECT_EQ(Count(stub.Written(), Probe()), 20u * 20u);
  EXPECT_EQ(Count(stub.Written(), CommandFrame(1, kTerminal, "O10")), 0u);
  // 20 attempts of 20 probes of 20 reads of 10 ms, and 19 rests of 100 ms between them.
  EXPECT_EQ(clock.Steady() - start, std::chrono::milliseconds(20 * 20 * 20 * 10 + 19 * 100));
  EXPECT_THAT(log.events,
              ElementsAre("Terminal Not Ready - Command Not Sent: Clock 7, command O10"));
  EXPECT_THAT(log.screen, ElementsAre(HasSubstr("Terminal Not Ready - Command Not Sent")));
  EXPECT_LT(stub.ReadCalls(), 1000);  // every wait blocked; none spun
}

TEST_F(ATSTest, GetPacketOutcomes) {
  const std::string punch = Punch("12");
  std::string bad_lrc = punch;
  bad_lrc[bad_lrc.size() - 2] ^= 1;
  struct Row {
    const char* name;
    std::vector<std::string> answers;  // what the terminal sends, one string per read
    std::string resent;                // what it sends again on each NAK
    std::string result;
    std::string replies;  // the program's ACK/NAK frames, in order
    terminal::InputCounters counters;
    bool stored = true;  // what the store says of a good frame
  };
  const std::string ack = ProgramReply(true), nak = ProgramReply(false);
  const Row rows[] = {
      {"in pieces", {punch.substr(0, 7), punch.substr(7)}, "", punch, ack, {}},
      {"cut short then good", {punch.substr(0, 9)}, punch, punch, nak + ack, {.bad_length = 1}},
      {"silent", {}, "", "", "", {.timeouts = 1}},
      {"bare EOT", {kEotText}, "", "", "", {}},
      {"garbage first", {"x" + punch}, punch, punch, nak + ack, {.bad_block_check = 1}},
      {"broken every time", {bad_lrc}, bad_lrc, "", nak + nak + nak + nak, {.bad_block_check = 4}},
      {"refused by the store", {punch}, "", "", nak, {}, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    comm::StubConnection line({}, &clock);
    for (const auto& a : row.answers) line.Push(a);
    line.SetResponder([&](std::string_view w) { return w == nak ? row.resent : ""; });
    ATSLineConnection c(line, clock, stop, kTerminal, "Front");
    ATSCommunicator ats(c, kTerminal, clock, log, stop, sent);
    const auto start = clock.Steady();
    const auto store = [&](const std::string&) {
      // Stored before the terminal hears of it: only the replies to broken frames went before.
      EXPECT_EQ(line.Written(), row.replies.substr(0, row.replies.size() - 5));
      return row.stored;
    };
    EXPECT_EQ(ats.GetPacket(true, store), row.result);
    EXPECT_EQ(ats.StoreRefused(), !row.stored);
    EXPECT_EQ(line.Written(), row.replies);
    EXPECT_EQ(ats.Counters(), row.counters);
    // A silent terminal ends a read within a few seconds.
    EXPECT_LE(clock.Steady() - start, std::chrono::milliseconds(1500));
  }
}

TEST(ATSPackets, PunchesKnownAndUnknownTypes) {
  const std::pair<std::string, PacketKind> kinds[] = {
      {"PN001", PacketKind::kPunch}, {"PB24", PacketKind::kPunch},  {"PK24", PacketKind::kPunch},
      {"SR01", PacketKind::kKnown},  {"BS", PacketKind::kKnown},    {"MB", PacketKind::kKnown},
      {"PX", PacketKind::kUnknown},  {"ZZ9", PacketKind::kUnknown}, {"P", PacketKind::kUnknown},
  };
  for (const auto& [packet, kind] : kinds) EXPECT_EQ(ClassifyPacket(Data(packet)), kind) << packet;
}

TEST_F(ATSTest, TheDriverKeepsEveryPacketBeforeItsAckAndDeliversThePunches) {
  // What the terminal forgets at each ACK is already stored, and the call's file durable.
  std::vector<int> records_at_ack;
  std::vector<bool> pending_at_ack;
  terminal.on_ack = [&] {
    records_at_ack.push_back(intake.RecordCount());
    pending_at_ack.push_back(
        std::filesystem::exists(records::StateMarker(intake.File(), records::CallState::kPending)));
  };
  terminal.queue = {Punch("12"), Data("SR01"), Data("QQ"), Punch("bad"), Punch("13")};
  const auto driver = ATSFamily().make_driver({{}, line, controller, intake, data});
  EXPECT_EQ(driver->PortSettings(), "9600,O,7,2");
  EXPECT_TRUE(driver->Poll({"Front", "", "7", terminal::TerminalType::kAtsESeries}, ""));
  EXPECT_TRUE(terminal.queue.empty());
  EXPECT_EQ(records_at_ack, (std::vector<int>{1, 1, 1, 1, 2}));
  EXPECT_EQ(pending_at_ack, std::vector<bool>(5, true));
  EXPECT_EQ(Rows("[Card ID]"), (std::vector<std::string>{"12", "13"}));
  EXPECT_TRUE(driver->LastCallSucceeded());
  EXPECT_EQ(driver->LastClockName(), "Front");
  EXPECT_THAT(log.events, Contains("Unknown Packet Recieved: Unknown ATS Packet (Clock 7):" +
                                   Data("QQ").substr(kTypeOffset))
                              .Times(1));
  const auto written = stub.Written();
  // Locked before the first poll, unlocked after the last.
  EXPECT_LT(written.find(CommandFrame(1, kTerminal, "O00")), written.find(PollFrame()));
  EXPECT_GT(written.find(CommandFrame(1, kTerminal, "O10")), written.rfind(PollFrame()));
  std::vector<std::filesystem::path> kept;
  for (const auto& e : std::filesystem::directory_iterator(dir.path() / "data")) {
    if (e.path().extension() == ".BAD") kept.push_back(e.path());
  }
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_THAT(core::ReadWholeFile(kept[0]),
              AllOf(HasSubstr("unknown ATS packet"), HasSubstr("bad badge")));
}

TEST_F(ATSTest, BadAddressesAndAMissingReaderFailTheDriversCallWithoutAcknowledging) {
  for (const char* id : {"95", "x", "-1"}) {
    const auto driver = ATSFamily().make_driver({{}, line, controller, intake, data});
    EXPECT_FALSE(driver->Poll({"Front", "", id}, "")) << id;
    EXPECT_EQ(stub.Written(), "") << id;
  }
  terminal.queue = {Punch("12")};
  ATSDriver driver({{}, line, controller, intake, data}, {});
  EXPECT_FALSE(driver.Poll({"Front", "", "7"}, ""));
  EXPECT_EQ(terminal.queue.size(), 1u);  // refused: still on the terminal
  EXPECT_EQ(RowCount(), 0);
  EXPECT_THAT(stub.Written(), HasSubstr(ProgramReply(false)));
}

}  // namespace
}  // namespace clockcomm::ats
