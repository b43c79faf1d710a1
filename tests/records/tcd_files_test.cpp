#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "core/durable_file.h"
#include "core/errors.h"
#include "records/tcd_archive.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_file_writer.h"
#include "records/transfer_fixture.h"

namespace clockcomm::records {
namespace {

using test_support::D;
using test_support::T;

// What the call files hold is checked line for line by the golden transcripts.
TcdRecord Punch(int seq) {
  return TcdRecord("999", seq, 1000 + seq, {}, "", "", "", "I", D(2009, 10, 20), T(8, 0), {}, {},
                   {}, "1");
}

// Append or empty, a descriptor handed in stays the caller's, and missing files are refused.
TEST(TcdFilesTest, WriterModesAndMissingFiles) {
  test::TempDir dir;
  const auto path = dir.path() / "x.TCD";
  auto count = [&] {
    TcdFileReader reader(path);
    int n = 0;
    while (reader.Read()) ++n;
    return n;
  };
  { TcdFileWriter(path, false).WriteRecord(Punch(1)); }
  { TcdFileWriter(path, true).WriteRecord(Punch(2)); }
  EXPECT_EQ(count(), 2);
  EXPECT_NE(core::ReadWholeFile(path).find("\"1\"\r\n\"999\",\"2\","), std::string::npos)
      << "lines end in CR LF";
  { TcdFileWriter(path, false).WriteRecord(Punch(3)); }
  EXPECT_EQ(count(), 1) << "a writer without append empties the file";

  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GT(fd, 0);
  {
    TcdFileWriter writer(fd);
    writer.WriteRecord(Punch(1));
    writer.CloseWriter();
    writer.CloseWriter();
  }
  EXPECT_EQ(::write(fd, "x", 1), 1) << "the caller's descriptor must still be open";
  EXPECT_EQ(::close(fd), 0);
  TcdFileWriter own(path, true);
  own.CloseWriter();
  EXPECT_EQ(own.Handle(), 0);
  EXPECT_NO_THROW(own.CloseWriter());
  EXPECT_THROW(own.WriteRecord(Punch(1)), core::InvalidOperationException);

  core::WriteFileAtomically(path, "");
  TcdFileReader empty(path);
  EXPECT_FALSE(empty.Read());
  EXPECT_FALSE(empty.Record().has_value());
  EXPECT_THROW(TcdFileReader(dir.path() / "none.TCD"), core::SystemError);
  EXPECT_THROW(TcdFileWriter(dir.path() / "no" / "dir.TCD", false), core::SystemError);
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
  try {
    TcdArchiveWriter(company, D(2009, 2, 1));
    ADD_FAILURE() << "archived into a missing folder";
  } catch (const core::SystemError& e) {
    EXPECT_NE(std::string(e.what()).find("Couldn't open daily archive file."), std::string::npos)
        << e.what();
  }
  std::filesystem::create_directory(dir.path() / "acme");
  for (int call = 0; call < 2; ++call) {
    TcdArchiveWriter archive(company, D(2009, 2, 1));
    archive.WriteRecord(Punch(call + 1));
    archive.Sync();
  }
  for (const char* name : {"0201000A.TCD", "CLOCK1.arc"}) {
    TcdFileReader reader(dir.path() / "acme" / name);
    int n = 0;
    while (reader.Read()) ++n;
    EXPECT_EQ(n, 2) << name << " collects both calls";
  }
}

}  // namespace
}  // namespace clockcomm::records
