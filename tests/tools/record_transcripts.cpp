// Records the golden transcripts of tests/transcripts anew: each scenario runs a simulator against
// the real line runner through a tap that writes down every byte, then saves the conversation
// (<name>.chat) and what it left behind (<name>.chk). Not run by ctest; see
// tests/transcripts/README.md. The replay settings are the call fixture's, so what is recorded
// here is what the replay test sees.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <thread>

#include "integration/call_fixture.h"
#include "integration/transcript_results.h"
#include "sim/hayes_modem.h"
#include "sim/transcript_tap.h"
#include "sim/zon_terminal.h"

namespace clockcomm::test {
namespace {

using namespace std::chrono_literals;
constexpr const char* kReady = "Waiting for next event";

class RecordTranscripts : public CallFixture {
 protected:
  void SetUp() override {
    CallFixture::SetUp();
    controller_ = std::make_unique<terminal::CallController>(manual_, *logs_, screen_);
  }

  // Runs the line in the transcript's mode while far_end acts on the tap's other end.
  void Record(const std::string& name, std::vector<std::string> header, sim::Transcript settings,
              const std::function<void(sim::TranscriptTap&)>& far_end) {
    sim::TranscriptTap tap;
    const bool modem = settings.Setting("line") == "modem";
    auto loop = Runner(Settings(tap.ProgramPath(), modem), controller_.get());
    auto played = std::async(std::launch::async, [&] { far_end(tap); });
    RunAsTranscriptSays(*loop, settings);
    loop_done_.Request();
    played.get();
    sim::Transcript transcript = tap.Finish();
    transcript.header = std::move(header);
    transcript.settings = settings.settings;
    const char* out = std::getenv("CLOCKCOMM_TRANSCRIPTS");
    const std::filesystem::path dir =
        out != nullptr ? out : std::string(CLOCKCOMM_SOURCE_DIR) + "/tests/transcripts";
    std::ofstream(dir / (name + ".chat"), std::ios::binary) << sim::FormatTranscript(transcript);
    CallResults results = GatherResults(*paths_, *company_db_, screen_, *controller_);
    // The transfer's own lines are the intake's tests' business; a transcript is about the call.
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
    std::ofstream(dir / (name + ".chk"), std::ios::binary) << FormatResults(results);
  }

  static sim::Transcript With(std::map<std::string, std::string> settings) {
    sim::Transcript t;
    t.settings = std::move(settings);
    return t;
  }

  // A terminal on the tap's far end that calls in once the program is ready.
  void CallIn(sim::TranscriptTap& tap, sim::ZonTerminal& terminal) {
    auto line = tap.TakeFarEnd();
    ASSERT_TRUE(screen_.WaitFor(kReady));
    tap.Sync(kReady);
    EXPECT_EQ(terminal.CallIn(*line), sim::CallOutcome::kCompleted);
  }

  core::ManualWallClock manual_{*core::DateTime::FromParts(2009, 10, 20, 14, 0, 0)};
  core::StopSignal loop_done_;
};

TEST_F(RecordTranscripts, DirectHostCall) {
  sim::ZonTerminal terminal(sim::TerminalConfig{}, Punches(3));
  Record("direct_host_call",
         {"A terminal on a direct line calls in (ENQ CR LF), the program answers ENQ; the header",
          "and three punches are each acknowledged with ACK, the end-of-transmission packet is",
          "answered with EOT once the call file is on the disk, and the punches reach the",
          "company's [Clock Data Table]."},
         With({{"line", "direct"}, {"run", "host"}}), [&](auto& tap) { CallIn(tap, terminal); });
}

TEST_F(RecordTranscripts, ModemHostCall) {
  sim::ZonTerminal terminal(sim::TerminalConfig{}, Punches(2));
  Record("modem_host_call",
         {"A terminal calls in through a Hayes modem. The far end here is the modem: it answers",
          "ATZ and the init string (echo on), reports RING and CONNECT 2400, then carries the",
          "terminal's upload; the program answers with the framed ACK4 and EOT4, escapes to",
          "command mode with +++ between guard times, hangs up with ATH, and on closing the",
          "port turns auto-answer off (S0=0)."},
         With({{"line", "modem"}, {"run", "host"}}), [&](sim::TranscriptTap& tap) {
           core::StopSignal stop;
           sim::HayesModem modem(tap.TakeFarEnd(), sim::ModemOptions{}, stop);
           modem.AddToPhoneBook("5551234", terminal);
           std::thread run([&] { modem.Run(); });
           EXPECT_TRUE(screen_.WaitFor(kReady));
           tap.Sync(kReady);
           modem.IncomingCall("5551234");
           // The modem answers until the program has closed its port.
           EXPECT_TRUE(loop_done_.WaitFor(60s));
           stop.Request();
           run.join();
           EXPECT_EQ(terminal.LastOutcome(), sim::CallOutcome::kCompleted);
         });
}

TEST_F(RecordTranscripts, DirectPoll) {
  sim::TerminalConfig config;
  config.terminal_id = "7";
  sim::ZonTerminal terminal(config, Punches(2));
  Record("direct_poll",
         {"The program polls location Dock on a direct line: ENQ is answered ACK CR LF, the",
          "header request STX 7 ETX (the location's terminal id) is answered ENQ CR LF, the",
          "program's ENQ starts the upload, which goes as in a hosted call."},
         With({{"line", "direct"}, {"run", "poll"}, {"location", "Dock"}, {"terminal", "7"}}),
         [&](sim::TranscriptTap& tap) {
           auto line = tap.TakeFarEnd();
           EXPECT_EQ(terminal.AnswerPoll(*line, sim::LineKind::kDirect,
                                         std::chrono::steady_clock::now() + 20s),
                     sim::CallOutcome::kCompleted);
         });
}

TEST_F(RecordTranscripts, NakAndResend) {
  sim::TerminalConfig config;
  config.faults.corrupt_packet = 2;
  sim::ZonTerminal terminal(config, Punches(3));
  Record("nak_resend",
         {"The second punch arrives with a wrong block check: the program answers NAK, logs",
          "\"Packet resent: \" with the packet, and acknowledges the same packet sent again; every",
          "punch is stored once."},
         With({{"line", "direct"}, {"run", "host"}}), [&](auto& tap) { CallIn(tap, terminal); });
}

TEST_F(RecordTranscripts, ValidationDownload) {
  sim::TerminalConfig config;
  config.end_with_upload = true;
  sim::ZonTerminal terminal(config, Punches(2));
  Record("validation_download",
         {"The upload ends with the end-of-upload packet (\"00\" FS ENQ): the program sends",
          "SOH DOWNLOAD ETX, and after the terminal's ENQ CR LF the tables LEVEL1 (active",
          "employees), LEVEL2 and LEVEL3, each a header and its rows with block checks, every",
          "one acknowledged; then the final EOT."},
         With({{"line", "direct"}, {"run", "host"}}), [&](auto& tap) { CallIn(tap, terminal); });
}

TEST_F(RecordTranscripts, HoursRequest) {
  // Today 08:00-12:30; the week from Monday 19 October adds 08:00-16:00; the week before not.
  sim::ZonTerminal terminal(sim::TerminalConfig{},
                            {"1,12,,,,,I,091012,0800,,,,1", "2,12,,,,,O,091012,0900,,,,1",
                             "3,12,,,,,I,091019,0800,,,,1", "4,12,,,,,O,091019,1600,,,,1",
                             "5,12,,,,,I,091020,0800,,,,1", "6,12,,,,,O,091020,1230,,,,1"});
  Record("hours_request",
         {"A terminal uploads badge 12's punches of three days, then, while the program waits for",
          "the next call, asks for that badge's hours (ENQ HRS FS 12 FS yymmddhhmm): the answer is",
          "the name, today's hours (08:00-12:30) and the weekly pay period's (yesterday's",
          "08:00-16:00 too, last week's not), FS between them. A badge nobody has is answered",
          "with the reason. The far end presses End after the answers."},
         With({{"line", "direct"}, {"run", "host-end"}}), [&](sim::TranscriptTap& tap) {
           auto line = tap.TakeFarEnd();
           EXPECT_TRUE(screen_.WaitFor(kReady));
           tap.Sync(kReady);
           EXPECT_EQ(terminal.CallIn(*line), sim::CallOutcome::kCompleted);
           EXPECT_TRUE(terminal.RequestHours(*line, 12, manual_.Now()).has_value());
           EXPECT_TRUE(terminal.RequestHours(*line, 99, manual_.Now()).has_value());
           controller_->PressEnd();
         });
}

}  // namespace
}  // namespace clockcomm::test
