#include <gtest/gtest.h>

#include "core/errors.h"
#include "zon/block_check.h"
#include "zon/hours_request_packet.h"
#include "zon/packet_encoder.h"
#include "zon/protocol_char.h"
#include "zon/punch_packet.h"

namespace clockcomm::zon {
namespace {

TEST(PacketChecks, EndPacketsAndTheBlockCheck) {
  const std::string fs(1, ProtocolChar::kFs);
  EXPECT_TRUE(IsEndOfTransmission("00" + fs + ProtocolChar::kEot + "\r\n"));
  EXPECT_FALSE(IsEndOfTransmission("00" + fs + ProtocolChar::kEnq + "\r\n"));
  EXPECT_TRUE(IsEndOfUpload("00" + fs + ProtocolChar::kEnq + "\r\n"));
  EXPECT_FALSE(IsEndOfUpload("0" + fs + ProtocolChar::kEnq + "\r\n"));
  EXPECT_FALSE(IsEndOfTransmission("00" + fs + ProtocolChar::kEot));  // no line end yet

  const std::string good = WithBlockCheck("2,12,,,,,I,091020,1224,,,,1");
  EXPECT_TRUE(PacketCheckOk(good));
  EXPECT_EQ(PacketBody(good), "2,12,,,,,I,091020,1224,,,,1");
  std::string bad = good;
  bad[2] = '3';  // one byte changed, check not
  EXPECT_FALSE(PacketCheckOk(bad));
  EXPECT_FALSE(PacketCheckOk("\r\n"));
  EXPECT_FALSE(PacketCheckOk(good.substr(0, good.size() - 1)));  // CR without LF
  // A header is checked like any packet, its STX included.
  EXPECT_TRUE(PacketCheckOk(WithBlockCheck(std::string(1, ProtocolChar::kStx) + "1" + fs + "[")));
}

// What the encoders write, the program's side reads back: the checks, the header parser, the punch
// parser, the end-packet tests and the hours request parser.
TEST(PacketEncoder, EveryLineReadsBackOnTheProgramsSide) {
  const std::string fs(1, ProtocolChar::kFs);
  const ZonHeaderPacket header("DEMODATA", 101, "TC28", "W");
  const std::string encoded = EncodeHeader(header);
  EXPECT_EQ(PacketBody(encoded), std::string(1, ProtocolChar::kStx) + "1" + fs + "[" + fs + "TC28" +
                                     fs + "DEMODATA" + fs + "101" + fs + "W" + fs +
                                     ProtocolChar::kFf);
  EXPECT_TRUE(PacketCheckOk(encoded));
  EXPECT_EQ(ZonHeaderPacketStatic::Parse(PacketBody(encoded)), header);

  const std::string data = EncodeData("2,12,,,,,I,091020,1224,,,,1");
  EXPECT_TRUE(PacketCheckOk(data));
  EXPECT_EQ(ParsePunchPacket(PacketBody(data), 101).ToTcdString(0),
            "101,2,12,,,,,I,2009/10/20,12:24,,,,1");

  EXPECT_TRUE(IsEndOfTransmission(EncodeEndOfTransmission()));
  EXPECT_FALSE(IsEndOfUpload(EncodeEndOfTransmission()));
  EXPECT_TRUE(IsEndOfUpload(EncodeEndOfUpload()));
  EXPECT_FALSE(IsEndOfTransmission(EncodeEndOfUpload()));

  const auto when = *core::DateTime::FromParts(2020, 10, 20, 12, 24);
  const std::string hours = EncodeHoursRequest(12, when);
  ASSERT_EQ(hours.front(), ProtocolChar::kEnq);
  HoursRequestPacket request;
  ASSERT_TRUE(request.Parse(hours.substr(1, hours.size() - 3)));
  EXPECT_EQ(request.BadgeNumber(), 12);
  EXPECT_EQ(request.Timestamp(), when);
}

TEST(PunchPacket, ParsedOnceWithTheHeadersClockNumberAndTheKeypadFillerDropped) {
  const auto record = ParsePunchPacket(
      "\"5\",\"1234\",\"\",\"work-\",\"\",\"\",\"I\",\"091020\","
      "\"1224\",\"\",\"\",\"\",\"\"",
      999);
  EXPECT_EQ(record.ToTcdString(0), "999,5,1234,,work,,,I,2009/10/20,12:24,,,,");
  EXPECT_THROW(ParsePunchPacket("5,1234,,,I", 1), core::Error);
}

}  // namespace
}  // namespace clockcomm::zon
