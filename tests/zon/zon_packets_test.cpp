#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "core/errors.h"
#include "zon/block_check.h"
#include "zon/hours_request_packet.h"
#include "zon/packet_encoder.h"
#include "zon/protocol_char.h"
#include "zon/punch_packet.h"
#include "zon/zon_header_packet.h"

namespace clockcomm::zon {
namespace {

using ::testing::AllOf;
using ::testing::Property;
using ::testing::StrEq;
using ::testing::Throws;

// ACK4 and EOT4 are checked byte for byte by the modem transcript; NAK4 is in no recorded call.
TEST(ProtocolChar, FramedNakCarriesItsCheckByte) {
  EXPECT_EQ(ProtocolChar::Shared().NAK4(), std::string("\x02\x15\x03\x16"));
}

// The header of every recorded call (STX, the trailer after the upload type) is read in the golden
// transcripts; which error a malformed one raises is the fuzz target's, and the driver keeps any
// refused packet beside the call file.
TEST(ZonHeaderPacket, ParsesAHeaderWithoutTrailerAndAnUploadTypeOfWPFOnly) {
  const std::string fs = "\x1c";
  const ZonHeaderPacket header =
      ZonHeaderPacketStatic::Parse("1" + fs + fs + "TC28" + fs + "D" + fs + " -5 " + fs + "P");
  EXPECT_EQ(header.ApplicationName() + "|" + header.ClockName() + "|" + header.UploadType(),
            "TC28|D|P");
  EXPECT_EQ(header.ClockNumber(), -5);
  for (const char* ok : {"W", "P", "F"}) EXPECT_NO_THROW(ZonHeaderPacket("c", 1, "a", ok)) << ok;
  for (const char* bad : {"X", "", "w", "f", ".", "W.P", "WP", ".W", "F."}) {
    EXPECT_THAT([&] { ZonHeaderPacket("c", 1, "a", bad); },
                Throws<core::ArgumentException>(
                    AllOf(Property(&core::ArgumentException::what, StrEq("Invalid upload type.")),
                          Property(&core::ArgumentException::ParamName, "UploadType"))))
        << bad;
  }
}

TEST(HoursRequestPacket, ParsesBadgeAndTimestampOrRefusesKeepingItsFields) {
  struct Row {
    std::string text;
    int badge;
    const char* stamp;
  };
  const std::string fs = "\x1c";
  for (const Row& row : {Row{"hrs" + fs + "12" + fs + "2010201224", 12, "2020-10-20 12:24:00"},
                         Row{"HRS" + fs + "0" + fs + "2902282359", 0, "2029-02-28 23:59:00"},
                         Row{"HrSx" + fs + "7" + fs + "3001010000", 7, "1930-01-01 00:00:00"},
                         Row{"HRS" + fs + "5" + fs + "0002290830", 5, "2000-02-29 08:30:00"}}) {
    SCOPED_TRACE(row.text);
    HoursRequestPacket packet;
    ASSERT_TRUE(packet.Parse(row.text));
    EXPECT_EQ(packet.BadgeNumber(), row.badge);
    EXPECT_EQ(packet.Timestamp().ToString(), row.stamp);
  }
  // A refused packet keeps the fields of the last good one.
  HoursRequestPacket packet;
  ASSERT_TRUE(packet.Parse("HRS" + fs + "12" + fs + "2010201224"));
  for (const std::string& bad :
       {std::string(""), std::string("HR"), "XRS" + fs + "12" + fs + "2010201224",
        "HRS" + fs + "12", "HRS" + fs + "12" + fs + "2010201224" + fs,
        "HRS" + fs + "x" + fs + "2010201224", "HRS" + fs + "12" + fs + "201020122",
        "HRS" + fs + "12" + fs + "20102012245", "HRS" + fs + "12" + fs + "2013201224",
        "HRS" + fs + "12" + fs + "2102291224", "HRS" + fs + "12" + fs + "2010202460",
        "HRS" + fs + "12" + fs + "20102012a4", "HRS" + fs + "" + fs + "2010201224"}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(packet.Parse(bad));
    EXPECT_EQ(packet.BadgeNumber(), 12);
    EXPECT_EQ(packet.Timestamp().ToString(), "2020-10-20 12:24:00");
  }
}

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

// The header, punch and end encoders are what the simulated terminal of every call test sends;
// the hours request is sent by no call test.
TEST(PacketEncoder, AnHoursRequestReadsBackOnTheProgramsSide) {
  const auto when = *core::DateTime::FromParts(2020, 10, 20, 12, 24);
  const std::string hours = EncodeHoursRequest(12, when);
  ASSERT_EQ(hours.front(), ProtocolChar::kEnq);
  ASSERT_EQ(hours.substr(hours.size() - 2), "\r\n");
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
}

}  // namespace
}  // namespace clockcomm::zon
