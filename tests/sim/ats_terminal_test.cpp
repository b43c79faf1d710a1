// The simulated ATS terminal over a real pty, driven by a scripted program built from the frame
// functions.
#include "sim/ats_terminal.h"

#include <gtest/gtest.h>

#include <future>

#include "ats/ats_frame.h"
#include "ats/ats_parsers.h"
#include "test_host.h"

namespace clockcomm::sim {
namespace {

using namespace std::chrono_literals;
using test::PtyLine;
constexpr int kTerminal = 4;

// The program's side: sends frames and reads the terminal's answers one at a time.
class Program {
 public:
  explicit Program(comm::IConnection& line) : line_(line) {}

  void Send(const std::string& frame) { line_.WriteText(frame); }
  std::string Ask(const std::string& frame, std::chrono::milliseconds wait = 2s) {
    Send(frame);
    return Next(wait);
  }
  // The next answer: a reply frame, a data frame (good or not), a bare EOT; empty on silence.
  std::string Next(std::chrono::milliseconds wait = 2s) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    for (;;) {
      if (!buffer_.empty()) {
        size_t length = 0;
        if (buffer_[0] == ats::kEot) {
          length = 1;
        } else if (buffer_.size() >= 5 && (buffer_[3] == ats::kAck || buffer_[3] == ats::kNak)) {
          length = 5;
        } else if (int n = ats::CheckDataFrame(buffer_); n > 0) {
          length = static_cast<size_t>(n);
        } else if (n < 0) {
          length = buffer_.find(ats::kEot) + 1;
        }
        if (length > 0) {
          std::string answer = buffer_.substr(0, length);
          buffer_.erase(0, length);
          return answer;
        }
      }
      if (line_.WaitForInput(deadline, {}) != comm::WaitResult::kReadable) return {};
      buffer_ += line_.Read();
    }
  }

 private:
  comm::IConnection& line_;
  std::string buffer_;
};

const std::string kAckReply = ats::ReplyFrame(kTerminal, 1, true);
const std::string kNakReply = ats::ReplyFrame(kTerminal, 1, false);
std::string Probe() { return ats::EnquiryFrame(1, kTerminal, ats::kStatusEnquiry); }
std::string Poll() { return ats::EnquiryFrame(1, kTerminal, ats::kPollEnquiry); }
std::string Command(std::string_view c) { return ats::CommandFrame(1, kTerminal, c); }
std::string Reply(bool ack) { return ats::ReplyFrame(1, kTerminal, ack); }

struct Running {
  Running(ATSTerminalConfig config, int punches)
      : terminal(config, GenerateATSPunches(config.series, punches,
                                            *core::Date::FromYmd(2024, 5, 6), kTerminal),
                 &stop),
        program(*pty.host_end) {
    served = std::async(std::launch::async,
                        [this] { return terminal.Serve(*pty.terminal_end, true); });
  }
  ~Running() { stop.Request(); }
  PtyLine pty;
  core::StopSignal stop;
  ATSTerminal terminal;
  Program program;
  std::future<ServeOutcome> served;
};

ATSTerminalConfig Config(ats::Series series) {
  ATSTerminalConfig c;
  c.series = series;
  c.address = kTerminal;
  return c;
}

TEST(ATSTerminalTest, APollTakesEveryPunchOnceAndUnlocks) {
  for (auto series : {ats::Series::kESeries, ats::Series::kCyberSeries, ats::Series::kProdigy}) {
    SCOPED_TRACE(ats::SeriesName(series));
    Running run(Config(series), 5);
    const auto expected = run.terminal.PendingPunches();
    // Frames for another terminal get no answer: the first answer is the probe's.
    run.program.Send(ats::EnquiryFrame(1, kTerminal + 1, ats::kPollEnquiry));
    run.program.Send(ats::CommandFrame(1, kTerminal + 1, "O00"));
    EXPECT_EQ(run.program.Ask(Probe()), kAckReply);
    EXPECT_EQ(run.program.Ask(Command("O00")), kAckReply);
    EXPECT_TRUE(run.terminal.Locked());
    EXPECT_EQ(run.program.Ask(Command("S00\x1E")), kAckReply);
    const std::string status = run.program.Next();
    if (series == ats::Series::kESeries) {
      EXPECT_EQ(ats::PacketType(status), "SR");
      run.program.Send(Reply(true));
    } else {
      EXPECT_EQ(status, std::string(1, ats::kEot));
    }
    ats::ATSModelParser parser(series);
    std::vector<ats::TCDPacket> received;
    for (int i = 0; i < 10; ++i) {
      const std::string frame = run.program.Ask(Poll());
      if (frame == std::string(1, ats::kEot)) break;
      ASSERT_GT(ats::CheckDataFrame(frame), 0);
      received.push_back(*parser.Parse(frame));
      run.program.Send(Reply(true));
    }
    EXPECT_EQ(received, expected);
    EXPECT_EQ(run.program.Ask(Command("O10")), kAckReply);
    EXPECT_EQ(run.served.get(), ServeOutcome::kUnlocked);
    EXPECT_TRUE(run.terminal.PendingPunches().empty());
    const auto s = run.terminal.Stats();
    EXPECT_EQ(s.packets_sent, 5);
    EXPECT_EQ(s.acks, 5);
    EXPECT_EQ(s.eots_sent, 1);
    EXPECT_EQ(s.commands, 3);
  }
}

TEST(ATSTerminalTest, NakOrABadLrcKeepsThePacket) {
  auto config = Config(ats::Series::kESeries);
  config.faults.bad_lrc = 1;
  config.faults.unknown_packet = true;
  Running run(config, 2);
  const auto punches = run.terminal.PendingPunches();
  ats::ATSESeriesParser parser;

  EXPECT_EQ(ats::CheckDataFrame(run.program.Ask(Poll())), -1);  // the fault's bad LRC
  // A refused packet comes again at once, without a new poll.
  EXPECT_EQ(ats::PacketType(run.program.Ask(Reply(false))), "ZZ");
  run.program.Send(Reply(true));
  const std::string first = run.program.Ask(Poll());
  EXPECT_EQ(run.program.Ask(Reply(false)), first);
  // Silence after a packet keeps it too.
  EXPECT_EQ(run.program.Ask(Poll()), first);
  run.program.Send(Reply(true));
  EXPECT_EQ(run.program.Ask(Probe()), kAckReply);  // the ACK before it has been taken
  EXPECT_EQ(parser.Parse(first), punches[0]);
  EXPECT_EQ(run.terminal.PendingPunches(), std::vector<ats::TCDPacket>{punches[1]});
  const auto s = run.terminal.Stats();
  EXPECT_EQ(s.packets_sent, 5);
  EXPECT_EQ(s.resends, 3);
  EXPECT_EQ(s.naks, 2);
  EXPECT_EQ(s.acks, 2);
}

TEST(ATSTerminalTest, NotReadyAndRefusedCommandsForAsLongAsTold) {
  auto config = Config(ats::Series::kCyberSeries);
  config.faults.not_ready = 2;
  config.faults.nak_commands = 1;
  Running run(config, 1);
  EXPECT_EQ(run.program.Ask(Probe()), kNakReply);
  EXPECT_EQ(run.program.Ask(Probe()), kNakReply);
  EXPECT_EQ(run.program.Ask(Probe()), kAckReply);
  EXPECT_EQ(run.program.Ask(Command("O00")), kNakReply);
  EXPECT_FALSE(run.terminal.Locked());
  std::string broken = Command("O00");
  broken[broken.size() - 2] ^= 1;
  EXPECT_EQ(run.program.Ask(broken), kNakReply);
  EXPECT_EQ(run.program.Ask(Command("O00")), kAckReply);
  EXPECT_TRUE(run.terminal.Locked());
  EXPECT_EQ(run.terminal.Stats().probes, 3);
}

TEST(ATSTerminalTest, SilentAfterAPacketHearsNothingForAWhileAndKeepsIt) {
  auto config = Config(ats::Series::kESeries);
  config.faults.silent_after = 1;
  config.silence = 300ms;
  Running run(config, 1);
  const std::string first = run.program.Ask(Poll());
  EXPECT_EQ(run.program.Ask(Probe(), 100ms), "");
  std::string answer;
  for (int i = 0; i < 5 && answer.empty(); ++i) answer = run.program.Ask(Probe(), 500ms);
  EXPECT_EQ(answer, kAckReply);
  EXPECT_EQ(run.program.Ask(Poll()), first);
}

TEST(ATSTerminalTest, DropAfterAPacketClosesTheLineAndKeepsIt) {
  auto config = Config(ats::Series::kProdigy);
  config.faults.drop_after = 1;
  Running run(config, 1);
  run.program.Send(Poll());
  EXPECT_EQ(run.served.get(), ServeOutcome::kDropped);
  EXPECT_EQ(run.terminal.PendingPunches().size(), 1u);
}

}  // namespace
}  // namespace clockcomm::sim
