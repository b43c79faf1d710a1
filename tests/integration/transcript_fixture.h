// The golden conversations of tests/transcripts, replayed by transcript_test.cpp and recorded by
// tests/tools/record_transcripts.cpp, both against the real line runner on a manual wall clock.
// Beside each <name>.chat, <name>.chk holds what the conversation left behind: the call files'
// TCD lines, rows of [Clock Data Table], screen lines and event-log entries, escaped as transcript
// bytes are.
#pragma once

#include <algorithm>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "core/durable_file.h"
#include "core/text.h"
#include "db/open.h"
#include "integration/call_fixture.h"
#include "sim/transcript.h"

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
      for (int i = 0; i < 6; ++i) fields.push_back(q.Field(i).IsNull() ? "" : q.Field(i).AsText());
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

  core::ManualWallClock manual_{*core::DateTime::FromParts(2009, 10, 20, 14, 0, 0)};
  core::StopSignal loop_done_;  // set once the loop has returned
};

}  // namespace clockcomm::test
