// The golden conversations of tests/transcripts against the real line runner on a manual clock.
// Beside each <name>.chat, <name>.chk holds what the conversation left behind.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "core/durable_file.h"
#include "core/text.h"
#include "db/open.h"
#include "integration/call_fixture.h"
#include "sim/hayes_modem.h"
#include "sim/transcript.h"
#include "sim/transcript_tap.h"
#include "sim/zon_terminal.h"

namespace clockcomm::test {

const std::filesystem::path kTranscripts =
    std::filesystem::path(CLOCKCOMM_SOURCE_DIR) / "tests" / "transcripts";

struct CallResults {
  std::vector<std::string> tcd;     // every line of the day's call files, in file order
  std::vector<std::string> rows;    // Card ID|Punch Type|Date In|Time In|Date Out|Time Out
  std::vector<std::string> screen;  // screen lines, in order
  std::vector<std::string> events;  // type|description, in order
  std::string counters;             // the bad input of the calls, as the snapshot counts it
};

inline std::string FormatResults(const CallResults& r) {
  std::string out;
  auto section = [&](const char* comment, const char* key, const std::vector<std::string>& v) {
    out += std::string("# ") + comment + "\n";
    for (const auto& line : v) out += std::string(key) + ": " + sim::EscapeBytes(line) + "\n";
  };
  section("TCD lines of the call files (all of them)", "tcd", r.tcd);
  section("[Clock Data Table]: Card ID|Punch Type|Date In|Time In|Date Out|Time Out (all rows)",
          "row", r.rows);
  section("Screen lines that must appear, in this order", "screen", r.screen);
  section("Event log entries that must appear, in this order: type|description", "event", r.events);
  section("Bad input counted on the line", "counters", {r.counters});
  return out;
}

inline CallResults ParseResults(const std::string& text) {
  CallResults r;
  for (auto& line : core::Split(text, '\n')) {
    const auto colon = line.find(": ");
    if (line.empty() || line[0] == '#' || colon == std::string::npos) continue;
    const std::string key = line.substr(0, colon);
    std::string value = sim::UnescapeBytes(line.substr(colon + 2));
    if (key == "counters") {
      r.counters = std::move(value);
      continue;
    }
    auto* list = key == "tcd"      ? &r.tcd
                 : key == "row"    ? &r.rows
                 : key == "screen" ? &r.screen
                 : key == "event"  ? &r.events
                                   : nullptr;
    if (list == nullptr) throw core::FormatException("Unknown result line: " + line);
    list->push_back(std::move(value));
  }
  return r;
}

// A recorded conversation's simulated terminal; its header and settings are those of its .chat
// (write them first for a new one).
struct Scenario {
  std::string name;
  sim::TerminalConfig terminal;
  int punch_count = 0;               // of the fixture's punches, unless punches are given
  std::vector<std::string> punches;  // else
  bool ask_hours = false;  // after the call: badge 12's hours and an unknown badge's, then End
};

inline std::vector<Scenario> Scenarios() {
  // Badge 12: today 08:00-12:30; the week from Monday 19 October adds 08:00-16:00; the week before
  // not.
  const std::vector<std::string> hours = {
      "1,12,,,,,I,091012,0800,,,,1", "2,12,,,,,O,091012,0900,,,,1", "3,12,,,,,I,091019,0800,,,,1",
      "4,12,,,,,O,091019,1600,,,,1", "5,12,,,,,I,091020,0800,,,,1", "6,12,,,,,O,091020,1230,,,,1"};
  return {{"direct_host_call", {}, 3},
          {"modem_host_call", {}, 2},
          {"direct_poll", {.terminal_id = "7"}, 2},
          {"nak_resend", {.faults = {.corrupt_packet = 2}}, 3},
          {"validation_download", {.end_with_upload = true}, 2},
          {"hours_request", {}, 0, hours, true}};
}

inline std::string ScenarioName(const testing::TestParamInfo<Scenario>& scenario) {
  return scenario.param.name;
}
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

class TranscriptFixture : public CallFixture {
 protected:
  void SetUp() override {
    CallFixture::SetUp();
    controller_ = std::make_unique<terminal::CallController>(manual_, *logs_, screen_);
  }

  // Runs the line on device as the settings say while far_end plays the other side, and returns
  // what far_end returned. "run: poll" polls "location" (terminal id "terminal"), "host" hosts
  // until the first call has ended, "host-end" until End is pressed.
  template <typename FarEnd>
  auto RunLine(const std::string& device, const sim::Transcript& settings, FarEnd far_end) {
    auto loop = Runner(Settings(device, settings.Setting("line") == "modem"), controller_.get());
    auto played = std::async(std::launch::async, std::move(far_end));
    const std::string run = settings.Setting("run", "host");
    if (run == "poll") {
      shell::PollRow row;
      row.location_name = settings.Setting("location");
      row.terminal_id = settings.Setting("terminal");
      loop->PollLocations({row});
    } else {
      loop->Host(run == "host");
    }
    loop_done_.Request();
    return played.get();
  }

  CallResults Results() {
    CallResults r;
    r.counters = controller_->Snapshot().bad_input.ToString();
    auto files = DataFiles(".TCD");
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      for (auto& line : core::Split(core::ReadWholeFile(file), '\n')) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) r.tcd.push_back(line);
      }
    }
    for (auto q = company_db_->Query(
             "SELECT [Card ID], [Punch Type], [Date In], [Time In], [Date Out], [Time Out] FROM "
             "[Clock Data Table] ORDER BY ID");
         !q.Eof(); q.MoveNext()) {
      std::vector<std::string> fields;
      for (int i = 0; i < 6; ++i) fields.push_back(q.Field(i).AsText());  // null: ""
      r.rows.push_back(core::Join(fields, "|"));
    }
    // The data folder is a new temporary one each run.
    std::string data = paths_->DataDirectory().string();
    if (!data.empty() && data.back() == '/') data.pop_back();
    for (const auto& line : screen_.Lines()) {
      r.screen.push_back(core::ReplaceAll(line, data, "<data>"));
    }
    auto log = db::Open(paths_->EventLogDatabase());
    for (auto q = log->Query("SELECT EventType, EventDes FROM LogTable ORDER BY Counter"); !q.Eof();
         q.MoveNext()) {
      r.events.push_back(
          core::ReplaceAll(q.Field(0).AsText() + "|" + q.Field(1).AsText(), data, "<data>"));
    }
    return r;
  }

  // Runs the scenario's simulators against the line through a tap that writes down every byte, and
  // saves the conversation and what it left behind into dir.
  void Record(const Scenario& s, const std::filesystem::path& dir) {
    const sim::Transcript golden =
        sim::ParseTranscript(core::ReadWholeFile(kTranscripts / (s.name + ".chat")));
    sim::ZonTerminal terminal(s.terminal, s.punches.empty() ? Punches(s.punch_count) : s.punches);
    sim::TranscriptTap tap;
    RunLine(tap.ProgramPath(), golden, [&] {
      if (golden.Setting("line") == "modem") return ThroughModem(tap, terminal);
      auto line = tap.TakeFarEnd();
      if (golden.Setting("run") == "poll") {
        EXPECT_EQ(terminal.AnswerPoll(*line, sim::LineKind::kDirect,
                                      std::chrono::steady_clock::now() + std::chrono::seconds(20)),
                  sim::CallOutcome::kCompleted);
        return;
      }
      EXPECT_TRUE(screen_.WaitFor(kReady));
      tap.Sync(kReady);
      EXPECT_EQ(terminal.CallIn(*line), sim::CallOutcome::kCompleted);
      if (s.ask_hours) {
        EXPECT_TRUE(terminal.RequestHours(*line, 12, manual_.Now()).has_value());
        EXPECT_TRUE(terminal.RequestHours(*line, 99, manual_.Now()).has_value());
        controller_->PressEnd();
      }
    });
    sim::Transcript transcript = tap.Finish();
    transcript.header = golden.header;
    transcript.settings = golden.settings;
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

  // The far end is a modem with the terminal behind it, answering until the loop has ended.
  void ThroughModem(sim::TranscriptTap& tap, sim::ZonTerminal& terminal) {
    core::StopSignal stop;
    sim::HayesModem modem(tap.TakeFarEnd(), sim::ModemOptions{}, stop);
    modem.AddToPhoneBook("5551234", terminal);
    std::thread run([&] { modem.Run(); });
    EXPECT_TRUE(screen_.WaitFor(kReady));
    tap.Sync(kReady);
    modem.IncomingCall("5551234");
    EXPECT_TRUE(loop_done_.WaitFor(std::chrono::seconds(60)));
    stop.Request();
    run.join();
    EXPECT_EQ(terminal.LastOutcome(), sim::CallOutcome::kCompleted);
  }

  static constexpr const char* kReady = "Waiting for next event";
  core::ManualWallClock manual_{*core::DateTime::FromParts(2009, 10, 20, 14, 0, 0)};
  core::StopSignal loop_done_;  // set once the loop has returned
};

}  // namespace clockcomm::test
