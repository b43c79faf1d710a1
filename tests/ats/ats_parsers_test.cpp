#include "ats/ats_parsers.h"

#include <gtest/gtest.h>

#include "ats/ats_frame.h"
#include "ats/ats_models.h"
#include "core/errors.h"

namespace clockcomm::ats {

void PrintTo(const TCDPacket& p, std::ostream* os) {
  *os << TcdCode(p.PunchType) << " " << p.Timestamp.ToString() << " clock " << p.clockId
      << " badge " << p.BadgeId << " dept "
      << (p.DepartmentCode ? std::to_string(*p.DepartmentCode) : "-") << " job " << p.JobCode
      << " class " << p.PunchClass;
}

namespace {

using terminal::TerminalType;

core::DateTime At(int y, int mo, int d, int h, int mi, int s = 0) {
  return *core::DateTime::FromParts(y, mo, d, h, mi, s);
}

// A terminal's data frame around the packet, as terminal 3 sends it.
std::string Frame(std::string_view packet) { return CommandFrame(3, 3, packet); }

TCDPacket Punch(PunchType type, core::DateTime when, int64_t badge, std::optional<int64_t> dept,
                std::string job) {
  TCDPacket p;
  p.PunchType = type;
  p.Timestamp = when;
  p.clockId = 3;
  p.BadgeId = badge;
  p.DepartmentCode = dept;
  p.JobCode = std::move(job);
  return p;
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
        const std::string frame = Frame(BuildPunchPacket(model, record++, punch));
        ASSERT_GT(CheckDataFrame(frame), 0);
        EXPECT_EQ(parser.Parse(frame), punch) << model.name << " " << k.key;
      }
    }
  }
}

TEST(ATSParsers, HandWrittenFrames) {
  const ATSESeriesParser eseries;
  const ATSCyberSeriesParser cyber;
  const ATSProdigyParser prodigy;
  const struct {
    const char* legend;
    const IATSPacketParser& parser;
    std::string packet;
    std::optional<TCDPacket> expected;
  } rows[] = {
      {"E-Series out with all fields", eseries,
       "PN0011\x1E"
       "1234\x1E"
       "2403151705\x1E"
       "42\x1E"
       "J7",
       Punch(PunchType::kOut, At(2024, 3, 15, 17, 5), 1234, 42, "J7")},
      {"E-Series kind 5 is a switch, no job field", eseries,
       "PN0125\x1E"
       "9\x1E"
       "9912310000\x1E",
       Punch(PunchType::kSwitch, At(1999, 12, 31, 0, 0), 9, std::nullopt, "")},
      {"E-Series unknown kind digit is an in", eseries,
       "PN0019\x1E"
       "5\x1E"
       "2402291200\x1E"
       "1",
       Punch(PunchType::kIn, At(2024, 2, 29, 12, 0), 5, 1, "")},
      {"E-Series lunch out", eseries,
       "PN0012\x1E"
       "5\x1E"
       "2401010101\x1E",
       Punch(PunchType::kLunchOut, At(2024, 1, 1, 1, 1), 5, std::nullopt, "")},
      {"CyberSeries return from lunch, tags in any order", cyber,
       "PB240315170512\x1E"
       "R001C=AB\x1E"
       "R001A=77\x1E"
       "R001B=5",
       Punch(PunchType::kLunchIn, At(2024, 3, 15, 17, 5, 12), 77, 5, "AB")},
      {"CyberSeries unknown tag ignored, unknown kind an in", cyber,
       "PB240315170500\x1E"
       "x001A=1\x1E"
       "x001Z=whatever",
       Punch(PunchType::kIn, At(2024, 3, 15, 17, 5), 1, std::nullopt, "")},
      {"Prodigy break end", prodigy,
       "PK240315170500\x1E"
       "E002A=8",
       Punch(PunchType::kBreakIn, At(2024, 3, 15, 17, 5), 8, std::nullopt, "")},
      {"status packet is no punch", eseries, "SR123", std::nullopt},
      {"data packet is no punch", cyber, "DS1", std::nullopt},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.parser.Parse(Frame(row.packet)), row.expected) << row.legend;
  }
  EXPECT_EQ(eseries.Parse(""), std::nullopt);
  EXPECT_EQ(eseries.Parse("\x01!!\x02\\A!\x1D"), std::nullopt);
}

TEST(ATSParsers, UnreadablePunchesNameTheirFault) {
  const ATSESeriesParser eseries;
  const ATSCyberSeriesParser cyber;
  const struct {
    const IATSPacketParser& parser;
    std::string frame;
    const char* fault;
  } rows[] = {
      {eseries,
       Frame("PN0010\x1E"
             "12a4\x1E"
             "2403151705\x1E"),
       "bad badge"},
      {eseries,
       Frame("PN0010\x1E\x1E"
             "2403151705\x1E"),
       "bad badge"},
      {eseries,
       Frame("PN0010\x1E"
             "12345678901\x1E"
             "2403151705\x1E"),
       "bad badge"},
      {eseries,
       Frame("PN0010\x1E"
             "12\x1E"
             "2402301705\x1E"),
       "impossible date"},
      {eseries,
       Frame("PN0010\x1E"
             "12\x1E"
             "2413011705\x1E"),
       "impossible date"},
      {eseries,
       Frame("PN0010\x1E"
             "12\x1E"
             "2401012460\x1E"),
       "impossible date"},
      {eseries,
       Frame("PN0010\x1E"
             "12\x1E"
             "24-1011705\x1E"),
       "bad date"},
      {eseries,
       Frame("PN0010\x1E"
             "12\x1E"
             "240101\x1E"),
       "no date"},
      {eseries,
       Frame("PN0010\x1E"
             "12"),
       "no date"},
      {eseries,
       Frame("PN0010\x1E"
             "12\x1E"
             "2401011200\x1E"
             "-3"),
       "bad department"},
      {eseries, Frame("PN001"), "no punch kind"},
      {eseries,
       Frame("PB240315170500\x1E"
             "I001A=1"),
       "unexpected packet type"},
      {eseries, "\x01!!\x02\\A!\x1DPN0010", "no ETX"},
      {cyber,
       Frame("PB240315170500\x1E"
             "I001B=4"),
       "no badge"},
      {cyber, Frame("PB240315170500"), "no punch kind"},
      {cyber,
       Frame("PB240315170500\x1E"
             "I001A1"),
       "field 1 has no tag"},
      {cyber,
       Frame("PB240315170500\x1E"
             "I001A=1\x1E"
             "I0"),
       "field 2 has no tag"},
      {cyber,
       Frame("PB240315170500\x1E"
             "I001A="),
       "bad badge"},
      {cyber,
       Frame("PB240230170500\x1E"
             "I001A=1"),
       "impossible date"},
      {cyber,
       Frame("PB2403151705\x1E"
             "I001A=1"),
       "no date"},
  };
  for (const auto& row : rows) {
    try {
      row.parser.Parse(row.frame);
      ADD_FAILURE() << "no error for " << row.fault;
    } catch (const core::FormatException& e) {
      EXPECT_NE(std::string(e.what()).find(row.fault), std::string::npos) << e.what();
    }
  }
}

TEST(ATSParsers, FactoryPicksTheModelOfEachType) {
  const std::string eseries_frame =
      Frame(BuildPunchPacket(ModelOf(Series::kESeries), 1,
                             Punch(PunchType::kOut, At(2024, 1, 2, 3, 4), 5, std::nullopt, "")));
  const std::string cyber_frame =
      Frame(BuildPunchPacket(ModelOf(Series::kCyberSeries), 1,
                             Punch(PunchType::kOut, At(2024, 1, 2, 3, 4), 5, std::nullopt, "")));
  for (auto type :
       {TerminalType::kAtsESeries, TerminalType::kAtsMaximus, TerminalType::kAtsOptimus}) {
    EXPECT_TRUE(ATSParserFactory::NewParser(type)->Parse(eseries_frame)) << static_cast<int>(type);
  }
  EXPECT_TRUE(ATSParserFactory::NewParser(TerminalType::kAtsCyberSeries)->Parse(cyber_frame));
  EXPECT_THROW(ATSParserFactory::NewParser(TerminalType::kAtsProdigy)->Parse(cyber_frame),
               core::FormatException);
  EXPECT_THROW(ATSParserFactory::NewParser(TerminalType::kZonTranz), core::ArgumentException);
  EXPECT_THROW(ATSParserFactory::NewParser(TerminalType::kDSeries), core::ArgumentException);
}

TEST(ATSParsers, KindsAModelCannotSendAreRefusedWhenBuilding) {
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
  p.DepartmentCode = 1000000000;
  EXPECT_THROW(ToTcdRecord(p, 1), core::ArgumentException);
  p.DepartmentCode.reset();
  p.JobCode = std::string(14, 'J');
  EXPECT_THROW(ToTcdRecord(p, 1), core::ArgumentException);
  p.JobCode = std::string(13, 'J');
  EXPECT_EQ(ToTcdRecord(p, 1).JobNumber(), p.JobCode);
  p.BadgeId = 2147483648;
  EXPECT_THROW(ToTcdRecord(p, 1), core::ArgumentException);
  const char* codes[] = {"I", "O", "SW", "C", "LO", "LI", "BO", "BI"};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(TcdCode(static_cast<PunchType>(i)), codes[i]);
}

}  // namespace
}  // namespace clockcomm::ats
