// The communications settings file, and the setup commands run through the built binary.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "core/durable_file.h"
#include "shell/comm_settings.h"
#include "shell/event_log.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Property;
using ::testing::StartsWith;
using ::testing::Throws;
using ::testing::ThrowsMessage;

// A refused value leaves the file as it was (the settings command's test); an empty modem string
// read back as the default is the setup API's.
TEST(CommSettingsTest, DefaultsAndEveryFieldRoundTrip) {
  test::TempDir home;
  CommSettings defaults;
  defaults.program_folder = home.path().string() + "/";
  EXPECT_EQ(ReadCommSettings(home.path()), defaults) << "no file: the defaults";

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

// A stored terminal type number is that type, whichever build wrote it; a malformed file is
// reported with its name and the field.
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

class SetupCommandsTest : public ::testing::Test {
 protected:
  // A run that must succeed (status 0) or fail (any other status given).
  test::CommandResult Run(const std::string& args, int status = 0, const std::string& input = "") {
    auto r = test::RunClockcomm(home_, args, input);
    if (status == 0) {
      EXPECT_EQ(r.exit_code, 0) << args << "\n" << r.err;
    } else {
      EXPECT_NE(r.exit_code, 0) << args;
    }
    return r;
  }
  test::TempDir tmp_;
  const std::filesystem::path home_ = tmp_.path() / "home";
};

TEST_F(SetupCommandsTest, InitSetAndShowWithValidation) {
  Run("init");
  EXPECT_THAT(Run("init", 1).err, HasSubstr("--force"));
  std::ofstream(home_ / "registry.ini", std::ios::app) << "[Ports]\nCOM1 /dev/ttyUSB0\n";
  EXPECT_THAT(Run("init --force").err,
              HasSubstr("\"COM1 /dev/ttyUSB0\" is neither [section] nor name=value; the line is "
                        "ignored; init --force did not keep it\n"));

  const std::string before = core::ReadWholeFile(home_ / "clockcomm.dta");
  EXPECT_EQ(Run("settings set comm_port=3 terminal_count=97", 1).err,
            "Please enter a value between 1 and 96 for Terminal Count\n");
  EXPECT_EQ(core::ReadWholeFile(home_ / "clockcomm.dta"), before);
  EXPECT_EQ(
      Run("settings set comm_port=3 connection_type=LAN begin_time=7:00am end_time=18:00").out,
      "Communications set for: Comm Port 3, LAN, starting at 07:00, ending at 18:00.\n");

  // The warning for a terminal type not served yet is the call commands'.
  Run("settings set comm_port=2 terminal_type=HandPunch");
  const std::string registry = (home_ / "registry.ini").string();
  const std::string overrides = (home_ / "SettingsOverride.txt").string();
  const std::string text = core::ReadWholeFile(registry);
  const auto bad_port_line = std::count(text.begin(), text.end(), '\n') + 3;
  std::ofstream(registry, std::ios::app) << "\n[Ports]\nCOM1 /dev/ttyUSB0\nCOM3=/dev/ttyUSB1\n";
  core::WriteFileAtomically(overrides, "eotquantity = 5\r\nassignhomedept = yse\r\n");

  const auto r = Run("settings show");
  // The texts of the warnings are the files' own tests'; here they reach stderr, naming the line.
  EXPECT_THAT(r.err,
              AllOf(HasSubstr("clockcomm: warning: " + registry + " line " +
                              std::to_string(bad_port_line) + ": \"COM1 /dev/ttyUSB0\""),
                    HasSubstr("clockcomm: warning: " + overrides + " line 2: assignhomedept")));
  for (const std::string& shown : std::vector<std::string>{
           "DataDir=" + home_.string() + "/data/\n",
           "auto_shutdown=false  # kept for the time-card application only\n",
           "terminal_type=5  # HandPunch, not served yet\n",
           // the broken COM1 line maps nothing; COM2 is the settings' port
           "\n[Ports]\nCOM2=/dev/ttyS1  # default\n"
           "COM3=/dev/ttyUSB1\n",
           "\n[" + overrides + "]\nserialportrate=9600  # default\n",
           "\neotquantity=5\neotinterval=0.1  # default\nassignhomedept=no  # default\n"}) {
    EXPECT_THAT(r.out, HasSubstr(shown));
  }
}

TEST_F(SetupCommandsTest, LogPurgeAsksUnlessYesAndPrintPaginates) {
  Run("init");
  {
    auto log = EventLog::Open(home_ / "data/TCLOG.db");
    log->Write(*core::DateTime::FromParts(2009, 10, 20, 8), "Dock", 2, "Start of call", "one");
    log->Write(*core::DateTime::FromParts(2009, 10, 21, 8), "Dock", 2, "End of call", "two");
  }
  EXPECT_THAT(
      Run("log show --from 2009-10-20 --to 2009-10-20").out,
      AllOf(HasSubstr("2009-10-20 08:00:00\tDock\t2\tStart of call\tone"), Not(HasSubstr("two"))));
  EXPECT_THAT(Run("log purge --from 2009-10-20 --to 2009-10-20", 1, "n\n").out,
              HasSubstr("Confirm Deletion\nPurge From 2009/10/20 to 2009/10/20. Are you sure?"));
  Run("log purge --from 2009-10-20 --to 2009-10-20 --yes");
  EXPECT_THAT(Run("log print --from 2009-10-01 --to 2009-10-31").out,
              AllOf(StartsWith("For Period 2009/10/01 to 2009/10/31\nPage 1\n"),
                    Not(HasSubstr("one")), HasSubstr(" two\n")));
  for (const char* bad : {"--from 2009-02-30 --to 2009-03-01", "--from 2009-03-02 --to 2009-03-01",
                          "--to 2009-03-01"}) {
    Run(std::string("log show ") + bad, 1);
  }
}

// backup copies every database of the site, outside the data directory only; what the program
// creates is for its user and group only.
TEST_F(SetupCommandsTest, BackupCopiesEveryDatabaseAndFilesAreNotWorldReadable) {
  Run("init");
  Run("company add Acme --clock FRONT --dir acme");
  EXPECT_EQ(std::filesystem::status(home_ / "data/acme/Company.db").permissions() &
                std::filesystem::perms::others_all,
            std::filesystem::perms::none);
  EXPECT_THAT(Run("backup --to " + (tmp_.path() / "copies").string()).out,
              HasSubstr("4 of 4 database(s) copied"));
  for (const char* file : {"COMPANY3.db", "Clockwyn.db", "TCLOG.db", "acme/Company.db"}) {
    EXPECT_TRUE(std::filesystem::exists(tmp_.path() / "copies" / file)) << file;
  }
  EXPECT_THAT(Run("backup --to " + (home_ / "data/old").string(), 1).err,
              HasSubstr("is inside the data directory"));
}

}  // namespace
}  // namespace clockcomm::shell
