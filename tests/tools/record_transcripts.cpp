// Records the golden transcripts of tests/transcripts anew: each scenario runs a simulator against
// the real line runner through a tap that writes down every byte, then saves the conversation
// (<name>.chat) and what it left behind (<name>.chk), into $CLOCKCOMM_TRANSCRIPTS when set. The
// header and settings of each are those of its .chat in tests/transcripts (write them first for a
// new scenario). Not run by ctest; see tests/transcripts/README.md.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <thread>

#include "integration/transcript_fixture.h"
#include "sim/hayes_modem.h"
#include "sim/transcript_tap.h"
#include "sim/zon_terminal.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;
using sim::CallOutcome;
constexpr const char* kReady = "Waiting for next event";

struct Scenario {
  std::string name;
  sim::TerminalConfig terminal;
  int punch_count = 0;               // of the fixture's punches, unless punches are given
  std::vector<std::string> punches;  // else
  bool ask_hours = false;  // after the call: badge 12's hours and an unknown badge's, then End
};

std::vector<Scenario> Scenarios() {
  sim::TerminalConfig poll, nak, download;
  poll.terminal_id = "7";
  nak.faults.corrupt_packet = 2;
  download.end_with_upload = true;
  // Badge 12: today 08:00-12:30; the week from Monday 19 October adds 08:00-16:00; the week before
  // not.
  const std::vector<std::string> hours = {
      "1,12,,,,,I,091012,0800,,,,1", "2,12,,,,,O,091012,0900,,,,1", "3,12,,,,,I,091019,0800,,,,1",
      "4,12,,,,,O,091019,1600,,,,1", "5,12,,,,,I,091020,0800,,,,1", "6,12,,,,,O,091020,1230,,,,1"};
  return {{"direct_host_call", {}, 3},
          {"modem_host_call", {}, 2},
          {"direct_poll", poll, 2},
          {"nak_resend", nak, 3},
          {"validation_download", download, 2},
          {"hours_request", {}, 0, hours, true}};
}

class RecordTranscripts : public TranscriptFixture, public ::testing::WithParamInterface<Scenario> {
 protected:
  // The far end is a modem with the terminal behind it, answering until the loop has ended.
  void ThroughModem(sim::TranscriptTap& tap, sim::ZonTerminal& terminal) {
    core::StopSignal stop;
    sim::HayesModem modem(tap.TakeFarEnd(), sim::ModemOptions{}, stop);
    modem.AddToPhoneBook("5551234", terminal);
    std::thread run([&] { modem.Run(); });
    EXPECT_TRUE(screen_.WaitFor(kReady));
    tap.Sync(kReady);
    modem.IncomingCall("5551234");
    EXPECT_TRUE(loop_done_.WaitFor(60s));
    stop.Request();
    run.join();
    EXPECT_EQ(terminal.LastOutcome(), CallOutcome::kCompleted);
  }
};

TEST_P(RecordTranscripts, Record) {
  const Scenario& s = GetParam();
  const sim::Transcript golden =
      sim::ParseTranscript(core::ReadWholeFile(kTranscripts / (s.name + ".chat")));
  sim::ZonTerminal terminal(s.terminal, s.punches.empty() ? Punches(s.punch_count) : s.punches);
  sim::TranscriptTap tap;
  RunLine(tap.ProgramPath(), golden, [&] {
    if (golden.Setting("line") == "modem") return ThroughModem(tap, terminal);
    auto line = tap.TakeFarEnd();
    if (golden.Setting("run") == "poll") {
      EXPECT_EQ(terminal.AnswerPoll(*line, sim::LineKind::kDirect,
                                    std::chrono::steady_clock::now() + 20s),
                CallOutcome::kCompleted);
      return;
    }
    EXPECT_TRUE(screen_.WaitFor(kReady));
    tap.Sync(kReady);
    EXPECT_EQ(terminal.CallIn(*line), CallOutcome::kCompleted);
    if (s.ask_hours) {
      EXPECT_TRUE(terminal.RequestHours(*line, 12, manual_.Now()).has_value());
      EXPECT_TRUE(terminal.RequestHours(*line, 99, manual_.Now()).has_value());
      controller_->PressEnd();
    }
  });
  sim::Transcript transcript = tap.Finish();
  transcript.header = golden.header;
  transcript.settings = golden.settings;
  const char* out = std::getenv("CLOCKCOMM_TRANSCRIPTS");
  const std::filesystem::path dir = out != nullptr ? out : kTranscripts;
  std::ofstream(dir / (s.name + ".chat"), std::ios::binary) << sim::FormatTranscript(transcript);

  // The transfer's own lines are the intake's tests' business; a transcript is about the call.
  CallResults results = Results();
  auto transfer_line = [](const std::string& line) {
    for (const char* text : {"record(s) in batch.", "Start of data transfer",
                             "Start of Data Transfer", "Data transferred to the archive file.",
                             "Transfer for clock", "Deleting history files", "Event Complete."}) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  };
  std::erase_if(results.screen, transfer_line);
  std::erase_if(results.events, transfer_line);
  std::ofstream(dir / (s.name + ".chk"), std::ios::binary) << FormatResults(results);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, RecordTranscripts, ::testing::ValuesIn(Scenarios()),
                         [](const auto& scenario) { return scenario.param.name; });

}  // namespace
}  // namespace clockcomm::test
