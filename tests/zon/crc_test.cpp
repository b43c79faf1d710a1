#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/errors.h"
#include "zon/rs485_crc.h"
#include "zon/verifone_crc16.h"

namespace clockcomm::zon {
namespace {

// The packet with its last two bytes swapped.
std::string Swapped(std::string packet) {
  std::swap(packet[packet.size() - 1], packet[packet.size() - 2]);
  return packet;
}

TEST(VerifoneCrc16, CheckValuesFramingTheCoveredBytesAndLowByteFirst) {
  VerifoneCrc16 crc;
  EXPECT_EQ(crc.CalculateCrc16("123456789"), 0xBB3D);
  EXPECT_EQ(crc.CalculateCrc16(""), 0);
  // Bytes above 0x7F are unsigned: the CRC of 0xFF alone is the table's last entry.
  EXPECT_EQ(crc.CalculateCrc16("\xff"), 0x4040);

  const std::string packet = crc.Frame("2,12,,,,,I,091020,1224,,,,1");
  EXPECT_EQ(packet.front(), '\x02');
  EXPECT_EQ(packet[packet.size() - 3], '\x03');
  EXPECT_TRUE(crc.IsValidPacket(packet));
  std::string changed = packet;
  changed[5] ^= 0x01;
  EXPECT_FALSE(crc.IsValidPacket(changed));
  changed = packet;
  changed[0] = 'X';
  EXPECT_TRUE(crc.IsValidPacket(changed)) << "the leading byte is not covered";
  ASSERT_NE(packet[packet.size() - 1], packet[packet.size() - 2]);
  EXPECT_FALSE(crc.IsValidPacket(Swapped(packet)));

  // Three bytes: nothing covered, so the CRC must be zero; fewer cannot be a packet.
  EXPECT_TRUE(crc.IsValidPacket(std::string("\x02\x00\x00", 3)));
  EXPECT_FALSE(crc.IsValidPacket(std::string("\x02\x01\x00", 3)));
  for (const std::string& shorter : {std::string(), std::string("\x02"), std::string("\x02\x03")}) {
    EXPECT_THROW(crc.IsValidPacket(shorter), core::ArgumentException);
  }
}

// The check covers the packet up to its third-from-last byte, high byte first.
TEST(ZonCrc, ExamplesTheCoveredBytesAndHighByteFirst) {
  EXPECT_EQ(GenZonCRC(std::vector<uint8_t>{}), 0);
  EXPECT_EQ(GenZonCRC(std::vector<uint8_t>{0xAB}), 0);  // its only byte is the excluded one
  EXPECT_EQ(GenZonCRC(std::vector<uint8_t>{0x01, 0x00}), 0xC005);
  EXPECT_EQ(GenZonCRC(std::vector<uint8_t>{0x01, 0xFF}), 0xC005);
  const std::string text = "123456789x";
  EXPECT_NE(GenZonCRC(std::vector<uint8_t>(text.begin(), text.end())), 0xBB3D) << "not CRC-16/ARC";

  const std::string packet = AppendZonCRC(std::string(1, '\x02') + "LI,1234,091020", '\x03');
  ASSERT_TRUE(CheckZonCRC(packet));
  std::string changed = packet;
  changed[changed.size() - 3] = 'Z';
  EXPECT_TRUE(CheckZonCRC(changed)) << "the byte just before the check is not covered";
  changed = packet;
  changed[0] = '\x01';
  EXPECT_FALSE(CheckZonCRC(changed)) << "the leading STX is";
  ASSERT_NE(packet[packet.size() - 1], packet[packet.size() - 2]);
  EXPECT_FALSE(CheckZonCRC(Swapped(packet)));
  EXPECT_FALSE(CheckZonCRC(""));
  EXPECT_FALSE(CheckZonCRC("x"));
}

// When the check's low byte is ENQ a covered byte of the working copy is replaced: such a packet is
// judged by the plain comparison like any other.
TEST(ZonCrc, PacketWhoseCheckEndsInEnqStillValidates) {
  int found = 0;
  for (int i = 0; i < 5000 && found < 3; ++i) {
    std::string packet = AppendZonCRC(std::string(1, '\x02') + "BO," + std::to_string(i), '\x03');
    if (static_cast<uint8_t>(packet.back()) != 0x05) continue;
    ++found;
    EXPECT_TRUE(CheckZonCRC(packet)) << i;
    packet[packet.size() - 2] ^= 0x40;
    EXPECT_FALSE(CheckZonCRC(packet)) << i;
  }
  EXPECT_EQ(found, 3);
}

}  // namespace
}  // namespace clockcomm::zon
