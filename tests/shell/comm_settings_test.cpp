#include "shell/comm_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "core/durable_file.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Property;
using ::testing::StartsWith;
using ::testing::Throws;
using ::testing::ThrowsMessage;

// A refused value leaves the file as it was: the settings command's test.
TEST(CommSettingsTest, DefaultsAndEveryFieldRoundTrip) {
  test::TempDir home;
  CommSettings defaults;
  defaults.program_folder = home.path().string() + "/";
  EXPECT_EQ(ReadCommSettings(home.path()), defaults) << "no file: the defaults";
  WriteCommSettings(home.path(), CommSettings{.modem_init = ""});
  EXPECT_EQ(ReadCommSettings(home.path()).modem_init, kDefaultModemInit) << "empty: the default";

  // Every field away from its default but the end time; the folder holds a comma.
  const std::string text =
      "4,1,3,\"07:05\",\"NONE\",\"AT&F,S0=2\",\"ASCII BR/PD Format\",9,0,\"/opt/clock, main/\",96,"
      "7,12.5,#TRUE#\r\n";
  const CommSettings s = ParseCommSettings(text, "clockcomm.dta");
  EXPECT_EQ(s.program_folder, "/opt/clock, main/");
  EXPECT_EQ(s.terminal_type, terminal::TerminalType::kAtsESeries);
  WriteCommSettings(home.path(), s);
  EXPECT_EQ(core::ReadWholeFile(home.path() / "clockcomm.dta"), text);
  EXPECT_EQ(ReadCommSettings(home.path()), s);
}

// LAN, a time with "am", HandPunch by name and 11 by number are the commands' own.
TEST(CommSettingsTest, ApplySettingAcceptsNamesAndTimesAndNamesTheKeyWhenItRefuses) {
  CommSettings s;
  // Terminal types by name: 1 and 4 are fixed, the rest follow the list.
  const char* const accepted[][3] = {
      {"connection_type", "1", "1"},      {"terminal_type", "ZON / Tranz", "1"},
      {"terminal_type", "mobility", "4"}, {"terminal_type", "ATS Prodigy", "9"},
      {"end_time", "none", "NONE"},       {"auto_shutdown", "yes", "true"},
      {"terminal_count", "96", "96"},     {"terminal_count", "1", "1"},
  };
  for (const auto& [key, value, shown] : accepted) {
    ApplySetting(s, key, value);
    EXPECT_EQ(SettingText(s, key), shown) << key << "=" << value;
  }
  for (const char* text : {"0", "97", "x", ""}) {
    EXPECT_THROW(ApplySetting(s, "terminal_count", text), core::ArgumentException) << text;
  }

  struct Bad {
    const char* key;
    const char* value;
  } bad[] = {
      {"connection_type", "4"}, {"connection_type", "Telepathy"}, {"comm_port", "0"},
      {"begin_time", "25:61"},  {"end_time", "2009-10-20 08:00"}, {"export_format", "CSV"},
      {"modem_init", "AT\"Z"},  {"lan_delay_ms", "-1"},           {"auto_shutdown", "maybe"},
      {"response_wait", "-2"},  {"auto_start_mode", "4"},         {"terminal_type", "12"},
      {"colour", "blue"},
  };
  for (const Bad& b : bad) {
    CommSettings copy = s;
    EXPECT_THAT([&] { ApplySetting(copy, b.key, b.value); },
                Throws<core::ArgumentException>(
                    AllOf(Property(&core::ArgumentException::ParamName, b.key),
                          Property(&core::ArgumentException::what, HasSubstr(b.key)))))
        << b.value;
    EXPECT_EQ(copy, s) << b.key << " changed by a refused value";
  }
}

TEST(CommSettingsTest, TheThreeOperatorLinesOfAnUnwritableFolder) {
  test::TempDir home;
  const auto folder = home.path() / "missing";
  EXPECT_THAT(
      [&] { WriteCommSettings(folder, CommSettings{}); },
      ThrowsMessage<ParameterFileError>(
          AllOf(StartsWith("System Error 2: "),
                HasSubstr("\nCould not open parameter file " + (folder / "clockcomm.dta").string() +
                          "\nCheck FILES setting in CONFIG.SYS"))));
}

// A stored terminal type number is that type, whichever build wrote the file (files of the
// builds that numbered by list position read 4 as Mobility and 5 as HandPunch too); a malformed
// file is reported with its name and the field.
TEST(CommSettingsTest, ParsedFieldByField) {
  for (const char* type_field : {"1", "2", "4", "5", "11"}) {
    const std::string line = std::string("1,2,1,\"NONE\",\"NONE\",\"\",\"NONE\",3,1,\"/srv/\",1,") +
                             type_field + ",0,#FALSE#\r\n";
    const CommSettings s = ParseCommSettings(line, "clockcomm.dta");
    EXPECT_EQ(static_cast<int>(s.terminal_type), std::stoi(type_field));
    EXPECT_EQ(SettingText(s, "terminal_type"), type_field);
  }
  test::TempDir home;
  struct Case {
    const char* text;
    const char* expected;
  } cases[] = {
      {"1,2,3\r\n", "expected 14 fields, found 3"},
      {"1,2,1,\"NONE\",\"NONE\",\"\",\"NONE\",3,1,\"/x/\",200,1,0,#FALSE#\r\n",
       "field 11 (terminal_count)"},
  };
  const std::string file = (home.path() / "clockcomm.dta").string();
  for (const Case& c : cases) {
    std::ofstream(file, std::ios::binary) << c.text;
    EXPECT_THAT(
        [&] { ReadCommSettings(home.path()); },
        ThrowsMessage<core::FormatException>(AllOf(HasSubstr(file), HasSubstr(c.expected))));
  }
}

}  // namespace
}  // namespace clockcomm::shell
