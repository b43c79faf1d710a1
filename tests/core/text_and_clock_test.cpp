#include <gtest/gtest.h>

#include "core/clock.h"
#include "core/text.h"

namespace clockcomm::core {
namespace {

// Every Windows-1252 character comes back from UTF-8; what it lacks, or broken UTF-8, does not.
TEST(Text, AnsiFromUtf8IsTheInverseOfUtf8FromAnsi) {
  std::string all;
  for (int c = 1; c < 256; ++c) {
    if (c != 0x81 && c != 0x8D && c != 0x8F && c != 0x90 && c != 0x9D) all += static_cast<char>(c);
  }
  EXPECT_EQ(AnsiFromUtf8(Utf8FromAnsi(all)), all);
  for (const char* refused : {"\xF0\x9F\x98\x80", "\xC2\x81", "\xC3", "\xC0\xA9", "\xE0\x80\xA9",
                              "\x80", "\xFF", "\xE2\x82"}) {
    EXPECT_FALSE(AnsiFromUtf8(refused).has_value()) << Printable(refused);
  }
}

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
