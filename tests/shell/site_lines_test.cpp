#include "shell/site_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "test_support/temp_dir.h"

namespace clockcomm::shell {
namespace {
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class SiteLinesTest : public ::testing::Test {
 protected:
  SiteLines Read(const std::string& ini, comm::ConnectionType type = comm::ConnectionType::kSerial,
                 const std::string& port = "",
                 const std::optional<comm::EndPoint>& listen = std::nullopt) {
    std::ofstream(home_.path() / "registry.ini", std::ios::binary) << ini;
    InstallInformation install(home_.path());
    install.Load();
    CommSettings comm;
    comm.comm_port = 1;
    comm.connection_type = type;
    return ReadSiteLines(install, comm, port, listen);
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
