// registry.ini: the install keys, ports, databases and lines a site reads from it.
#include "shell/install_information.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "core/text.h"
#include "shell/my_static.h"
#include "shell/port_map.h"
#include "shell/schedule/schedule_test_support.h"
#include "shell/site_lines.h"
#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The registry.ini of a program folder holding text, loaded.
InstallInformation Loaded(const test::TempDir& home, const std::string& text) {
  std::ofstream(home.path() / "registry.ini", std::ios::binary) << text;
  InstallInformation info(home.path());
  info.Load();
  return info;
}

std::string DataKey(const char* version) {
  return "[" + InstallInformation::InstallDataKey(version) + "]\n";
}

TEST(InstallInformationTest, CurrentVersionChoosesTheInstallDataKeyAndSaveKeepsTheRest) {
  struct Case {
    std::string ini, version, program, data;
  } cases[] = {
      {DataKey("2.5") + "ProgramDir=/wrong\n" + DataKey("3.0") +
           "ProgramDir=/opt/clock\nDataDir = /srv/clockdata/ \n",
       "3.0", "/opt/clock/", "/srv/clockdata/"},  // no CurrentVersion: the 3.0 key
      {"; written by hand\n[" + core::ToLower(InstallInformation::kProductKey) +
           "]\ncurrentversion=4.1\n" + DataKey("3.0") + "DataDir=/old/\n" + DataKey("4.1") +
           "DataDir=/new\n",
       "4.1", "", "/new/"},  // names ignore case
  };
  for (const Case& c : cases) {
    test::TempDir home;
    InstallInformation info = Loaded(home, "[Ports]\nCOM3=/dev/ttyUSB0\n" + c.ini);
    EXPECT_EQ(info.CurrentVersion(), c.version);
    EXPECT_EQ(info.ProgramDirectory(), c.program);
    EXPECT_EQ(info.DataDirectory(), c.data);

    info.SetDataDirectory("/srv/data");
    info.Save();
    InstallInformation again(home.path());
    again.Load();
    EXPECT_EQ(again.CurrentVersion(), c.version);
    EXPECT_EQ(again.DataDirectory(), "/srv/data/");
    EXPECT_EQ(again.Value("Ports", "COM3"), "/dev/ttyUSB0");
  }
}

TEST(InstallInformationTest, LinesItCannotUseAreWarnedWithTheirLineNumbers) {
  test::TempDir home;
  const InstallInformation info = Loaded(home,
                                         "stray=1\n"                // 1: before any section
                                         "; comment\n"              // 2
                                         "[Ports]\n"                // 3
                                         "COM1 /dev/ttyUSB0\n"      // 4: no "="
                                         "COM3=/dev/ttyS9\n"        // 5
                                         "=/dev/ttyS4\n"            // 6: no name
                                         "[Ports\n"                 // 7: not a section
                                         "com3=/dev/ttyUSB1\r\n");  // 8: the port again
  const std::string file = info.RegistryFile().string();
  EXPECT_EQ(info.Warnings(),
            (std::vector<std::string>{
                file + " line 1: \"stray=1\" comes before any [section]; the line is ignored",
                file + " line 4: \"COM1 /dev/ttyUSB0\" is neither [section] nor name=value; the "
                       "line is ignored",
                file + " line 6: \"=/dev/ttyS4\" has no value name; the line is ignored",
                file + " line 7: \"[Ports\" is neither [section] nor name=value; the line is "
                       "ignored",
                file + " line 8: com3 is set again in [Ports]; line 5 no longer counts"}));
  // What can be read still is.
  EXPECT_EQ(info.Value("Ports", "COM3"), "/dev/ttyUSB1");
  EXPECT_EQ(info.Value("Ports", "COM1"), "");
}

TEST(PortMapTest, EachPortResolvesAndNamesThatMapNothingAreWarned) {
  test::TempDir home;
  const InstallInformation info = Loaded(home,
                                         "[Ports]\n"
                                         "COM3=/dev/ttyUSB0\n"
                                         "com7 = /dev/ttyACM0\n"  // any case, as the lookup
                                         "COM03=/dev/ttyUSB1\n"   // 4: never looked up as COM3
                                         "COM257=/dev/ttyS256\n"  // 5: beyond the last port
                                         "Printer=/dev/lp0\n"     // 6
                                         "COM2=\n");              // 7: no device
  EXPECT_EQ(PortMappings(info, 1), (std::vector<PortMapping>{{1, "/dev/ttyS0", false},
                                                             {2, "/dev/ttyS1", false},
                                                             {3, "/dev/ttyUSB0", true},
                                                             {7, "/dev/ttyACM0", true}}));
  EXPECT_EQ(PortMappings(info, 3).size(), 3u) << "the settings' port is listed once";
  EXPECT_EQ(PortDevice(info, 4), "/dev/ttyS3");
  const std::string file = info.RegistryFile().string();
  const std::string nothing = " is not a port name COM1 to COM256; the line maps nothing";
  EXPECT_EQ(
      PortWarnings(info),
      (std::vector<std::string>{file + " line 4: [Ports] \"COM03\"" + nothing,
                                file + " line 5: [Ports] \"COM257\"" + nothing,
                                file + " line 6: [Ports] \"Printer\"" + nothing,
                                file + " line 7: [Ports] COM2 has no device; /dev/ttyS1 is used"}));
}

// The files' warnings on stderr are the settings command's; here a port that maps nothing among
// them, and the event and debug log lines.
TEST(MyStaticTest, ConfigurationWarningsAreGatheredAndGoToTheEventAndDebugLogs) {
  test::TempDir home;
  std::ofstream(home.path() / "registry.ini") << "[Ports]\nCOM0=/dev/x\n";
  const auto config = MyStatic::Load(home.path());
  ASSERT_EQ(config->Warnings().size(), 1u);
  EXPECT_THAT(config->Warnings()[0], HasSubstr("registry.ini line 2: [Ports] \"COM0\""));

  shell::testing::RecordingLog log;
  std::ostringstream err;
  ReportConfigurationWarnings({"a.ini line 2: x"}, log, err);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"event: Configuration warning / a.ini line 2: x",
                                                   "debug: a.ini line 2: x"}));
  EXPECT_EQ(err.str(), "clockcomm: warning: a.ini line 2: x\n");
}

TEST(MyStaticTest, ProgramFolderComesFromOptionThenEnvironmentThenCurrentDirectory) {
  test::TempDir dir;
  const char* saved = getenv("CLOCKCOMM_HOME");
  setenv("CLOCKCOMM_HOME", "/from/env", 1);
  EXPECT_EQ(ResolveProgramFolder("/from/option").string(), "/from/option/");
  EXPECT_EQ(ResolveProgramFolder("").string(), "/from/env/");
  unsetenv("CLOCKCOMM_HOME");
  const auto cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  EXPECT_EQ(ResolveProgramFolder("").string(),
            WithTrailingSeparator(std::filesystem::current_path().string()));
  std::filesystem::current_path(cwd);
  if (saved != nullptr) setenv("CLOCKCOMM_HOME", saved, 1);
  // The folders under it are made by init; a company folder may lie elsewhere.
  EXPECT_EQ(MyStatic::Load(dir.path())->Paths().CompanyDatabase("/srv/acme").string(),
            "/srv/acme/Company.db");
  // [Databases]: a URL as it stands, a relative file under the data folder, empty: the default.
  InstallInformation install(dir.path());
  install.Load();
  install.SetValue("Databases", "EventLog", "postgresql://cc:pw@db/log");
  install.SetValue("Databases", "Registry", "registry/COMPANY3.db");
  install.Save();
  auto paths = MyStatic::Load(dir.path())->Paths();
  EXPECT_EQ(paths.EventLogDatabase().string(), "postgresql://cc:pw@db/log");
  EXPECT_EQ(paths.CompanyRegistryDatabase(), paths.DataDirectory() / "registry/COMPANY3.db");
  install.SetValue("Databases", "Registry", "");
  install.Save();
  EXPECT_EQ(MyStatic::Load(dir.path())->Paths().CompanyRegistryDatabase(),
            paths.DataDirectory() / "COMPANY3.db");
}

class SiteLinesTest : public ::testing::Test {
 protected:
  SiteLines Read(const std::string& ini, comm::ConnectionType type = comm::ConnectionType::kSerial,
                 const std::string& port = "",
                 const std::optional<comm::EndPoint>& listen = std::nullopt) {
    return ReadSiteLines(Loaded(home_, ini), CommSettings{.connection_type = type}, port, listen);
  }
  test::TempDir home_;
};

TEST_F(SiteLinesTest, TheSettingsLineComesFirstThenLinesInPortOrder) {
  auto lines = Read(
      "[Ports]\nCOM3=/dev/ttyUSB0\n[Lines]\nCOM3=Modem\nCOM2=serial\nLAN=10.0.0.5:4001\n"
      "LANCallsAtOnce=50\nLANPollsAtOnce=4\nLANIdleCloseSeconds=60\n");
  EXPECT_THAT(lines.serial,
              ElementsAre(SerialLineEntry{1, comm::ConnectionType::kSerial, "/dev/ttyS0"},
                          SerialLineEntry{2, comm::ConnectionType::kSerial, "/dev/ttyS1"},
                          SerialLineEntry{3, comm::ConnectionType::kModem, "/dev/ttyUSB0"}));
  EXPECT_TRUE(lines.lan_listener);
  EXPECT_EQ(lines.lan.listen.host, "10.0.0.5");
  EXPECT_EQ(lines.lan.listen.port, 4001);
  EXPECT_EQ(lines.lan.calls_at_once, 50);
  EXPECT_EQ(lines.lan.polls_at_once, 4);
  EXPECT_EQ(lines.lan.idle_close, std::chrono::seconds(60));
  EXPECT_TRUE(lines.warnings.empty());
  EXPECT_EQ(lines.Count(), 4u);

  // --port replaces the settings' device; --listen adds the listener; a LAN settings line is the
  // listener itself, on the default address.
  lines = Read("", comm::ConnectionType::kModem, "/dev/pts/7", comm::EndPoint{"127.0.0.1", 0});
  EXPECT_THAT(lines.serial,
              ElementsAre(SerialLineEntry{1, comm::ConnectionType::kModem, "/dev/pts/7"}));
  EXPECT_EQ(lines.lan.listen.port, 0);
  lines = Read("", comm::ConnectionType::kLan);
  EXPECT_TRUE(lines.serial.empty());
  EXPECT_TRUE(lines.lan_listener);
  EXPECT_EQ(lines.lan.listen.host, "0.0.0.0");
  EXPECT_EQ(lines.lan.listen.port, kDefaultLanPort);
}

TEST_F(SiteLinesTest, EveryUnusableLineIsNamedWithItsLineNumber) {
  const struct {
    std::string line;
    std::string warning;
  } cases[] = {
      {"COM2=Fax", "line 2: [Lines] COM2=Fax is neither Serial nor Modem"},
      {"COM1=Modem", "line 2: [Lines] COM1 is the settings' own line"},
      {"COM02=Serial", "\"COM02\" is not a line"},
      {"COM300=Serial", "\"COM300\" is not a line"},
      {"LAN=3001", "LAN=3001: \"3001\" is not a network address"},
      {"LAN=10.0.0.1:70000", "is not a network address"},
      {"LANCallsAtOnce=0", "LANCallsAtOnce must be 1 to 10000; 1000 is used"},
      {"LANPollsAtOnce=many", "LANPollsAtOnce must be 1 to 256; 16 is used"},
      {"LANIdleCloseSeconds=-5", "LANIdleCloseSeconds must be 1 to 86400"},
      {"Printer=LPT1", "\"Printer\" is not a line"},
  };
  for (const auto& c : cases) {
    const auto lines = Read("[Lines]\n" + c.line + "\n");
    ASSERT_EQ(lines.warnings.size(), 1u) << c.line;
    EXPECT_THAT(lines.warnings[0], HasSubstr("registry.ini line 2: ")) << c.line;
    EXPECT_THAT(lines.warnings[0], HasSubstr(c.warning)) << c.line;
    EXPECT_EQ(lines.Count(), 1u) << c.line << ": only the settings' line is served";
  }
}

}  // namespace
}  // namespace clockcomm::shell
