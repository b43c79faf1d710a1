// What a replayed or recorded conversation left behind, as the ".chk" file beside a transcript
// holds it: the call files' TCD lines, rows of [Clock Data Table], screen lines and event-log
// entries. Values are escaped as transcript bytes are.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "core/durable_file.h"
#include "core/text.h"
#include "db/open.h"
#include "integration/call_fixture.h"
#include "sim/transcript.h"

namespace clockcomm::test {

struct CallResults {
  std::vector<std::string> tcd;     // every line of the day's call files, in file order
  std::vector<std::string> rows;    // Card ID|Punch Type|Date In|Time In|Date Out|Time Out
  std::vector<std::string> screen;  // screen lines, in order
  std::vector<std::string> events;  // type|description, in order
  std::string counters;             // the bad input of the calls, as the snapshot counts it
};

inline CallResults GatherResults(const shell::MyPaths& paths, db::Database& company,
                                 const RecordingScreen& screen,
                                 const terminal::CallController& controller) {
  CallResults r;
  r.counters = controller.Snapshot().bad_input.ToString();
  std::vector<std::filesystem::path> files;
  for (const auto& e : std::filesystem::directory_iterator(paths.DataDirectory())) {
    if (e.path().extension() == ".TCD") files.push_back(e.path());
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    for (auto& line : core::Split(core::ReadWholeFile(file), '\n')) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!line.empty()) r.tcd.push_back(line);
    }
  }
  for (auto q = company.Query(
           "SELECT [Card ID], [Punch Type], [Date In], [Time In], [Date Out], [Time Out] FROM "
           "[Clock Data Table] ORDER BY ID");
       !q.Eof(); q.MoveNext()) {
    std::vector<std::string> fields;
    for (int i = 0; i < 6; ++i) fields.push_back(q.Field(i).IsNull() ? "" : q.Field(i).AsText());
    r.rows.push_back(core::Join(fields, "|"));
  }
  // The data folder is a new temporary one each run.
  std::string data = paths.DataDirectory().string();
  if (!data.empty() && data.back() == '/') data.pop_back();
  for (const auto& line : screen.Lines())
    r.screen.push_back(core::ReplaceAll(line, data, "<data>"));
  auto log = db::Open(paths.EventLogDatabase());
  for (auto q = log->Query("SELECT EventType, EventDes FROM LogTable ORDER BY Counter"); !q.Eof();
       q.MoveNext()) {
    r.events.push_back(
        core::ReplaceAll(q.Field(0).AsText() + "|" + q.Field(1).AsText(), data, "<data>"));
  }
  return r;
}

// Runs the line as the transcript's settings say: "run: poll" polls "location" (terminal id
// "terminal"), "host" hosts until the first call has ended, "host-end" until End is pressed.
inline void RunAsTranscriptSays(shell::LineRunner& loop, const sim::Transcript& transcript) {
  const std::string run = transcript.Setting("run", "host");
  if (run == "poll") {
    shell::PollRow row;
    row.location_name = transcript.Setting("location");
    row.terminal_id = transcript.Setting("terminal");
    loop.PollLocations({row});
  } else {
    loop.Host(run == "host");
  }
}

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

}  // namespace clockcomm::test
