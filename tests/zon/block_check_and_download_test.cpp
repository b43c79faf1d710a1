#include <gtest/gtest.h>

#include "core/errors.h"
#include "zon/block_check.h"
#include "zon/protocol_char.h"
#include "zon/punch_packet.h"
#include "zon/validation_packets.h"

namespace clockcomm::zon {
namespace {

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

TEST(PunchPacket, ParsedOnceWithTheHeadersClockNumberAndTheKeypadFillerDropped) {
  const auto record = ParsePunchPacket("\"5\",\"1234\",\"\",\"work-\",\"\",\"\",\"I\",\"091020\","
                                       "\"1224\",\"\",\"\",\"\",\"\"",
                                       999);
  EXPECT_EQ(record.ToTcdString(0), "999,5,1234,,work,,,I,2009/10/20,12:24,,,,");
  EXPECT_THROW(ParsePunchPacket("5,1234,,,I", 1), core::Error);
}

}  // namespace
}  // namespace clockcomm::zon
