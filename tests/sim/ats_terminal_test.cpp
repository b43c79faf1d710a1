// The simulated ATS terminal answering a scripted program over the stub. Its polls end to end are
// the integration's ATS poll tests.
#include "sim/ats_terminal.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <tuple>

#include "ats/ats_frame.h"
#include "comm/stub_connection.h"

namespace clockcomm::sim {
namespace {

using namespace std::chrono_literals;
constexpr int kTerminal = 4;
const std::string kEotText(1, ats::kEot);
const std::string kAck = ats::ReplyFrame(kTerminal, 1, true);
const std::string kNak = ats::ReplyFrame(kTerminal, 1, false);
std::string Probe() { return ats::EnquiryFrame(1, kTerminal, ats::kStatusEnquiry); }
std::string Poll() { return ats::EnquiryFrame(1, kTerminal, ats::kPollEnquiry); }
std::string Command(std::string_view c) { return ats::CommandFrame(1, kTerminal, c); }
std::string Reply(bool ack) { return ats::ReplyFrame(1, kTerminal, ack); }
std::string Data(std::string_view packet) {
  return ats::CommandFrame(kTerminal, kTerminal, packet);
}
std::string WithBadLrc(std::string frame) {
  frame[frame.size() - 2] ^= 1;
  return frame;
}

std::vector<ats::TCDPacket> Punches(int count, ats::Series series = ats::Series::kESeries) {
  return GenerateATSPunches(series, count, *core::Date::FromYmd(2024, 5, 6), kTerminal);
}
// The data frame of a punch the terminal numbered n (from 1).
std::string PunchFrame(ats::Series series, const ats::TCDPacket& punch, int n) {
  return Data(ats::BuildPunchPacket(ats::ModelOf(series), n, punch));
}

// The answers the line runner's polls in tests/integration/ats_poll_test.cpp cannot see: frames
// for other terminals, refused commands, the lock taking effect before its ACK, the status answer.
TEST(ATSTerminalTest, APollFrameByFrame) {
  for (auto series : {ats::Series::kESeries, ats::Series::kCyberSeries, ats::Series::kProdigy}) {
    SCOPED_TRACE(ats::SeriesName(series));
    ATSTerminal terminal({series, kTerminal, {.nak_commands = 1}}, Punches(1, series));
    const std::string punch = PunchFrame(series, terminal.PendingPunches()[0], 1);
    // The E-Series answers "what are you" with a status packet, the others with a bare EOT.
    const std::string status = series == ats::Series::kESeries ? Data("SR00") : kEotText;
    // The program's frames in turn, each with the terminal's answer.
    const std::pair<std::string, std::string> exchange[] = {
        {ats::EnquiryFrame(1, kTerminal + 1, ats::kStatusEnquiry), ""},  // another terminal's
        {ats::CommandFrame(1, kTerminal + 1, "O00"), ""},
        {Command("O00"), kNak},  // refused
        {WithBadLrc(Command("O00")), kNak},
        {Probe(), kAck},
        {Command("O00"), kAck},
        {Command("S00\x1E"), kAck + status},
        {Reply(true), ""},
        {Poll(), punch},
        {Reply(false), punch},  // refused: sent again at once
        {Reply(true), ""},
        {Poll(), kEotText},
        {Command("O10"), kAck},
    };
    comm::StubConnection line;
    std::string expected;
    for (const auto& [frame, answer] : exchange) {
      line.Push(frame);
      expected += answer;
    }
    std::vector<bool> locked_at_ack;
    line.SetResponder([&](std::string_view written) -> std::string {
      if (written == kAck) locked_at_ack.push_back(terminal.Locked());
      return {};
    });
    EXPECT_EQ(terminal.Serve(line, true), ServeOutcome::kUnlocked);
    EXPECT_EQ(line.Written(), expected);
    EXPECT_EQ(locked_at_ack, (std::vector<bool>{false, true, true, false}));
    EXPECT_TRUE(terminal.PendingPunches().empty());
    const auto s = terminal.Stats();
    // Probes, commands (refused ones too), packets sent, resends, ACKs that took a packet, NAKs,
    // polls answered "nothing left".
    EXPECT_EQ(
        std::tuple(s.probes, s.commands, s.packets_sent, s.resends, s.acks, s.naks, s.eots_sent),
        std::tuple(1, 5, 2, 1, 1, 1, 1));
  }
}

TEST(ATSTerminalTest, SilentAfterAPacketHearsNothingForAWhileAndKeepsIt) {
  core::StopSignal stop;
  const auto punches = Punches(1);
  ATSTerminal terminal({.address = kTerminal, .faults = {.silent_after = 1}, .silence = 300ms},
                       punches, &stop);
  comm::StubConnection line({Poll(), Probe()});  // the probe comes while the terminal is deaf
  auto served = std::async(std::launch::async, [&] { return terminal.Serve(line, true); });
  std::this_thread::sleep_for(1s);  // the silence is over
  for (const std::string& frame : {Probe(), Poll(), Command("O10")}) line.Push(frame);
  if (served.wait_for(5s) != std::future_status::ready) stop.Request();
  EXPECT_EQ(served.get(), ServeOutcome::kUnlocked);
  const std::string first = PunchFrame(ats::Series::kESeries, punches[0], 1);
  EXPECT_EQ(line.Written(), first + kAck + first + kAck);
}

}  // namespace
}  // namespace clockcomm::sim
