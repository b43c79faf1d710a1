#include "sim/transcript.h"

#include <gtest/gtest.h>

#include "core/errors.h"

namespace clockcomm::sim {
namespace {

// Whole transcripts are read by the replay test and written (through the tap) by the recording
// test on every golden file; here every byte value and the lines that are no comment, setting or
// step.
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

}  // namespace
}  // namespace clockcomm::sim
