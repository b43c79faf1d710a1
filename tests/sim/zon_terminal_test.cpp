// The simulated terminal against a scripted host: what its calls with the real program (the
// integration tests) and a dropped line (the modem's test) do not show.
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
    "2,12,,,,,I,091020,1224,,,,1", "3,12,,,,,O,091020,1705,,,,1", "4,7,5,12,,,I,091020,0801,,,,1"};

const TerminalTimeouts kWaits = {2s, 2s, 2s, 2s, 2s, 2s};  // every wait of the terminal

// The host answers the terminal's ENQ CRLF with ENQ, then (unless told not to) takes the upload.
HostCall AnswerCallIn(ScriptedHost& host, bool upload = true) {
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kEnq));
  host.Enq();
  return upload ? host.ReceiveUpload() : HostCall{};
}

std::future<CallOutcome> StartCall(ZonTerminal& terminal, PtyLine& pty) {
  return std::async(std::launch::async, [&] { return terminal.CallIn(*pty.terminal_end); });
}

TEST(ZonTerminalTest, PacketRefusedEveryTimeEndsTheCallAfterItsResends) {
  PtyLine pty;
  ZonTerminal terminal({.max_resends = 2, .timeouts = kWaits}, kPunches);
  auto outcome = StartCall(terminal, pty);
  ScriptedHost host(*pty.host_end, false);
  AnswerCallIn(host, false);
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(host.ReadLine().empty());
    host.Nak();
  }
  EXPECT_EQ(outcome.get(), CallOutcome::kTooManyNaks);
  EXPECT_EQ(terminal.Stats().packets_sent, 3);
  EXPECT_EQ(terminal.PendingPunches(), kPunches);
}

TEST(ZonTerminalTest, AnswersOnlyAPollCarryingItsId) {
  PtyLine pty;
  ZonTerminal terminal({.upload_type = "W", .terminal_id = "7", .timeouts = kWaits}, kPunches);
  auto outcome =
      std::async(std::launch::async, [&] { return terminal.AnswerPoll(*pty.terminal_end); });
  ScriptedHost host(*pty.host_end, false, /*timeout_ms=*/300);
  host.Send(ProtocolChar::kEot);  // a stray EOT of an earlier call is no poll
  host.Enq();
  EXPECT_EQ(host.ReadLine(), std::string(1, ProtocolChar::kAck));
  host.Send(std::string(1, ProtocolChar::kStx) + "8" + ProtocolChar::kEtx);
  bool timed_out = false;
  host.ReadLine(&timed_out);
  EXPECT_TRUE(timed_out) << "another terminal's header request is not answered";
  host.Send(std::string(1, ProtocolChar::kStx) + "7" + ProtocolChar::kEtx);
  HostCall call = AnswerCallIn(host);
  host.Eot();
  EXPECT_EQ(outcome.get(), CallOutcome::kCompleted);
  EXPECT_EQ(zon::ZonHeaderPacketStatic::Parse(call.header).UploadType(), "W");
  EXPECT_EQ(call.data, kPunches);
  EXPECT_EQ(terminal.Stats().polls_answered, 1);
}

// A row with a wrong block check, and the row the terminal is told to refuse once, are answered
// NAK and taken when sent again; the punches stay until the EOT.
TEST(ZonTerminalTest, EndOfUploadTakesTheValidationTablesBeforeTheFinalEot) {
  PtyLine pty;
  ZonTerminal terminal({.end_with_upload = true, .faults = {.nak_row = 2}, .timeouts = kWaits},
                       kPunches);
  auto outcome = StartCall(terminal, pty);
  ScriptedHost host(*pty.host_end, false);
  ASSERT_TRUE(AnswerCallIn(host).end_of_upload);

  const std::string fs(1, ProtocolChar::kFs);
  auto frame = [](char lead, const std::string& body) {
    const std::string framed = std::string(1, lead) + body + ProtocolChar::kEtx;
    return framed + DownloadBlockCheck(framed);
  };
  auto send = [&](const std::string& text, char reply) {
    host.Send(text);
    EXPECT_EQ(host.ReadLine(), std::string(1, reply)) << core::Printable(text);
  };
  const std::string row1 = frame(ProtocolChar::kStx, "12" + fs + "Ann Smith");
  const std::string row2 = frame(ProtocolChar::kStx, "7" + fs + "Bob Jones");
  std::string damaged = row1;
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  send(std::string(1, ProtocolChar::kSoh) + "DOWNLOAD" + ProtocolChar::kEtx, ProtocolChar::kEnq);
  send(frame(ProtocolChar::kSoh, "LEVEL1" + fs + "2"), ProtocolChar::kAck);
  send(damaged, ProtocolChar::kNak);
  send(row1, ProtocolChar::kAck);
  send(row2, ProtocolChar::kNak);
  send(row2, ProtocolChar::kAck);
  send(frame(ProtocolChar::kSoh, "LEVEL3" + fs + "0"), ProtocolChar::kAck);
  EXPECT_EQ(terminal.PendingPunches(), kPunches) << "still no EOT";
  host.Eot();

  EXPECT_EQ(outcome.get(), CallOutcome::kCompleted);
  auto tables = terminal.Tables();
  EXPECT_EQ(tables["LEVEL1"], (Table{{"12", "Ann Smith"}, {"7", "Bob Jones"}}));
  EXPECT_TRUE(tables.contains("LEVEL3") && tables["LEVEL3"].empty());
  EXPECT_EQ(terminal.Stats().row_naks_sent, 2);
  EXPECT_TRUE(terminal.PendingPunches().empty());
}

TEST(ZonTerminalTest, PacedTerminalTakesAtLeastTheWireTimeOfItsBytes) {
  PtyLine pty;
  ZonTerminal terminal({.pace = comm::LineSettings::Parse("9600,N,8,1"), .timeouts = kWaits},
                       kPunches);
  ScriptedHost host(*pty.host_end, false);
  auto start = std::chrono::steady_clock::now();
  auto outcome = StartCall(terminal, pty);
  AnswerCallIn(host);
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
  ZonTerminal terminal({.timeouts = kWaits}, kPunches, &stop);
  auto outcome =
      std::async(std::launch::async, [&] { return terminal.AnswerPoll(*pty.terminal_end); });
  EXPECT_EQ(outcome.wait_for(50ms), std::future_status::timeout);
  stop.Request();
  EXPECT_EQ(outcome.get(), CallOutcome::kStopped);
  EXPECT_EQ(terminal.LastOutcome(), CallOutcome::kStopped);
}

}  // namespace
}  // namespace clockcomm::sim
