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

// Whole transcripts are read and written back on every golden file by the replay test; here every
// byte value and the lines that are no comment, setting or step.
TEST(Transcript, BytesRoundTripAndMalformedLinesAreRefused) {
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  EXPECT_EQ(UnescapeBytes(EscapeBytes(all + " ")), all + " ");
  EXPECT_EQ(EscapeBytes("a\\b\r\n\x05 c "), "a\\\\b\\r\\n\\x05 c\\x20");
  for (const char* bad : {"\\q", "\\x1", "\\", "\\xg0"}) {
    EXPECT_THROW(UnescapeBytes(bad), core::FormatException) << bad;
  }
  for (const char* bad : {"> ok\nline: late\n", "? what\n"}) {
    EXPECT_THROW(ParseTranscript(bad), core::FormatException) << bad;
  }
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
  far->WriteText("\x06");
  far->WriteText("\r\n");  // one turn however it was written
  EXPECT_EQ(read_all(program, 3), "\x06\r\n");
  const Transcript t = tap.Finish();
  EXPECT_EQ(t.steps,
            (std::vector<TranscriptStep>{
                {Kind::kSync, "Ready"}, {Kind::kProgram, "\x05"}, {Kind::kFarEnd, "\x06\r\n"}}));
}

}  // namespace
}  // namespace clockcomm::sim
