#include "zon/packet_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/errors.h"

namespace clockcomm::zon {
namespace {

using ::testing::ThrowsMessage;

std::vector<std::string> Drain(PacketBuffer& buffer) {
  std::vector<std::string> packets;
  while (buffer.Count() > 0) packets.push_back(buffer.GetPacket());
  return packets;
}

// One row per framing case: the chunks appended, the packets expected, the fragment left over.
struct FramingCase {
  const char* legend;
  std::vector<std::string> chunks;
  std::vector<std::string> packets;
  std::string pending;
};

TEST(PacketBuffer, CutsPacketsAtTheTerminator) {
  const std::vector<FramingCase> cases = {
      {"one whole packet", {"data\r\n"}, {"data"}, ""},
      {"fragment only", {"data"}, {}, "data"},
      {"two back to back", {"data\r\ndata2\r\n"}, {"data", "data2"}, ""},
      {"packet split across appends", {"da", "ta\r\n"}, {"data"}, ""},
      {"terminator split across appends", {"data\r", "\nnext"}, {"data"}, "next"},
      {"bare terminator is an empty packet", {"\r\n"}, {""}, ""},
      {"lone CR or LF is data", {"a\rb\nc\r\n"}, {"a\rb\nc"}, ""},
      {"CR CR LF keeps the first CR", {"x\r\r\n"}, {"x\r"}, ""},
      {"byte at a time", {"h", "i", "\r", "\n", "\r", "\n"}, {"hi", ""}, ""},
      {"control bytes and NULs pass",
       {std::string("\x02\x00\x1c\xff", 4) + "\r\n"},
       {std::string("\x02\x00\x1c\xff", 4)},
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.legend);
    PacketBuffer buffer;
    for (const auto& chunk : c.chunks) buffer.Append(chunk);
    EXPECT_EQ(Drain(buffer), c.packets);
    EXPECT_EQ(buffer.PendingFragment(), c.pending);
    EXPECT_EQ(buffer.OverlongCount(), 0u);
  }
}

// A fragment is not a packet; a new terminator applies from the next Append on, and Clear keeps
// it (the driver clears between calls).
TEST(PacketBuffer, GetNeedsAWholePacketAndTheTerminatorChangesOnlyForWhatComesNext) {
  PacketBuffer buffer;
  buffer.Append("a;b");
  EXPECT_THAT([&] { buffer.GetPacket(); },
              ThrowsMessage<core::InvalidOperationException>("The PacketBuffer is empty."));
  EXPECT_THROW(buffer.SetTerminationString(""), core::ArgumentException);
  buffer.SetTerminationString(";");
  EXPECT_EQ(buffer.Count(), 0);
  buffer.Append(";c;");
  EXPECT_EQ(buffer.PeekPacket(), "a");
  EXPECT_EQ(Drain(buffer), (std::vector<std::string>{"a", "b", "c"}));
  // A multi-byte terminator that repeats its own start.
  buffer.SetTerminationString("ETXETX");
  buffer.Append("pETXETXETXq");
  EXPECT_EQ(Drain(buffer), (std::vector<std::string>{"p"}));
  EXPECT_EQ(buffer.PendingFragment(), "ETXq");
  buffer.Clear();
  buffer.Append("rETXETX");
  EXPECT_EQ(Drain(buffer), (std::vector<std::string>{"r"}));
}

TEST(PacketBuffer, OverlongLineIsRefusedWholeAndCounted) {
  PacketBuffer buffer(8);
  buffer.Append("12345678\r\n");  // exactly the maximum is a packet
  EXPECT_EQ(Drain(buffer), (std::vector<std::string>{"12345678"}));

  buffer.Append("123456789\r\nok\r\n");  // one past it is not, and the next line is unharmed
  EXPECT_EQ(Drain(buffer), (std::vector<std::string>{"ok"}));
  EXPECT_EQ(buffer.OverlongCount(), 1u);
  EXPECT_EQ(buffer.DiscardedBytes(), 11u);

  // An endless line in small pieces: the buffer never holds more than the maximum, the tail of the
  // line is dropped with it, and its terminator split across appends is still found.
  for (int i = 0; i < 1000; ++i) {
    buffer.Append("abcdefg");
    EXPECT_LE(buffer.PendingFragment().size(), buffer.MaxPacketLength());
  }
  buffer.Append("tail\r");
  buffer.Append("\nnext\r\n");
  EXPECT_EQ(Drain(buffer), (std::vector<std::string>{"next"}));
  EXPECT_EQ(buffer.OverlongCount(), 2u);
  EXPECT_EQ(buffer.DiscardedBytes(), 11u + 7000u + 6u);

  // Clearing between calls also ends the skipping of an overlong line.
  buffer.Append("123456789");
  buffer.Clear();
  buffer.Append("fine\r\n");
  EXPECT_EQ(Drain(buffer), (std::vector<std::string>{"fine"}));
}

}  // namespace
}  // namespace clockcomm::zon
