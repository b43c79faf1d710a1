// The program's side of the ATS conversation against a terminal scripted here with the frame
// functions: in virtual time over the stub, and once over a pty in real time.
#include "ats/ats_communicator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <thread>

#include "ats/ats_frame.h"
#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "comm/stub_connection.h"
#include "core/durable_file.h"
#include "test_support/temp_dir.h"

namespace clockcomm::ats {
namespace {

using ::testing::HasSubstr;

constexpr int kTerminal = 5;

struct RecordingLog : core::LogSink {
  std::vector<std::pair<std::string, std::string>> events;
  std::vector<std::string> screen, debug;
  void Event(std::string_view type, std::string_view des) override {
    events.emplace_back(type, des);
  }
  void Debug(std::string_view, std::string_view m) override { debug.emplace_back(m); }
  void Screen(std::string_view m) override { screen.emplace_back(m); }
};

std::string Reply(bool ack) { return ReplyFrame(kTerminal, 1, ack); }
std::string Data(std::string_view packet) { return CommandFrame(kTerminal, kTerminal, packet); }
const std::string kEotText(1, kEot);

// A terminal behind the stub: answers each frame the program writes, as the protocol has it.
struct ScriptedTerminal {
  int busy_probes = 0;       // status enquiries answered NAK before the first ACK
  int refused_commands = 0;  // commands answered NAK before one is taken
  bool silent = false;       // answers nothing at all
  std::string after_what_are_you = kEotText;
  std::deque<std::string> poll_answers;  // one per 'P'; "" = silence
  int probes = 0;
  std::vector<std::string> commands;

  std::string operator()(std::string_view written) {
    if (silent) return {};
    if (written == EnquiryFrame(1, kTerminal, kStatusEnquiry)) {
      return Reply(++probes > busy_probes);
    }
    if (written == EnquiryFrame(1, kTerminal, kPollEnquiry)) {
      if (poll_answers.empty()) return kEotText;
      std::string next = std::move(poll_answers.front());
      poll_answers.pop_front();
      return next;
    }
    if (!written.empty() && written[0] == kSoh && written.size() > 5) {
      const std::string command(written.substr(kTypeOffset, written.find(kEtx) - kTypeOffset));
      commands.push_back(command);
      if (static_cast<int>(commands.size()) <= refused_commands) return Reply(false);
      return Reply(true) + (command == std::string("S00") + kRs ? after_what_are_you : "");
    }
    return {};  // ACK / NAK replies of the program
  }
};

class CommunicatorTest : public ::testing::Test {
 protected:
  CommunicatorTest() {
    stub.SetResponder([this](std::string_view w) { return terminal(w); });
  }
  core::ManualClock clock;
  comm::StubConnection stub{{}, &clock};
  core::StopSignal stop;
  RecordingLog log;
  test::TempDir dir;
  DataSentLog sent{dir.path(), clock, log};
  ATSSerialConnection connection{stub, clock, stop, kTerminal, "Front", "/dev/ttyS0"};
  ScriptedTerminal terminal;
  ATSCommunicator comm{connection, kTerminal, clock, log, stop, sent};

  size_t Count(std::string_view what) const {
    const std::string written = stub.Written();
    size_t n = 0;
    for (size_t at = written.find(what); at != std::string::npos; at = written.find(what, at + 1))
      ++n;
    return n;
  }
};

TEST_F(CommunicatorTest, CommandsAreSentOnceTakenAndLoggedBeforeSending) {
  struct Row {
    int busy_probes, refused;
    size_t probes, frames;
  };
  const Row rows[] = {
      {0, 0, 1, 1},
      {5, 0, 6, 1},  // busy for five probes, then ready: the command goes once
      {0, 1, 2, 2},  // NAKed, then taken at the next attempt
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.busy_probes * 10 + row.refused);
    terminal = ScriptedTerminal{.busy_probes = row.busy_probes, .refused_commands = row.refused};
    const std::string before = stub.Written();
    ASSERT_TRUE(comm.LockATSClock());
    const std::string written = stub.Written().substr(before.size());
    auto count = [&](const std::string& what) {
      size_t n = 0;
      for (size_t at = written.find(what); at != std::string::npos; at = written.find(what, at + 1))
        ++n;
      return n;
    };
    EXPECT_EQ(count(EnquiryFrame(1, kTerminal, kStatusEnquiry)), row.probes);
    EXPECT_EQ(count(CommandFrame(1, kTerminal, "O00")), row.frames);
  }
  EXPECT_TRUE(log.events.empty());
  const std::string logged = core::ReadWholeFile(dir.path() / DataSentLog::kFileName);
  EXPECT_THAT(logged, HasSubstr("2009-10-20 00:00"));
  EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), 4);
}

TEST_F(CommunicatorTest, ANeverReadyTerminalGetsNoCommandAndIsReported) {
  terminal.silent = true;
  const auto start = clock.Steady();
  EXPECT_FALSE(comm.UnlockATSClock());
  EXPECT_EQ(Count(EnquiryFrame(1, kTerminal, kStatusEnquiry)), 20u * 20u);
  EXPECT_EQ(Count(CommandFrame(1, kTerminal, "O10")), 0u);
  // 20 attempts of 20 probes of 20 reads of 10 ms, and 19 rests of 100 ms between them.
  EXPECT_EQ(clock.Steady() - start, std::chrono::milliseconds(20 * 20 * 20 * 10 + 19 * 100));
  ASSERT_EQ(log.events.size(), 1u);
  EXPECT_EQ(log.events[0].first, "Terminal Not Ready - Command Not Sent");
  ASSERT_EQ(log.screen.size(), 1u);
  EXPECT_THAT(log.screen[0], HasSubstr("Terminal Not Ready - Command Not Sent"));
  EXPECT_LT(stub.ReadCalls(), 1000);  // every wait blocked; none spun
}

TEST_F(CommunicatorTest, ClockTypeIsAskedOnceAndTheStatusPacketAcknowledged) {
  EXPECT_EQ(comm.GetClockType(), "CyberSeries");
  EXPECT_EQ(comm.GetClockType(), "CyberSeries");
  EXPECT_EQ(terminal.commands.size(), 1u);

  ATSCommunicator other{connection, kTerminal, clock, log, stop, sent};
  terminal.after_what_are_you = Data("SR0001");
  EXPECT_EQ(other.GetClockType(), "ESeries");
  EXPECT_EQ(stub.Written().substr(stub.Written().size() - 5), ReplyFrame(1, kTerminal, true));
}

TEST_F(CommunicatorTest, GetPacketOutcomes) {
  const std::string punch = Data(
      "PN0010\x1E"
      "12\x1E"
      "2010201224");
  std::string bad_lrc = punch;
  bad_lrc[bad_lrc.size() - 2] ^= 1;
  struct Row {
    const char* name;
    std::vector<std::string> answers;  // what the terminal sends, one string per read
    std::string resent;                // what it sends again on each NAK
    std::string result;
    std::string replies;  // the program's ACK/NAK frames, in order
    terminal::InputCounters counters;
  };
  const std::string ack = ReplyFrame(1, kTerminal, true), nak = ReplyFrame(1, kTerminal, false);
  const Row rows[] = {
      {"good", {punch}, "", punch, ack, {}},
      {"in pieces", {punch.substr(0, 7), punch.substr(7)}, "", punch, ack, {}},
      {"bad LRC then good", {bad_lrc}, punch, punch, nak + ack, {.bad_block_check = 1}},
      {"cut short then good", {punch.substr(0, 9)}, punch, punch, nak + ack, {.bad_length = 1}},
      {"silent", {}, "", "", "", {.timeouts = 1}},
      {"bare EOT", {kEotText}, "", "", "", {}},
      {"garbage first", {"x" + punch}, punch, punch, nak + ack, {.bad_block_check = 1}},
      {"broken every time", {bad_lrc}, bad_lrc, "", nak + nak + nak + nak, {.bad_block_check = 4}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    core::ManualClock row_clock;
    comm::StubConnection line({}, &row_clock);
    for (const auto& a : row.answers) line.Push(a);
    line.SetResponder([&](std::string_view w) { return w == nak ? row.resent : ""; });
    ATSLineConnection c(line, row_clock, stop, kTerminal, "Front");
    ATSCommunicator ats(c, kTerminal, row_clock, log, stop, sent);
    const auto start = row_clock.Steady();
    EXPECT_EQ(ats.GetPacket(true), row.result);
    EXPECT_EQ(line.Written(), row.replies);
    EXPECT_EQ(ats.Counters(), row.counters);
    // A silent terminal ends a read within a few seconds.
    EXPECT_LE(row_clock.Steady() - start, std::chrono::milliseconds(1500));
  }
}

TEST_F(CommunicatorTest, StoreRunsBeforeTheAckAndARefusalIsNaked) {
  const std::string punch = Data("PK2410201224");
  for (const bool stored : {true, false}) {
    terminal.poll_answers = {punch};
    const size_t before = stub.Written().size();
    comm.Poll();
    bool called = false;
    const std::string got = comm.GetPacket(true, [&](const std::string& frame) {
      called = true;
      EXPECT_EQ(frame, punch);
      EXPECT_EQ(stub.Written().substr(before), EnquiryFrame(1, kTerminal, kPollEnquiry));
      return stored;
    });
    EXPECT_TRUE(called);
    EXPECT_EQ(got, stored ? punch : "");
    EXPECT_EQ(comm.StoreRefused(), !stored);
    EXPECT_EQ(stub.Written().substr(stub.Written().size() - 5), ReplyFrame(1, kTerminal, stored));
  }
}

TEST_F(CommunicatorTest, PacketsAreClassifiedAndUnknownOnesReportedAndAcknowledged) {
  const std::pair<std::string, PacketKind> rows[] = {
      {"PN001", PacketKind::kPunch}, {"PB24", PacketKind::kPunch},  {"PK24", PacketKind::kPunch},
      {"SR01", PacketKind::kKnown},  {"BS", PacketKind::kKnown},    {"MB", PacketKind::kKnown},
      {"PX", PacketKind::kUnknown},  {"ZZ9", PacketKind::kUnknown}, {"P", PacketKind::kUnknown},
  };
  for (const auto& [packet, kind] : rows) EXPECT_EQ(ClassifyPacket(Data(packet)), kind) << packet;

  const std::string odd = Data("QQ123");
  terminal.poll_answers = {odd};
  comm.Poll();
  EXPECT_EQ(comm.GetPacket(true), odd);
  ASSERT_EQ(log.events.size(), 1u);
  EXPECT_EQ(log.events[0].first, "Unknown Packet Recieved");
  EXPECT_EQ(log.events[0].second, "Unknown ATS Packet (Clock 5):" + odd.substr(8));
  EXPECT_EQ(comm.Counters().unknown_packets, 1u);
  EXPECT_EQ(stub.Written().substr(stub.Written().size() - 5), ReplyFrame(1, kTerminal, true));
}

// Over a real line in real time: a terminal on the pty's far end, on its own thread, answers each
// frame the program writes once its EOT has arrived.
TEST(CommunicatorOverPty, LockPollAndAcknowledge) {
  auto pty = comm::PtyPair::Open();
  comm::SerialLine serial;
  serial.SetSettings(kATSLineSettings);
  serial.Open(pty.SlavePath());
  auto far = pty.TakeMaster();
  comm::SerialConnection line(serial);
  core::SystemClock clock;
  core::StopSignal stop;
  core::NullLogSink log;
  DataSentLog sent({}, clock, log);
  ATSSerialConnection connection(line, clock, stop, kTerminal, "Front", pty.SlavePath());
  ATSCommunicator comm(connection, kTerminal, clock, log, stop, sent);
  const std::string punch = Data(
      "PN0010\x1E"
      "12\x1E"
      "2010201224");

  std::string heard;
  std::thread terminal([&] {
    ScriptedTerminal script{.busy_probes = 2, .poll_answers = {punch}};
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::string partial;
    while (heard.find(ReplyFrame(1, kTerminal, true)) == std::string::npos &&
           far->WaitForInput(until, {}) == comm::WaitResult::kReadable) {
      const std::string text = far->Read();
      heard += text;
      partial += text;
      for (size_t eot; (eot = partial.find(kEot)) != std::string::npos;) {
        far->WriteText(script(partial.substr(0, eot + 1)));
        partial.erase(0, eot + 1);
      }
    }
  });
  EXPECT_TRUE(comm.Connect());
  EXPECT_TRUE(comm.LockATSClock());
  comm.Poll();
  EXPECT_EQ(comm.GetPacket(true), punch);
  terminal.join();
  EXPECT_THAT(heard, HasSubstr(CommandFrame(1, kTerminal, "O00")));
}

}  // namespace
}  // namespace clockcomm::ats
