#include "sim/zon_terminal.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "core/text.h"
#include "sim/host_message.h"
#include "test_host.h"
#include "zon/zon_header_packet.h"

namespace clockcomm::sim {
namespace {

using test::HostCall;
using test::PtyLine;
using test::ScriptedHost;
using zon::ProtocolChar;
using namespace std::chrono_literals;

const std::vector<std::string> kPunches = {
    "2,12,,,,,I,091020,1224,,,,1",
    "3,12,,,,,O,091020,1705,,,,1",
    "4,7,5,12,,,I,091020,0801,,,,1",
};

TerminalConfig ShortWaits(TerminalConfig config = {}) {
  config.timeouts.ack_wait = 2s;
  config.timeouts.eot_wait = 2s;
  config.timeouts.answer_wait = 2s;
  config.timeouts.poll_step_wait = 2s;
  config.timeouts.download_wait = 2s;
  config.timeouts.hours_wait = 2s;
  return config;
}

// The host answers the terminal's ENQ CRLF with ENQ, then takes the upload.
HostCall AnswerCallIn(ScriptedHost& host) {
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kEnq));
  host.Enq();
  return host.ReceiveUpload();
}

std::future<CallOutcome> StartCall(ZonTerminal& terminal, PtyLine& pty) {
  return std::async(std::launch::async, [&] { return terminal.CallIn(*pty.terminal_end); });
}

std::string Frame(char lead, const std::string& body) {
  std::string covered = body + ProtocolChar::kEtx;
  std::string frame = std::string(1, lead) + covered;
  return frame + DownloadBlockCheck(frame);
}

// Packet 0 is the header, 1.. the data packets; a corrupted one is refused and resent once.
TEST(ZonTerminalTest, CallInUploadsHeaderAndPunchesResendsWhatIsRefusedAndForgetsThemOnEot) {
  struct Case {
    const char* legend;
    bool framed;
    std::optional<int> corrupt;
  } cases[] = {
      {"single characters", false, std::nullopt},
      {"framed ACK4/EOT4", true, std::nullopt},
      {"header corrupted", false, 0},
      {"first punch corrupted, framed", true, 1},
      {"last punch corrupted", false, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.legend);
    PtyLine pty;
    TerminalConfig config = ShortWaits();
    config.faults.corrupt_packet = c.corrupt;
    ZonTerminal terminal(config, kPunches);
    auto outcome = StartCall(terminal, pty);
    ScriptedHost host(*pty.host_end, c.framed);
    HostCall call = AnswerCallIn(host);

    const int resent = c.corrupt ? 1 : 0;
    EXPECT_EQ(zon::ZonHeaderPacketStatic::Parse(call.header),
              zon::ZonHeaderPacket("DEMODATA", 101, "TC28", "F"));
    EXPECT_EQ(call.headers, 1);
    EXPECT_EQ(call.data, kPunches) << "a resent packet takes its place, nothing twice";
    EXPECT_EQ(call.bad_checks, resent);
    EXPECT_TRUE(call.end_of_transmission);
    EXPECT_TRUE(terminal.PendingPunches() == kPunches) << "punches go only when EOT comes";
    host.Eot();

    EXPECT_EQ(outcome.get(), CallOutcome::kCompleted);
    EXPECT_TRUE(terminal.PendingPunches().empty());
    auto stats = terminal.Stats();
    EXPECT_EQ(stats.packets_sent, 4 + resent);
    EXPECT_EQ(stats.acks_received, 4);
    EXPECT_EQ(stats.eots_received, 1);
    EXPECT_EQ(stats.naks_received, resent);
    EXPECT_EQ(stats.resends, resent);
  }
}

// Faults on the program's answers, each once: a lost ACK is waited out and a stray NAK answered at
// once, both by sending the packet again; a missed EOT keeps the punches for the next call.
TEST(ZonTerminalTest, LostAckStrayNakAndMissedEotAreSurvivedByResending) {
  struct Case {
    const char* name;
    void (*fault)(TerminalFaults&);
    int naks_seen;
    bool waited;  // the ACK wait passed before the resend
  };
  const std::vector<std::string> twice = {kPunches[0], kPunches[1], kPunches[1], kPunches[2]};
  for (const Case& c :
       {Case{"lost ACK", [](TerminalFaults& f) { f.lose_ack = 2; }, 0, true},
        Case{"stray NAK", [](TerminalFaults& f) { f.stray_nak = 2; }, 1, false},
        Case{"missed EOT", [](TerminalFaults& f) { f.miss_eot = true; }, 0, false}}) {
    SCOPED_TRACE(c.name);
    PtyLine pty;
    TerminalConfig config = ShortWaits();
    config.timeouts.ack_wait = 1s;
    c.fault(config.faults);
    const bool miss_eot = config.faults.miss_eot;
    ZonTerminal terminal(config, kPunches);
    ScriptedHost host(*pty.host_end, false);
    const auto start = std::chrono::steady_clock::now();
    auto outcome = StartCall(terminal, pty);
    HostCall call = AnswerCallIn(host);
    EXPECT_EQ(std::chrono::steady_clock::now() - start >= 1s, c.waited);
    host.Eot();
    EXPECT_EQ(call.data, miss_eot ? kPunches : twice);
    EXPECT_EQ(terminal.Stats().naks_received, c.naks_seen);
    EXPECT_EQ(terminal.Stats().resends, miss_eot ? 0 : 1);
    EXPECT_EQ(outcome.get(), miss_eot ? CallOutcome::kNoEot : CallOutcome::kCompleted);
    if (!miss_eot) {
      EXPECT_TRUE(terminal.PendingPunches().empty());
      continue;
    }
    EXPECT_EQ(terminal.PendingPunches(), kPunches);
    auto second = StartCall(terminal, pty);
    EXPECT_EQ(AnswerCallIn(host).data, kPunches);
    host.Eot();
    EXPECT_EQ(second.get(), CallOutcome::kCompleted);
    EXPECT_TRUE(terminal.PendingPunches().empty());
  }
}

TEST(ZonTerminalTest, PacketRefusedEveryTimeEndsTheCallAfterItsResends) {
  PtyLine pty;
  TerminalConfig config = ShortWaits();
  config.max_resends = 2;
  ZonTerminal terminal(config, kPunches);
  auto outcome = StartCall(terminal, pty);
  ScriptedHost host(*pty.host_end, false);
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kEnq));
  host.Enq();
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(host.ReadLine().empty());
    host.Nak();
  }
  EXPECT_EQ(outcome.get(), CallOutcome::kTooManyNaks);
  EXPECT_EQ(terminal.Stats().packets_sent, 3);
  EXPECT_EQ(terminal.PendingPunches(), kPunches);
}

TEST(ZonTerminalTest, DroppedLineIsSeenByTheHostAndKeepsThePunches) {
  PtyLine pty;
  TerminalConfig config = ShortWaits();
  config.faults.drop_after = 1;
  ZonTerminal terminal(config, kPunches);
  ScriptedHost host(*pty.host_end, false);
  auto outcome = StartCall(terminal, pty);
  EXPECT_THROW(AnswerCallIn(host), comm::ConnectionClosedError);
  EXPECT_EQ(outcome.get(), CallOutcome::kDroppedLine);
  EXPECT_EQ(terminal.PendingPunches(), kPunches);
}

TEST(ZonTerminalTest, AnswersOnlyAPollCarryingItsId) {
  PtyLine pty;
  TerminalConfig config = ShortWaits();
  config.terminal_id = "7";
  config.upload_type = "W";
  ZonTerminal terminal(config, kPunches);
  auto outcome =
      std::async(std::launch::async, [&] { return terminal.AnswerPoll(*pty.terminal_end); });
  ScriptedHost host(*pty.host_end, false, /*timeout_ms=*/300);
  // A stray EOT of an earlier call is no poll.
  host.Send(std::string(1, ProtocolChar::kEot));
  host.Enq();
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kAck));
  host.Send(std::string(1, ProtocolChar::kStx) + "8" + ProtocolChar::kEtx);
  bool timed_out = false;
  host.ReadLine(&timed_out);
  EXPECT_TRUE(timed_out) << "another terminal's header request is not answered";
  host.Send(std::string(1, ProtocolChar::kStx) + "7" + ProtocolChar::kEtx);
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kEnq));
  host.Enq();
  HostCall call = host.ReceiveUpload();
  host.Eot();
  EXPECT_EQ(outcome.get(), CallOutcome::kCompleted);
  EXPECT_EQ(zon::ZonHeaderPacketStatic::Parse(call.header).UploadType(), "W");
  EXPECT_EQ(call.data, kPunches);
  EXPECT_EQ(terminal.Stats().polls_answered, 1);
}

TEST(ZonTerminalTest, EndOfUploadTakesTheValidationTablesBeforeTheFinalEot) {
  PtyLine pty;
  TerminalConfig config = ShortWaits();
  config.end_with_upload = true;
  config.faults.nak_row = 2;
  ZonTerminal terminal(config, kPunches);
  auto outcome = StartCall(terminal, pty);
  ScriptedHost host(*pty.host_end, false);
  ASSERT_TRUE(AnswerCallIn(host).end_of_upload);

  const std::string fs(1, ProtocolChar::kFs);
  auto send = [&](const std::string& frame, char reply) {
    host.Send(frame);
    EXPECT_EQ(host.ReadLine(), std::string(1, reply)) << core::Printable(frame);
  };
  const std::string row2 = Frame(ProtocolChar::kStx, "7" + fs + "Bob Jones");
  std::string damaged = Frame(ProtocolChar::kStx, "5" + fs + "Kitchen");
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  send(std::string(1, ProtocolChar::kSoh) + "DOWNLOAD" + ProtocolChar::kEtx, ProtocolChar::kEnq);
  send(Frame(ProtocolChar::kSoh, "LEVEL1" + fs + "2"), ProtocolChar::kAck);
  send(Frame(ProtocolChar::kStx, "12" + fs + "Ann Smith"), ProtocolChar::kAck);
  send(row2, ProtocolChar::kNak);  // told to refuse row 2 once
  send(row2, ProtocolChar::kAck);
  send(Frame(ProtocolChar::kSoh, "LEVEL2" + fs + "1"), ProtocolChar::kAck);
  send(damaged, ProtocolChar::kNak);  // a wrong block check is refused
  send(Frame(ProtocolChar::kStx, "5" + fs + "Kitchen"), ProtocolChar::kAck);
  send(Frame(ProtocolChar::kSoh, "LEVEL3" + fs + "0"), ProtocolChar::kAck);
  EXPECT_EQ(terminal.PendingPunches(), kPunches) << "still no EOT";
  host.Eot();

  EXPECT_EQ(outcome.get(), CallOutcome::kCompleted);
  auto tables = terminal.Tables();
  EXPECT_EQ(tables["LEVEL1"], (Table{{"12", "Ann Smith"}, {"7", "Bob Jones"}}));
  EXPECT_EQ(tables["LEVEL2"], (Table{{"5", "Kitchen"}}));
  EXPECT_TRUE(tables.contains("LEVEL3") && tables["LEVEL3"].empty());
  EXPECT_EQ(terminal.Stats().row_naks_sent, 2);
  EXPECT_TRUE(terminal.PendingPunches().empty());
}

TEST(ZonTerminalTest, UnansweredHoursRequestGivesNothingAfterItsWait) {
  PtyLine pty;
  TerminalConfig config = ShortWaits();
  config.timeouts.hours_wait = 200ms;
  ZonTerminal terminal(config, {});
  EXPECT_FALSE(
      terminal.RequestHours(*pty.terminal_end, 9, *core::DateTime::FromParts(2020, 10, 20, 12, 24))
          .has_value());
  EXPECT_TRUE(terminal.HoursReplies().empty());
}

TEST(ZonTerminalTest, PacedTerminalTakesAtLeastTheWireTimeOfItsBytes) {
  PtyLine pty;
  TerminalConfig config = ShortWaits();
  config.pace = comm::LineSettings::Parse("9600,N,8,1");
  ZonTerminal terminal(config, kPunches);
  ScriptedHost host(*pty.host_end, false);
  auto start = std::chrono::steady_clock::now();
  auto outcome = StartCall(terminal, pty);
  HostCall call = AnswerCallIn(host);
  auto elapsed = std::chrono::steady_clock::now() - start;
  host.Eot();
  EXPECT_EQ(outcome.get(), CallOutcome::kCompleted);
  auto stats = terminal.Stats();
  // Ten bits a byte at 9600 bit/s.
  EXPECT_EQ(stats.wire_time, std::chrono::nanoseconds(1'041'666) * stats.bytes_sent);
  EXPECT_GE(elapsed, stats.wire_time);
  EXPECT_GT(stats.bytes_sent, 100u);
}

TEST(ZonTerminalTest, StopSignalEndsAWaitForAPollAtOnce) {
  PtyLine pty;
  core::StopSignal stop;
  ZonTerminal terminal(ShortWaits(), kPunches, &stop);
  auto outcome =
      std::async(std::launch::async, [&] { return terminal.AnswerPoll(*pty.terminal_end); });
  EXPECT_EQ(outcome.wait_for(50ms), std::future_status::timeout);
  stop.Request();
  EXPECT_EQ(outcome.get(), CallOutcome::kStopped);
  EXPECT_EQ(terminal.LastOutcome(), CallOutcome::kStopped);
}

}  // namespace
}  // namespace clockcomm::sim
