// A punch record: its fields, its text forms, and the TCD files and archives that hold such lines.
#include "records/tcd_record.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"
#include "records/tcd_archive.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_file_writer.h"
#include "records/tcd_record_static.h"
#include "records/transfer_fixture.h"

namespace clockcomm::records {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

using test_support::D;
using test_support::T;

// Text without digits is no department; numbers outside the range are refused and leave the old
// value, in the setter and the constructor alike.
TEST(TcdRecordTest, DepartmentRules) {
  const std::pair<const char*, std::optional<int32_t>> accepted[] = {{"1234", 1234},
                                                                     {"abc", std::nullopt},
                                                                     {"", std::nullopt},
                                                                     {"0", 0},
                                                                     {"999999999", 999999999}};
  for (const auto& [text, expected] : accepted) {
    TcdRecord r;
    r.SetDepartmentText(text);
    EXPECT_EQ(r.Department(), expected) << text;
  }
  for (const char* text : {"-1", "1000000000", "1e20"}) {
    TcdRecord r;
    r.SetDepartment(42);
    EXPECT_THAT(
        [&] { r.SetDepartmentText(text); },
        ThrowsMessage<core::ArgumentException>("Department must be between 0 and 999999999."));
    EXPECT_EQ(r.Department(), 42) << text;
  }
  EXPECT_THROW(TcdRecord("1", 1, 1, -5, "", "", "", "I", {}, {}, {}, {}, {}, ""),
               core::ArgumentException);
}

// The setter checks the job's length; the constructor trims every text field and checks nothing.
TEST(TcdRecordTest, JobNumberLengthAndTrimming) {
  TcdRecord r;
  r.SetJobNumber("1234567890123");
  EXPECT_THAT([&] { r.SetJobNumber("12345678901234"); },
              ThrowsMessage<core::ArgumentException>("JobNumber cannot exceed 13 characters."));
  EXPECT_EQ(r.JobNumber(), "1234567890123");
  TcdRecord built(" 99 ", 1, 1, std::nullopt, "  12345678901234  ", " a ", " b ", " LO ", {}, {},
                  {}, {}, {}, " c ");
  EXPECT_EQ(built.ClockNumber() + "|" + built.JobNumber() + "|" + built.PunchType() + "|" +
                built.Level4() + built.Level5() + built.PunchClass(),
            "99|12345678901234|LO|abc");
}

TEST(TcdRecordStaticTest, ConvertLettersToNumbers) {
  const std::pair<const char*, const char*> cases[] = {
      {"123-", "1230"},
      {"AB-1", "2201"},
      {"abc", ""},
      {"1 2.3", "10213"},
      {"#*/", ""},
      {"", ""},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZ", "22233344455566671778889991"}};
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(TcdRecordStatic::ConvertLettersToNumbers(in), out) << in;
  }
}

// Each parsed record as the text of all its fields (ToTcdString, unquoted; the quoted form is the
// transcripts').
TEST(TcdRecordStaticTest, ParseLineFormsAndRefusals) {
  struct Case {
    const char* legend;
    const char* line;
    const char* fields;
  };
  const Case cases[] = {
      {"six-digit date, four-digit time", "999,1,2,3,job,,,I,091020,1224,,,,1",
       "999,1,2,3,job,,,I,2009/10/20,12:24,,,,1"},
      {"month/day/year, am and pm times", "999,1,2,3,job,,,C,1/2/2008,8:30am,1/2/2008,9pm,,1",
       "999,1,2,3,job,,,C,2008/1/2,08:30,2008/1/2,21:00,,1"},
      {"empty department", "999,1,2,,job,,,C,1/2/2008,8:30am,1/2/2008,9pm,,1",
       "999,1,2,,job,,,C,2008/1/2,08:30,2008/1/2,21:00,,1"},
      {"letters in department", "999,1,2,AB,job,,,I,,,,,,1", "999,1,2,22,job,,,I,,,,,,1"},
      {"letters in badge", "999,1,A1,,,,,I,,,,,,", "999,1,21,,,,,I,,,,,,"},
      {"fully quoted",
       "\"1\",\"\",\"111\",\"\",\"\",\"\",\"\",\"I\",\"11/13/2009\",\"13:55\","
       "\"\",\"\",\"\",\"\"",
       "1,0,111,,,,,I,2009/11/13,13:55,,,,"},
      {"out date, amount, negative sequence",
       "999,-4,2,,work,level4,level5,I,,,1/1/2009,08:30,12.3,7",
       "999,-4,2,,work,level4,level5,I,,,2009/1/1,08:30,12.3,7"},
      {"writer's own form", "999,5,1234,3,work,,,I,2009/10/20,12:24,,,,",
       "999,5,1234,3,work,,,I,2009/10/20,12:24,,,,"},
      {"extra fields ignored, leading numbers", " 7 ,12x,34abc,,,,,O,,,,,abc,,extra,more",
       "7,12,34,,,,,O,,,,,,"},
      {"bad six-digit date and odd times are null", "1,1,1,,,,,I,091340,2561,13/45/2009,12345,,",
       "1,1,1,,,,,I,,,,,,"},
  };
  for (const auto& c : cases) {
    const TcdRecord got = TcdRecordStatic::Parse(c.line);
    EXPECT_EQ(got.ToTcdString(0), c.fields) << c.legend;
    EXPECT_FALSE(got.IncludeSeconds());
  }
  EXPECT_THROW(TcdRecordStatic::Parse("999,1,2,3,job,,,I,091020,1224,,,"),
               core::IndexOutOfRangeException);
  EXPECT_THROW(TcdRecordStatic::Parse(""), core::IndexOutOfRangeException);
  EXPECT_THROW(TcdRecordStatic::Parse("1,1,1,ZZZZZZZZZZ,,,,I,,,,,,"), core::ArgumentException);
}

// A line's record by the general rules alone ("throws" if refused): Parse's shortcuts for the
// usual forms must give the same on every form.
std::string GeneralRecord(std::string_view line) {
  const auto f = TcdRecordStatic::SplitFields(line);
  if (f.size() < kTcdFieldCount) return "throws";
  TcdRecord r(f[0], core::LeadingInt32(f[1]),
              core::LeadingInt32(TcdRecordStatic::ConvertLettersToNumbers(f[2])), std::nullopt,
              f[4], f[5], f[6], f[7], TcdRecordStatic::ParseDateField(f[8]),
              TcdRecordStatic::ParseTimeField(f[9]), TcdRecordStatic::ParseDateField(f[10]),
              TcdRecordStatic::ParseTimeField(f[11]), std::nullopt, f[13]);
  try {
    r.SetDepartmentText(TcdRecordStatic::ConvertLettersToNumbers(f[3]));
  } catch (const core::ArgumentException&) {
    return "throws";
  }
  r.SetAmountText(f[12]);
  return r.ToTcdString(0);
}

std::string Parsed(std::string_view line) {
  try {
    return TcdRecordStatic::Parse(line).ToTcdString(0);
  } catch (const core::Error&) {
    return "throws";
  }
}

TEST(TcdRecordStaticTest, ParseShortcutsAgreeWithTheGeneralRulesOnEveryForm) {
  // Each form in its field of an otherwise ordinary line, plain and quoted.
  const std::vector<std::pair<std::vector<int>, std::vector<const char*>>> forms = {
      {{1, 2, 3},
       {"", "0", "007", "123456789", "1234567890", "2147483648", "99999999999", " 5", "5 ", "-3",
        "+4", "1.5", "2.5", "AB", "a1", "1e3", ".5", "-", "1 2"}},
      {{12},
       {"", "6", "12.5", "0.1", "12.", ".5", "1.25e2", "12345678901234.5", "123456789012345.5",
        "99999999999999.9", "0.00000000000001", "-1.5", "+1.5", " 1.5", "1.2.3", "abc"}},
  };
  const char* const base[kTcdFieldCount] = {"999", "5",          "1005",  "3", "job", "", "",
                                            "I",   "2009/10/20", "08:30", "",  "",    "", "1"};
  auto line_of = [](const std::vector<std::string>& fields, bool quoted) {
    std::string line;
    for (const auto& field : fields) {
      if (!line.empty() || &field != &fields.front()) line += ',';
      line += quoted ? "\"" + field + "\"" : field;
    }
    return line;
  };
  for (const auto& [columns, texts] : forms) {
    for (int column : columns) {
      for (const char* text : texts) {
        std::vector<std::string> fields(base, base + kTcdFieldCount);
        fields[column] = text;
        for (bool quoted : {false, true}) {
          const std::string line = line_of(fields, quoted);
          EXPECT_EQ(Parsed(line), GeneralRecord(line)) << line;
        }
      }
    }
  }
  // Lines whose quotes or commas the shortcut split does not take, or takes only in part.
  for (const char* line :
       {"999,1,2,3,\"a,b\",,,I,,,,,,1", "999,1,2,3,\"a\"\"b\",,,I,,,,,,1",
        "999,1,2,3,a\"b,,,I,,,,,,1", "999,1,2,3,\"ab\"c,,,I,,,,,,1", "999,1,2,3,\"\",,,I,,,,,,\"1",
        "999,1,2,3,job,,,I,,,,,,\"1,2\"", "999,1,2,3,job,,,I,,,,,,1,\"x",
        "999,1,2,3,job,,,I,,,,,,\"", "999,1,2,3,job,,,I,,,,,\",\"", "999,1,2,3,job,,,I,,,,,,",
        "999,1,2,3,job,,,I,,,,,", "999,1,2,3,\"a,b,c,d\",,,I,,,,,", " \"999\",1,2,3,job,,,I,,,,,,1",
        "\"999\" ,1,2,3,job,,,I,,,,,,1", "\t999\t,1,2,3,\tjob ,,,I,,,,,,1",
        "1,1,1,ZZZZZZZZZZ,,,,I,,,,,,", "\"\"\"\",1,2,3,job,,,I,,,,,,1", ""}) {
    EXPECT_EQ(Parsed(line), GeneralRecord(line)) << line;
  }
}

TcdRecord Punch(int seq) {
  return TcdRecord("999", seq, 1000 + seq, {}, "", "", "", "I", D(2009, 10, 20), T(8, 0), {}, {},
                   {}, "1");
}

// The forms this program writes are read without the lenient conversion, yet must give its answer.
TEST(TcdRecordStaticTest, DatesAndTimesReadAsTheLenientConversionReadsThem) {
  for (const char* text : {"2009/10/20", "2009/1/5",   "2009/01/05",      "2009/02/30",
                           "2024/2/29",  "2023/2/29",  "2009/10/200",     "209/10/20",
                           "2009/10",    "2009//20",   "2009/10/20/1",    "1999/12/31",
                           "0000/01/01", "0001/01/01", "2009/13/1",       "2009/1o/20",
                           "",           " ",          " 2009/10/20",     "1/2/2008",
                           "01/02/08",   "2008-01-02", "2009/10/20 08:30"}) {
    EXPECT_EQ(TcdRecordStatic::ParseDateField(text), core::ParseDate(text)) << text;
  }
  for (const char* text :
       {"08:30", "8:30", "23:59:59", "24:00", "12:60", "8:5", "08:30:", "083:0", "0:00", "12:30:61",
        ":30", "8:30:15", "08:30:15:1", "", " 08:30", "08:30 ", "8:30am", "9pm"}) {
    const auto lenient = core::ParseDateTime(text);
    EXPECT_EQ(TcdRecordStatic::ParseTimeField(text),
              lenient ? std::optional(lenient->GetTime()) : std::nullopt)
        << text;
  }
}

TEST(TcdFilesTest, WriterLinesEndInCrLfAndAHandedInDescriptorStaysTheCallers) {
  test::TempDir dir;
  const auto path = dir.path() / "x.TCD";
  { TcdFileWriter(path, false).WriteRecord(Punch(1)); }
  { TcdFileWriter(path, false).WriteRecord(Punch(2)); }
  const std::string line =
      "\"999\",\"2\",\"1002\",\"\",\"\",\"\",\"\",\"I\","
      "\"2009/10/20\",\"08:00\",\"\",\"\",\"\",\"1\"\r\n";
  EXPECT_EQ(core::ReadWholeFile(path), line) << "a writer without append empties the file";

  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC);
  ASSERT_GE(fd, 0);
  {
    TcdFileWriter writer(fd);
    writer.WriteRecord(Punch(2));
    writer.CloseWriter();
  }
  EXPECT_EQ(::write(fd, "x", 1), 1) << "the caller's descriptor must still be open";
  EXPECT_EQ(::close(fd), 0);
  EXPECT_EQ(core::ReadWholeFile(path), line + "x");

  core::WriteFileAtomically(path, "");
  EXPECT_FALSE(TcdFileReader(path).Read());
}

TEST(TcdFilesTest, ReaderLineRules) {
  test::TempDir dir;
  const auto path = dir.path() / "mixed.TCD";
  core::WriteFileAtomically(path,
                            "\"1\",\"2\",\"3\",\"\",\"a,b\",\"\",\"\",\"I\",\"11/13/2009\","
                            "\"13:55\",\"\",\"\",\"\",\"\"\r\n"
                            "\r\n"
                            "1,2,3\r\n"
                            "1,2,AB,4,,,,O,2009/1/2,9pm,,,x,\n"
                            "1,2,3,2000000000,,,,I,,,,,,\r\n"
                            "1,5,6,,,,,I,,,,,,");
  TcdFileReader reader(path);
  ASSERT_TRUE(reader.Read());
  EXPECT_EQ(reader.Record()->JobNumber(), "a,b");
  EXPECT_EQ(reader.Record()->DateIn(), D(2009, 11, 13));
  EXPECT_EQ(reader.LineNumber(), 1);
  EXPECT_THROW(reader.Read(), core::FormatException);
  EXPECT_EQ(reader.LineNumber(), 3) << "blank line skipped, short line named";
  EXPECT_EQ(reader.Line(), "1,2,3");
  ASSERT_TRUE(reader.Read());
  // No keypad conversion on this path: a letter badge reads as 0.
  EXPECT_EQ(reader.Record()->BadgeId(), 0);
  EXPECT_EQ(reader.Record()->Department(), 4);
  EXPECT_EQ(reader.Record()->TimeIn(), T(21, 0));
  EXPECT_FALSE(reader.Record()->Amount());
  EXPECT_THROW(reader.Read(), core::ArgumentException);
  EXPECT_EQ(reader.LineNumber(), 5);
  ASSERT_TRUE(reader.Read());
  EXPECT_EQ(reader.Record()->SequenceNumber(), 5);
  EXPECT_FALSE(reader.Read());
}

TEST(TcdFilesTest, ArchiveNamesAndAppends) {
  test::TempDir dir;
  EXPECT_EQ(DailyArchivePath(dir.path(), D(2009, 2, 1)).filename(), "0201000A.TCD");
  EXPECT_EQ(DailyArchivePath(dir.path(), D(2009, 12, 31)).filename(), "1231000A.TCD");
  EXPECT_EQ(PermanentArchivePath(dir.path(), "CLOCK1").filename(), "CLOCK1.arc");

  Company company;
  company.Initialize("Acme", {}, "CLOCK1", "acme", D(2009, 1, 1), "weekly", {}, 0, dir.path());
  EXPECT_THAT([&] { TcdArchiveWriter(company, D(2009, 2, 1)); },
              ThrowsMessage<core::SystemError>(HasSubstr("Couldn't open daily archive file.")));
  std::filesystem::create_directory(dir.path() / "acme");
  // Two calls delivered at once, each more than a buffer's worth (the second written by its
  // destructor alone): both land whole, no line split by the other's.
  const int per_call = static_cast<int>(TcdFileWriter::kBufferLimit / 50);
  {
    TcdArchiveWriter first(company, D(2009, 2, 1));
    TcdArchiveWriter second(company, D(2009, 2, 1));
    for (int i = 0; i < per_call; ++i) {
      first.WriteRecord(Punch(i));
      second.WriteRecord(Punch(per_call + i));
    }
    first.Sync();
  }
  for (const char* name : {"0201000A.TCD", "CLOCK1.arc"}) {
    TcdFileReader reader(dir.path() / "acme" / name);
    std::vector<int> seen(2 * per_call, 0);
    while (reader.Read()) ++seen.at(static_cast<size_t>(reader.Record()->SequenceNumber()));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 2 * per_call) << name;
  }
}

}  // namespace
}  // namespace clockcomm::records
