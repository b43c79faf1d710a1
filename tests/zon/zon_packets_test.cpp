#include <gtest/gtest.h>

#include <string>

#include "core/errors.h"
#include "zon/hours_request_packet.h"
#include "zon/protocol_char.h"
#include "zon/zon_header_packet.h"

namespace clockcomm::zon {
namespace {

// ACK4 and EOT4 are checked byte for byte by the modem transcript; NAK4 is in no recorded call.
TEST(ProtocolChar, FramedNakCarriesItsCheckByte) {
  EXPECT_EQ(ProtocolChar::Shared().NAK4(), std::string("\x02\x15\x03\x16"));
}

std::string Header(const std::string& trailer) {
  const ProtocolChar& pc = ProtocolChar::Shared();
  return pc.STX() + "1" + pc.FS() + "[" + pc.FS() + "TC28" + pc.FS() + "DEMODATA" + pc.FS() +
         "101" + pc.FS() + "F" + trailer;
}

TEST(ZonHeaderPacket, ParsesTheHeaderAClockSendsWithAnUploadTypeOfWPF) {
  const std::string trailer = std::string("\x1c\x0c") + "\r\n";
  for (const std::string& text : {Header(trailer), Header("")}) {
    ZonHeaderPacket header = ZonHeaderPacketStatic::Parse(text);
    EXPECT_EQ(header.ApplicationName(), "TC28");
    EXPECT_EQ(header.ClockName(), "DEMODATA");
    EXPECT_EQ(header.ClockNumber(), 101);
    EXPECT_EQ(header.UploadType(), "F");
  }
  for (const char* ok : {"W", "P", "F"}) EXPECT_NO_THROW(ZonHeaderPacket("c", 1, "a", ok)) << ok;
  for (const char* bad : {"X", "", "w", "f", ".", "W.P", "WP", ".W", "F."}) {
    SCOPED_TRACE(bad);
    try {
      ZonHeaderPacket("c", 1, "a", bad);
      ADD_FAILURE() << "accepted";
    } catch (const core::ArgumentException& e) {
      EXPECT_STREQ(e.what(), "Invalid upload type.");
      EXPECT_EQ(e.ParamName(), "UploadType");
    }
  }
}

TEST(ZonHeaderPacket, BadHeadersRaiseTheirOwnErrors) {
  const std::string fs = "\x1c";
  EXPECT_THROW(ZonHeaderPacketStatic::Parse(""), core::IndexOutOfRangeException);
  EXPECT_THROW(ZonHeaderPacketStatic::Parse("\x02"
                                            "1" +
                                            fs + "[" + fs + "TC28" + fs + "D" + fs + "101"),
               core::IndexOutOfRangeException);
  EXPECT_THROW(ZonHeaderPacketStatic::Parse("garbage without separators"),
               core::IndexOutOfRangeException);
  for (const char* number : {"abc", "", "12x", "99999999999", "1.5"}) {
    SCOPED_TRACE(number);
    EXPECT_THROW(ZonHeaderPacketStatic::Parse("1" + fs + "[" + fs + "TC28" + fs + "D" + fs +
                                              number + fs + "W"),
                 core::FormatException);
  }
  EXPECT_THROW(
      ZonHeaderPacketStatic::Parse("1" + fs + "[" + fs + "TC28" + fs + "D" + fs + "5" + fs + "Q"),
      core::ArgumentException);
  EXPECT_EQ(ZonHeaderPacketStatic::Parse("1" + fs + fs + "A" + fs + "D" + fs + " -5 " + fs + "P")
                .ClockNumber(),
            -5);
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

}  // namespace
}  // namespace clockcomm::zon
