#include "ats/ats_parsers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ats/ats_frame.h"
#include "ats/ats_models.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::ats {

void PrintTo(const TCDPacket& p, std::ostream* os) {
  *os << TcdCode(p.PunchType) << " " << p.Timestamp.ToString() << " clock " << p.clockId
      << " badge " << p.BadgeId << " dept "
      << (p.DepartmentCode ? std::to_string(*p.DepartmentCode) : "-") << " job " << p.JobCode
      << " class " << p.PunchClass;
}

namespace {

using terminal::TerminalType;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

core::DateTime At(int y, int mo, int d, int h, int mi, int s = 0) {
  return *core::DateTime::FromParts(y, mo, d, h, mi, s);
}

// Terminal 3's data frame around a packet given as its fields, which travel joined by RS.
std::string Frame(std::initializer_list<std::string_view> fields) {
  std::string packet;
  for (std::string_view f : fields) packet.append(packet.empty() ? "" : "\x1E").append(f);
  return CommandFrame(3, 3, packet);
}

TCDPacket Punch(PunchType type, core::DateTime when, int64_t badge, std::optional<int64_t> dept,
                std::string job) {
  return {std::string(kAtsPunchClass), type, when, 3, badge, dept, std::move(job)};
}

TEST(ATSParsers, EveryKindOfEachModelComesBackAsBuilt) {
  for (Series series : {Series::kESeries, Series::kCyberSeries, Series::kProdigy}) {
    const AtsModel& model = ModelOf(series);
    ATSModelParser parser(series);
    int record = 998;  // the record number wraps past 999
    for (const KindKey& k : model.kinds) {
      for (const auto& [dept, job] : {std::pair<std::optional<int64_t>, std::string>{7, "J12"},
                                      {std::nullopt, ""},
                                      {0, ""}}) {
        const auto when = At(2029, 12, 31, 23, 59, model.date_digits == 12 ? 58 : 0);
        const TCDPacket punch = Punch(k.type, when, 2147483647, dept, job);
        const std::string frame = CommandFrame(3, 3, BuildPunchPacket(model, record++, punch));
        ASSERT_GT(CheckDataFrame(frame), 0);
        EXPECT_EQ(parser.Parse(frame), punch) << model.name << " " << k.key;
      }
    }
  }
}

// Frames as each model's terminals send them: read as a punch, as no punch, or refused with the
// fault named (the reason a kept-aside packet carries).
TEST(ATSParsers, HandWrittenFrames) {
  const ATSESeriesParser e;
  const ATSCyberSeriesParser c;
  const ATSProdigyParser k;
  using enum PunchType;
  const struct {
    const IATSPacketParser& parser;
    std::string frame;
    std::optional<TCDPacket> punch;
    const char* fault = nullptr;
  } rows[] = {
      // E-Series: an out with every field, kind 5 a switch with no job field, an unknown kind an
      // in, a lunch out.
      {e, Frame({"PN0011", "1234", "2403151705", "42", "J7"}),
       Punch(kOut, At(2024, 3, 15, 17, 5), 1234, 42, "J7")},
      {e, Frame({"PN0125", "9", "9912310000", ""}),
       Punch(kSwitch, At(1999, 12, 31, 0, 0), 9, {}, "")},
      {e, Frame({"PN0019", "5", "2402291200", "1"}), Punch(kIn, At(2024, 2, 29, 12, 0), 5, 1, "")},
      {e, Frame({"PN0012", "5", "2401010101", ""}),
       Punch(kLunchOut, At(2024, 1, 1, 1, 1), 5, {}, "")},
      // CyberSeries: a return from lunch with its tags in any order; an unknown tag ignored and an
      // unknown kind an in.
      {c, Frame({"PB240315170512", "R001C=AB", "R001A=77", "R001B=5"}),
       Punch(kLunchIn, At(2024, 3, 15, 17, 5, 12), 77, 5, "AB")},
      {c, Frame({"PB240315170500", "x001A=1", "x001Z=whatever"}),
       Punch(kIn, At(2024, 3, 15, 17, 5), 1, {}, "")},
      // Prodigy: a break end.
      {k, Frame({"PK240315170500", "E002A=8"}), Punch(kBreakIn, At(2024, 3, 15, 17, 5), 8, {}, "")},
      // No punch: a status packet, a frame cut before its type.
      {e, Frame({"SR123"}), {}},
      {e, "\x01!!\x02\\A!\x1D", {}},
      // Unreadable punches.
      {e, Frame({"PN0010", "12a4", "2403151705", ""}), {}, "bad badge"},
      {e, Frame({"PN0010", "", "2403151705", ""}), {}, "bad badge"},
      {e, Frame({"PN0010", "12345678901", "2403151705", ""}), {}, "bad badge"},
      {e, Frame({"PN0010", "12", "2402301705", ""}), {}, "impossible date"},
      {e, Frame({"PN0010", "12", "24-1011705", ""}), {}, "bad date"},
      {e, Frame({"PN0010", "12", "240101", ""}), {}, "no date"},
      {e, Frame({"PN0010", "12"}), {}, "no date"},
      {e, Frame({"PN0010", "12", "2401011200", "-3"}), {}, "bad department"},
      {e, Frame({"PN001"}), {}, "no punch kind"},
      {e, Frame({"PB240315170500", "I001A=1"}), {}, "unexpected packet type"},
      {e, "\x01!!\x02\\A!\x1DPN0010", {}, "no ETX"},
      {c, Frame({"PB240315170500", "I001B=4"}), {}, "no badge"},
      {c, Frame({"PB240315170500"}), {}, "no punch kind"},
      {c, Frame({"PB240315170500", "I001A1"}), {}, "field 1 has no tag"},
      {c, Frame({"PB240315170500", "I001A=1", "I0"}), {}, "field 2 has no tag"},
      {c, Frame({"PB240315170500", "I001A="}), {}, "bad badge"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(core::Printable(row.frame));
    if (row.fault != nullptr) {
      EXPECT_THAT([&] { (void)row.parser.Parse(row.frame); },
                  ThrowsMessage<core::FormatException>(HasSubstr(row.fault)));
    } else {
      EXPECT_EQ(row.parser.Parse(row.frame), row.punch);
    }
  }
}

TEST(ATSParsers, EachTerminalTypeReadsItsModelsPackets) {
  // The E-Series, CyberSeries and Prodigy types are polled end to end in ats_poll_test.cpp.
  const std::pair<TerminalType, Series> rows[] = {{TerminalType::kAtsMaximus, Series::kESeries},
                                                  {TerminalType::kAtsOptimus, Series::kESeries}};
  for (const auto& [type, series] : rows) {
    const auto parser = ATSParserFactory::NewParser(type);
    EXPECT_EQ(dynamic_cast<const ATSModelParser&>(*parser).Model().series, series)
        << static_cast<int>(type);
  }
  EXPECT_THROW(ATSParserFactory::NewParser(TerminalType::kZonTranz), core::ArgumentException);
  EXPECT_THROW(ATSParserFactory::NewParser(TerminalType::kDSeries), core::ArgumentException);
  // A kind the model cannot send is refused when building its packet.
  EXPECT_THROW(BuildPunchPacket(ModelOf(Series::kESeries), 1,
                                Punch(PunchType::kLunchIn, At(2024, 1, 2, 3, 4), 5, {}, "")),
               core::ArgumentException);
  EXPECT_EQ(SeriesFromName("prodigy"), Series::kProdigy);
  EXPECT_THROW(SeriesFromName("optimus"), core::ArgumentException);
}

TEST(TCDPacket, ToTcdRecord) {
  TCDPacket p = Punch(PunchType::kBreakOut, At(2024, 3, 5, 7, 9, 30), 1234, 42, "J7");
  p.clockId = 12;
  const records::TcdRecord record = ToTcdRecord(p, 77);
  EXPECT_EQ(record.ToTcdString(0), "12,77,1234,42,J7,,,BO,2024/3/5,07:09,,,,1");
  p.JobCode = std::string(14, 'J');  // the record's limit holds here too
  EXPECT_THROW(ToTcdRecord(p, 1), core::ArgumentException);
  p.JobCode.clear();
  p.BadgeId = 2147483648;
  EXPECT_THROW(ToTcdRecord(p, 1), core::ArgumentException);
  const char* codes[] = {"I", "O", "SW", "C", "LO", "LI", "BO", "BI"};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(TcdCode(static_cast<PunchType>(i)), codes[i]);
}

}  // namespace
}  // namespace clockcomm::ats
