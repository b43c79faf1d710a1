#include "ats/ats_frame.h"

#include <gtest/gtest.h>

#include "core/errors.h"

namespace clockcomm::ats {
namespace {

TEST(ATSFrames, LrcDigitsFromZeroAndTheBytesOfEachFrame) {
  const std::pair<std::string, std::string> lrcs[] = {
      {"", "00"},
      {"?", "3?"},         // 0x3F
      {"\x01\x0B", "0:"},  // 0x0A: ':' not 'A'
      {"\xFF", "??"},      // both nibbles 15
  };
  for (const auto& [text, lrc] : lrcs) EXPECT_EQ(ATSLRCGen(text), lrc) << text;
  EXPECT_EQ(AddressChar(1), '!');
  const std::string body = "\x01!\"\x02\\A\"\x1DO00\x03";
  EXPECT_EQ(CommandFrame(1, 2, "O00"), body + ATSLRCGen(body) + "\x04");
  EXPECT_EQ(EnquiryFrame(1, 2, kStatusEnquiry), "\x05!\"S\x04");
  EXPECT_EQ(ReplyFrame(1, 2, true), "\x01!\"\x06\x04");
  EXPECT_EQ(ReplyFrame(1, 2, false), "\x01!\"\x15\x04");
  EXPECT_THROW(AddressChar(95), core::ArgumentException);
  EXPECT_THROW(AddressChar(-1), core::ArgumentException);
}

TEST(ATSFrames, CheckDataFrameCutsWholeFramesAndRefusesBrokenOnes) {
  const std::string good = CommandFrame(2, 1,
                                        "PN0010\x1E"
                                        "12\x1E"
                                        "2010201224");
  std::string bad_lrc = good;
  bad_lrc[bad_lrc.size() - 2] ^= 1;
  std::string no_gs = good;
  no_gs[7] = 'x';
  const struct {
    const char* legend;
    std::string text;
    int expected;
  } rows[] = {
      {"empty", "", 0},
      {"whole frame", good, static_cast<int>(good.size())},
      {"whole frame and the next", good + good, static_cast<int>(good.size())},
      {"cut before ETX", good.substr(0, 12), 0},
      {"cut in the LRC", good.substr(0, good.size() - 2), 0},
      {"bad LRC", bad_lrc, -1},
      {"no GS at 8", no_gs, -1},
      {"garbage first", "x" + good, -1},
      {"type too short", CommandFrame(2, 1, "P"), -1},
      {"no ETX ever", "\x01" + std::string(2000, 'a'), -1},
  };
  for (const auto& row : rows) EXPECT_EQ(CheckDataFrame(row.text), row.expected) << row.legend;
}

}  // namespace
}  // namespace clockcomm::ats
