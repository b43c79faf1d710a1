#include <gtest/gtest.h>

#include <fstream>

#include "shell/call/call_file.h"
#include "shell/call/packet_checks.h"
#include "shell/call/port_names.h"
#include "shell/call/validation_download.h"
#include "shell/call/zon_call_loop.h"
#include "test_support/temp_dir.h"
#include "zon/protocol_char.h"

namespace clockcomm::shell {
namespace {

using zon::ProtocolChar;

std::string WithCheck(const std::string& body) { return body + BlockCheckOf(body) + "\r\n"; }

TEST(PacketChecks, EndPacketsAndTheBlockCheck) {
  const std::string fs(1, ProtocolChar::kFs);
  EXPECT_TRUE(IsEndOfTransmission("00" + fs + ProtocolChar::kEot + "\r\n"));
  EXPECT_FALSE(IsEndOfTransmission("00" + fs + ProtocolChar::kEnq + "\r\n"));
  EXPECT_TRUE(IsEndOfUpload("00" + fs + ProtocolChar::kEnq + "\r\n"));
  EXPECT_FALSE(IsEndOfUpload("0" + fs + ProtocolChar::kEnq + "\r\n"));
  EXPECT_FALSE(IsEndOfTransmission("00" + fs + ProtocolChar::kEot));  // no line end yet

  const std::string good = WithCheck("2,12,,,,,I,091020,1224,,,,1");
  EXPECT_TRUE(PacketCheckOk(good));
  EXPECT_EQ(PacketBody(good), "2,12,,,,,I,091020,1224,,,,1");
  std::string bad = good;
  bad[2] = '3';  // one byte changed, check not
  EXPECT_FALSE(PacketCheckOk(bad));
  EXPECT_FALSE(PacketCheckOk("\r\n"));
  EXPECT_FALSE(PacketCheckOk(good.substr(0, good.size() - 1)));  // CR without LF
  // A header is checked like any packet, its STX included.
  EXPECT_TRUE(PacketCheckOk(WithCheck(std::string(1, ProtocolChar::kStx) + "1" + fs + "[")));
}

TEST(CallFile, FirstFreeNumberOfTheDayAndTheExtensionByUploadType) {
  test::TempDir dir;
  const auto day = core::Date::FromYmdOrThrow(2009, 2, 1);
  for (int i = 1; i <= 9; ++i) std::ofstream(dir.path() / ("0201000" + std::to_string(i) + ".TCD"));
  auto file = ClaimCallFile(dir.path(), day, "F");
  ASSERT_TRUE(file.has_value());
  EXPECT_EQ(file->filename(), "02010010.TCD");
  EXPECT_TRUE(std::filesystem::exists(*file));  // claimed, so a second line cannot take it
  EXPECT_EQ(ClaimCallFile(dir.path(), day, "F")->filename(), "02010011.TCD");
  EXPECT_EQ(ClaimCallFile(dir.path(), day, "W")->filename(), "02010001.WHO");
}

TEST(PortNames, MappedInRegistryElseTheStandardSerialDevice) {
  test::TempDir dir;
  std::ofstream(dir.path() / "registry.ini") << "[Ports]\nCOM3=/dev/ttyUSB0\n";
  InstallInformation install(dir.path());
  install.Load();
  EXPECT_EQ(PortDevice(install, 3), "/dev/ttyUSB0");
  EXPECT_EQ(PortDevice(install, 1), "/dev/ttyS0");
  EXPECT_EQ(PortDevice(install, 4), "/dev/ttyS3");
}

TEST(ZonCallLoop, ConnectSpeedAndPortSettings) {
  EXPECT_EQ(ZonCallLoop::ConnectSpeed("CONNECT 2400"), "2400");
  EXPECT_EQ(ZonCallLoop::ConnectSpeed("CONNECT 9600/ARQ"), "9600");
  EXPECT_EQ(ZonCallLoop::ConnectSpeed("CONNECT"), "300");
  EXPECT_EQ(ZonCallLoop::ConnectSpeed("CONNECT \r"), "300");
}

TEST(ValidationDownload, PacketLayout) {
  const std::string fs(1, ProtocolChar::kFs);
  EXPECT_EQ(DownloadStartPacket(), std::string("\x01") + "DOWNLOAD" + "\x03");
  const std::string row = TableRowPacket({"12", "Ada"});
  ASSERT_EQ(row.front(), ProtocolChar::kStx);
  const std::string covered = "12" + fs + "Ada" + ProtocolChar::kEtx;
  EXPECT_EQ(row, std::string(1, ProtocolChar::kStx) + covered + BlockCheckOf(covered));
  const std::string header = TableHeaderPacket("LEVEL1", 2);
  EXPECT_EQ(header.substr(0, 10), std::string("\x01") + "LEVEL1" + fs + "2" + "\x03");
}

}  // namespace
}  // namespace clockcomm::shell
