// The T4 codec against the byte vectors the terminals' protocol is known by: checksums, key tokens,
// time codes, records, events and the TCP framing split at every byte.
#include <gtest/gtest.h>

#include <sstream>

#include "t4/net/t4_auth_key.h"
#include "t4/net/t4_events.h"
#include "t4/net/t4_frame_cutter.h"
#include "t4/net/t4_packet.h"
#include "t4/net/t4_records.h"
#include "t4/net/t4_time_code.h"
#include "t4/net/t4_user_records.h"

namespace clockcomm::t4::net {
namespace {

// "e8 03 17 fc" -> bytes; "00x20" stands for twenty zero bytes.
std::string Hex(const std::string& text) {
  std::istringstream in(text);
  std::string bytes, word;
  while (in >> word) {
    const auto times = word.find('x');
    const char byte = static_cast<char>(std::stoi(word.substr(0, 2), nullptr, 16));
    bytes.append(times == std::string::npos ? 1 : std::stoul(word.substr(times + 1)), byte);
  }
  return bytes;
}

TEST(T4PacketTest, EncodesTheKnownPacketsAndDecodesThemBack) {
  struct Case {
    T4Packet packet;
    const char* bytes;
  };
  const Case cases[] = {
      {{cmd::kConnect, 0, 0, ""}, "e8 03 17 fc 00 00 00 00"},
      {{cmd::kDisableDevice, 0x1234, 1, ""}, "eb 03 df e9 34 12 01 00"},
      {{cmd::kPrepareBuffer, 0x1234, 3, Hex("01 0d 00 00 00 00 00 00 00 00 00")},
       "df 05 e8 da 34 12 03 00 01 0d 00 00 00 00 00 00 00 00 00"},
      {{cmd::kReadBuffer, 0x1234, 4, Hex("00 00 00 00 c0 ff 00 00")},
       "e0 05 26 e8 34 12 04 00 00 00 00 00 c0 ff 00 00"},
      {{cmd::kRegEvent, 0x1234, 7, Hex("01 00 00 00")}, "f4 01 cf eb 34 12 07 00 01 00 00 00"},
      {{reply::kOk, 0x1234, 0, ""}, "d0 07 fb e5 34 12 00 00"},
      {{cmd::kSetTime, 0x1234, 10, Hex("08 90 48 2e")}, "ca 00 a7 2e 34 12 0a 00 08 90 48 2e"},
      {{cmd::kOptionsRead, 0x1234, 11, std::string("~Platform", 10)},
       "0b 00 7a 62 34 12 0b 00 7e 50 6c 61 74 66 6f 72 6d 00"},
      {{cmd::kAuth, 0x1234, 1, Hex("61 7d 32 6b")}, "4e 04 e9 00 34 12 01 00 61 7d 32 6b"},
      {{cmd::kGetFreeSizes, 0x1234, 2, Hex("08")}, "32 00 8f ed 34 12 02 00 08"},
      {{cmd::kGetTime, 0x1234, 0xFFFF, ""}, "c9 00 02 ed 34 12 ff ff"},
      {{reply::kOk, 0xFFFF, 0xF830, Hex("ff ff ff ff")}, "d0 07 fe ff ff ff 30 f8 ff ff ff ff"},
      // Received: an event, a bulk descriptor, PREPARE_DATA, an inline answer.
      {{reply::kEvent, 0x0100, 0, Hex("64")}, "f4 01 a7 fc 00 01 00 00 64"},
      {{reply::kOk, 0x3c5c, 0x15, Hex("00 b4 13 00 00 b4 13 00 00 cd ef 23 00")},
       "d0 07 a7 62 5c 3c 15 00 00 b4 13 00 00 b4 13 00 00 cd ef 23 00"},
      {{reply::kPrepareData, 0x3c5c, 0x16, Hex("b4 13 00 00 f0 03 00 00")},
       "dc 05 0d a6 5c 3c 16 00 b4 13 00 00 f0 03 00 00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(Encode(c.packet), Hex(c.bytes));
    EXPECT_EQ(Decode(Hex(c.bytes)), c.packet);
  }
  EXPECT_EQ(EncodeTcp({cmd::kConnect, 0, 0, ""}),
            Hex("50 50 82 7d 08 00 00 00 e8 03 17 fc 00 00 00 00"));
  std::string corrupt = Hex("eb 03 df e9 34 12 01 00");
  corrupt[6] = 2;
  EXPECT_FALSE(Decode(corrupt));
  EXPECT_FALSE(Decode(Hex("e8 03 17")));
}

TEST(T4FrameCutterTest, CutsFramesFedInEveryPossibleSplit) {
  const std::string a = EncodeTcp({reply::kOk, 1, 2, "abc"});
  const std::string b = EncodeTcp({reply::kData, 0, 2, std::string(300, 'x')});
  const std::string stream = a + b + a;
  for (size_t cut = 0; cut <= stream.size(); ++cut) {
    T4FrameCutter cutter;
    std::vector<std::string> frames;
    for (std::string_view part :
         {std::string_view(stream).substr(0, cut), std::string_view(stream).substr(cut)}) {
      cutter.Append(part);
      while (auto frame = cutter.Next()) frames.push_back(*frame);
    }
    ASSERT_EQ(frames.size(), 3u) << "cut at " << cut;
    EXPECT_EQ(frames[1], b.substr(8));
    EXPECT_EQ(cutter.Buffered(), 0u);
  }
}

TEST(T4FrameCutterTest, AStreamOutOfStepIsAnErrorAsSoonAsItShows) {
  for (const std::string& bytes :
       {std::string("PQ"), Hex("50 50 82 7d 07 00 00 00"), Hex("50 50 82 7d 09 00 01 00")}) {
    T4FrameCutter cutter;
    cutter.Append(bytes);
    EXPECT_THROW(cutter.Next(), T4StreamError);
  }
}

TEST(T4AuthKeyTest, TokensOfKnownKeysAndSessions) {
  const struct {
    uint32_t key;
    uint16_t session;
    const char* token;
  } cases[] = {{0, 0x1234, "61 7d 32 6b"},
               {1, 0x1234, "61 fd 32 6b"},
               {123456, 0x4A2B, "26 7f 32 b3"},
               {888888, 0x8DF3, "6b 61 32 44"},
               {999999, 0xC0C5, "22 81 32 c9"}};
  for (const auto& c : cases) {
    EXPECT_EQ(AuthToken(c.key, c.session), Hex(c.token)) << c.key;
    EXPECT_TRUE(AuthTokenMatches(AuthToken(c.key, c.session, 0x07), c.key, c.session));
    EXPECT_FALSE(AuthTokenMatches(AuthToken(c.key + 1, c.session), c.key, c.session));
  }
}

TEST(T4TimeCodeTest, KnownCodesAndEveryMonthEndRoundTrip) {
  const struct {
    int y, mo, d, h, mi, s;
    uint32_t code;
  } cases[] = {{2000, 1, 1, 0, 0, 0, 0},
               {2018, 6, 25, 17, 41, 5, 0x2368B131},
               {2024, 2, 29, 8, 30, 0, 0x2E489008},
               {2099, 12, 31, 23, 59, 59, kMaxTimeCode}};
  for (const auto& c : cases) {
    const auto time = *core::DateTime::FromParts(c.y, c.mo, c.d, c.h, c.mi, c.s);
    EXPECT_EQ(EncodeTimeCode(time), c.code);
    EXPECT_EQ(DecodeTimeCode(c.code).ToDateTime(), time);
  }
  // 12 July 2024: the days-divided-by-365 shortcut would make it 2025.
  EXPECT_EQ(DecodeTimeCode(EncodeTimeCode(*core::DateTime::FromParts(2024, 7, 12))).year, 2024);
  for (int year = 2000; year <= 2099; ++year) {
    for (int month = 1; month <= 12; ++month) {
      const auto end =
          *core::DateTime::FromParts(year, month, core::Date::DaysInMonth(year, month), 23, 59, 59);
      ASSERT_EQ(DecodeTimeCode(EncodeTimeCode(end)).ToDateTime(), end);
    }
  }
  // Encodable but impossible: 30 February, and past 2099.
  EXPECT_FALSE(DecodeTimeCode(EncodeTimeCode(*core::DateTime::FromParts(2024, 2, 28)) + 2 * 86400)
                   .ToDateTime());
  EXPECT_FALSE(DecodeTimeCode(kMaxTimeCode + 1).ToDateTime());
}

T4Record Record(uint16_t uid, std::string id, uint8_t verify, uint8_t state, uint32_t work = 0) {
  return {uid, std::move(id), verify, state, 0x2E489008, work, ""};
}

TEST(T4RecordsTest, EachLayoutDecodesItsKnownRecord) {
  const struct {
    size_t size;
    const char* bytes;
    T4Record record;
  } cases[] = {
      {40,
       "07 00 31 30 34 32 00x20 0f 08 90 48 2e 01 00 00 00 00 ff 00 00 00",
       {7, "1042", 15, 1, 0x2E489008, 0, Hex("ff 00 00 00")}},
      {16,
       "12 04 00 00 08 90 48 2e 01 0f 00 00 07 00 00 00",
       {0, "1042", 15, 1, 0x2E489008, 7, Hex("00 00")}},
      {8, "07 00 01 08 90 48 2e 00", {7, "", 1, 0, 0x2E489008, 0, ""}},
  };
  for (const auto& c : cases) {
    const std::string record = Hex(c.bytes);
    ASSERT_EQ(record.size(), c.size);
    EXPECT_EQ(EncodeRecord(c.record, c.size), record);
    std::string dataset = std::string(1, static_cast<char>(c.size)) + std::string(3, '\0') + record;
    const T4Dataset decoded = DecodeAttendance(dataset, 1);
    EXPECT_EQ(decoded.record_size, c.size);
    EXPECT_EQ(decoded.records, std::vector<T4Record>{c.record});
  }
}

TEST(T4RecordsTest, TheLayoutIsChosenByCountThenByWhatDecodesSensibly) {
  std::vector<T4Record> records;
  for (uint16_t i = 1; i <= 20; ++i) records.push_back(Record(i, std::to_string(1000 + i), 1, 0));
  for (size_t size : {40, 49, 16, 8}) {
    SCOPED_TRACE(size);
    const std::string dataset = EncodeAttendance(records, size);
    EXPECT_EQ(DecodeAttendance(dataset, 20).record_size, size);
    // A count spoilt by a punch after it was read: the records still decide.
    EXPECT_EQ(DecodeAttendance(dataset, 21).record_size, size);
    EXPECT_EQ(DecodeAttendance(dataset, 0).record_size, size);
  }
  // 80 bytes cut as 40, 16 or 8 are all plausible only as two records of 40.
  EXPECT_EQ(DecodeAttendance(EncodeAttendance({records[0], records[1]}, 40), 0).record_size, 40u);
  EXPECT_TRUE(DecodeAttendance(EncodeAttendance({}, 40), 5).records.empty());
}

TEST(T4RecordsTest, LengthsThatDisagreeAreRefused) {
  std::string dataset = EncodeAttendance({Record(1, "5", 1, 0)}, 40);
  EXPECT_THROW(DecodeAttendance(dataset + "x", 1), T4DataError);
  EXPECT_THROW(DecodeAttendance(dataset.substr(0, 3), 1), T4DataError);
  dataset[0] = 39;  // no known size, no count to go by
  EXPECT_THROW(DecodeAttendance(dataset.substr(0, 43), 0), T4DataError);
}

TEST(T4EventsTest, EveryPayloadLayoutDecodes) {
  const T4Time at{2024, 2, 29, 8, 30, 0};
  const struct {
    const char* packet;  // UDP form, as captured or computed
    T4AttEvent event;
  } cases[] = {
      {"f4 01 a4 ef 01 00 00 00 12 04 01 00 18 02 1d 08 1e 00", {"1042", 1, 0, at, 0}},
      {"f4 01 ad 43 01 00 00 00 f1 94 49 00 01 00 12 0c 07 13 09 06",
       {"4822257", 1, 0, {2018, 12, 7, 19, 9, 6}, 0}},
      {"f4 01 43 90 01 00 00 00 31 30 34 32 00x20 0f 01 18 02 1d 08 1e 00", {"1042", 15, 1, at, 0}},
      {"f4 01 3c 90 01 00 00 00 31 30 34 32 00x20 0f 01 18 02 1d 08 1e 00 07 00 00 00",
       {"1042", 15, 1, at, 7}},
  };
  for (const auto& c : cases) {
    const auto packet = Decode(Hex(c.packet));
    ASSERT_TRUE(packet) << c.packet;
    EXPECT_EQ(packet->session, kEventAttLog);
    EXPECT_EQ(DecodeAttEvents(packet->data), std::vector<T4AttEvent>{c.event});
    EXPECT_EQ(EncodeAttEvent(c.event, packet->data.size()), packet->data);
  }
  const T4AttEvent e{"77", 1, 0x81, at, 3};
  for (size_t length : kEventLengths) {
    const auto decoded = DecodeAttEvents(EncodeAttEvent(e, length));
    ASSERT_EQ(decoded.size(), 1u) << length;
    EXPECT_EQ(decoded[0].user_id, "77");
    EXPECT_EQ(decoded[0].state, 0x81);
    EXPECT_EQ(decoded[0].work_code, length == 14 || length == 36 ? 3u : 0u) << length;
  }
  EXPECT_EQ(DecodeAttEvents(EncodeAttEvent(e, 52) + EncodeAttEvent(e, 52)).size(), 2u);
  EXPECT_TRUE(DecodeAttEvents(std::string(20, '\1')).empty());
}

TEST(T4UserRecordsTest, BothSizesRoundTripAndBadLengthsAreRefused) {
  const std::vector<T4UserRecord> users = {{1, 0, "12", "Ann", 77, 1, "1042"},
                                           {2, 6, "", "Bob", 0, 1, "99"}};
  for (size_t size : {kNumericUserSize, kStringUserSize}) {
    const std::string table = EncodeUsers(users, size);
    EXPECT_EQ(table.size(), 4 + 2 * size);
    EXPECT_EQ(DecodeUsers(table, 2), users);
    EXPECT_THROW(DecodeUsers(table.substr(0, table.size() - 1), 2), T4DataError);
  }
}

}  // namespace
}  // namespace clockcomm::t4::net
