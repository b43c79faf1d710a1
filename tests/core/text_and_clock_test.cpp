#include <gtest/gtest.h>

#include "core/clock.h"
#include "core/text.h"

namespace clockcomm::core {
namespace {

// A number with text after it and a fraction are the overrides' own ("2400 baud", "2.5").
TEST(Text, NumbersFromText) {
  EXPECT_EQ(LeadingNumber("  -3"), -3);
  EXPECT_EQ(LeadingNumber("-"), 0);
  EXPECT_EQ(NumberText(6), "6");
  EXPECT_EQ(NumberText(-12.25), "-12.25");
  const std::pair<const char*, std::optional<double>> numbers[] = {
      {"12a", std::nullopt},
      {" 12.5 ", 12.5},
      {"+7", 7},
      {"-0042", -42},
      {"+", std::nullopt},
      {"-", std::nullopt},
      {"+-5", -5},
      {"1e3", 1000},
      {"", std::nullopt},
      {"999999999999999", 999999999999999.0},
      {"1234567890123456", 1234567890123456.0}};
  for (const auto& [text, number] : numbers) EXPECT_EQ(ParseNumber(text), number) << text;
  EXPECT_FALSE(ParseInt("99999999999").has_value());
  EXPECT_EQ(Split("a,,b,", ',').size(), 4u);
}

// Windows-1252 bytes, written as escapes: the names are single-byte text, never UTF-8. ASCII and
// an accented clock name in the other case are the transfer command's.
TEST(Text, CaseFoldsWindows1252Letters) {
  struct Case {
    const char* a;
    const char* b;
    bool equal;
  };
  const Case cases[] = {
      {"\xC0\xDE", "\xE0\xFE", true},                  // both ends of the accented block
      {"\x8A\x8C\x8E\x9F", "\x9A\x9C\x9E\xFF", true},  // S, OE, Z with caron; Y diaeresis
      {"\xD7", "\xF7", false},                         // multiplication and division signs
      {"\xDF", "SS", false},                           // sharp s has no capital here
      {"\xC9", "E", false},                            // accents are not stripped
      {"@[", "`{", false},                             // 0x20 apart but not letters
  };
  for (const auto& c : cases) {
    EXPECT_EQ(EqualsIgnoreCase(c.a, c.b), c.equal) << Printable(c.a) << " / " << Printable(c.b);
  }
  EXPECT_EQ(ToUpper("caf\xE9 \xFF\x9A\xF7\xDF"), "CAF\xC9 \x9F\x8A\xF7\xDF");
  EXPECT_EQ(ToLower("CAF\xC9 \x9F\x8A\xD7\xB5"), "caf\xE9 \xFF\x9A\xD7\xB5");
}

// Received text goes back to single bytes only when every character has one; every byte
// Windows-1252 assigns makes the round trip.
TEST(Text, Utf8BackToWindows1252) {
  const std::pair<const char*, std::optional<std::string>> cases[] = {
      {"GATE", "GATE"},
      {"CAF\u00c9 \u20ac5 \u2122",
       "CAF\xc9 \x80"
       "5 \x99"},  // Latin-1 and the 0x80-0x9F signs
      {"\u00ff\u00a0", "\xff\xa0"},
      {"\u2603", std::nullopt},            // no byte for it
      {"\u0081", std::nullopt},            // a C1 control: unassigned in Windows-1252
      {"\xc3", std::nullopt},              // cut short
      {"\xc0\x80", std::nullopt},          // overlong NUL
      {"\xe0\x80\xa9", std::nullopt},      // overlong
      {"\x80", std::nullopt},              // a stray continuation byte
      {"\xe2\x82", std::nullopt},          // cut short
      {"\xf0\x9f\x98\x80", std::nullopt},  // outside the basic plane
      {"\xff", std::nullopt}};
  for (const auto& [utf8, ansi] : cases) EXPECT_EQ(AnsiFromUtf8(utf8), ansi) << utf8;
  for (int byte = 1; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    const std::string utf8 = Utf8FromAnsi(one);
    if (utf8 == "\xef\xbf\xbd") continue;  // unassigned: U+FFFD
    EXPECT_EQ(AnsiFromUtf8(utf8), one) << byte;
  }
}

TEST(ManualClock, SteadyTimeMovesInSubSecondStepsAndTheCalendarFollowsWholeSeconds) {
  using namespace std::chrono_literals;
  ManualClock clock(*DateTime::FromParts(2009, 10, 20, 8, 0, 0));
  StopSignal stop;
  const auto start = clock.Steady();
  clock.AdvanceTo(start + 600ms);
  EXPECT_EQ(clock.Now(), *DateTime::FromParts(2009, 10, 20, 8, 0, 0));
  EXPECT_TRUE(clock.Pause(600ms, stop));  // crosses a whole second
  EXPECT_EQ(clock.Steady(), start + 1200ms);
  EXPECT_EQ(clock.Now(), *DateTime::FromParts(2009, 10, 20, 8, 0, 1));
  clock.AdvanceTo(start);  // never back
  EXPECT_EQ(clock.Steady(), start + 1200ms);
  stop.Request();
  EXPECT_FALSE(clock.Pause(1h, stop));
  EXPECT_EQ(clock.Steady(), start + 1200ms);
}

TEST(SystemClock, WaitUntilReturnsAtOnceForAPastDeadline) {
  SystemClock clock;
  StopSignal stop;
  EXPECT_TRUE(clock.WaitUntil(clock.Now().AddSeconds(-5), stop));
  stop.Request();
  EXPECT_FALSE(clock.WaitUntil(clock.Now().AddDays(1), stop));
}

}  // namespace
}  // namespace clockcomm::core
