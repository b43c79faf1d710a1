#include "sim/transcript.h"

#include <gtest/gtest.h>

#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "core/errors.h"
#include "sim/transcript_tap.h"

namespace clockcomm::sim {
namespace {

using namespace std::chrono_literals;
using Kind = TranscriptStep::Kind;

TEST(Transcript, BytesRoundTripAndEachLineIsACommentSettingOrStep) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  EXPECT_EQ(UnescapeBytes(EscapeBytes(all + " ")), all + " ");
  EXPECT_EQ(EscapeBytes("a\\b\r\n\x05 c "), "a\\\\b\\r\\n\\x05 c\\x20");
  for (const char* bad : {"\\q", "\\x1", "\\", "\\xg0"}) {
    EXPECT_THROW(UnescapeBytes(bad), core::FormatException) << bad;
  }

  Transcript t;
  t.header = {"What it shows"};
  t.settings = {{"line", "direct"}};
  t.Add(Kind::kSync, "Ready");
  t.Add(Kind::kFarEnd, "\x05\r\n");
  t.Add(Kind::kFarEnd, "1,2\r\n3");
  t.Add(Kind::kProgram, "\x06");
  ASSERT_EQ(t.steps.size(), 3u);  // the far end's two writes are one turn
  const std::string text = FormatTranscript(t);
  EXPECT_EQ(text,
            "# What it shows\nline: direct\n= Ready\n> \\x05\\r\\n\n> 1,2\\r\\n\n> 3\n< \\x06\n");
  const Transcript back = ParseTranscript(text);
  EXPECT_EQ(back.header, t.header);
  EXPECT_EQ(back.settings, t.settings);
  EXPECT_EQ(back.steps, t.steps);
  EXPECT_THROW(ParseTranscript("> ok\nline: late\n"), core::FormatException);
  EXPECT_THROW(ParseTranscript("? what\n"), core::FormatException);
}

TEST(TranscriptTap, RelaysBothWaysAndRecordsTheTurns) {
  TranscriptTap tap;
  auto far = tap.TakeFarEnd();
  comm::SerialLine port;
  port.Open(tap.ProgramPath());
  comm::SerialConnection program(port);
  auto read_all = [](comm::IConnection& from, size_t n) {
    std::string got;
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (got.size() < n && from.WaitForInput(deadline, {}) == comm::WaitResult::kReadable) {
      got += from.Read();
    }
    return got;
  };
  tap.Sync("Ready");
  program.WriteText("\x05");
  EXPECT_EQ(read_all(*far, 1), "\x05");
  far->WriteText("\x06\r\n");
  EXPECT_EQ(read_all(program, 3), "\x06\r\n");
  const Transcript t = tap.Finish();
  EXPECT_EQ(t.steps,
            (std::vector<TranscriptStep>{
                {Kind::kSync, "Ready"}, {Kind::kProgram, "\x05"}, {Kind::kFarEnd, "\x06\r\n"}}));
}

}  // namespace
}  // namespace clockcomm::sim
