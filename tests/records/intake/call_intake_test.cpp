#include "records/intake/call_intake.h"

#include <gtest/gtest.h>

#include <fstream>

#include "core/durable_file.h"
#include "records/intake/call_file.h"
#include "records/tcd_record_static.h"
#include "records/transfer_fixture.h"

namespace clockcomm::records {
namespace {

using test_support::TransferFixture;

class CallIntakeTest : public ::testing::Test, public TransferFixture {
 protected:
  CallIntakeTest() {
    companies.Initialize(registry_path);
    std::filesystem::create_directory(dir.path() / "data");
  }

  CallIntake MakeIntake() {
    return CallIntake({dir.path() / "data", dir.path(), registry_path}, companies, log, clock);
  }

  std::vector<std::filesystem::path> DataFiles(const std::string& extension) {
    std::vector<std::filesystem::path> out;
    for (const auto& e : std::filesystem::directory_iterator(dir.path() / "data")) {
      if (e.path().extension() == extension) out.push_back(e.path());
    }
    return out;
  }

  CompanyFactory companies{log, dir.path()};
};

TEST(CallFile, FirstFreeNumberOfTheDayAndTheExtensionByUploadType) {
  test::TempDir dir;
  const auto day = core::Date::FromYmdOrThrow(2009, 2, 1);
  for (int i = 1; i <= 9; ++i) std::ofstream(dir.path() / ("0201000" + std::to_string(i) + ".TCD"));
  auto file = ClaimCallFile(dir.path(), day, "F");
  ASSERT_TRUE(file.has_value());
  EXPECT_EQ(file->filename(), "02010010.TCD");
  EXPECT_TRUE(std::filesystem::exists(*file));  // claimed, so a second line cannot take it
  EXPECT_EQ(ClaimCallFile(dir.path(), day, "F")->filename(), "02010011.TCD");
  EXPECT_EQ(ClaimCallFile(dir.path(), day, "W")->filename(), "02010001.WHO");
}

// A default job holding a comma or a quote reaches the row whole, and the fields after it stay
// where they belong: the punch is carried as a record, never re-read from unquoted text.
TEST_F(CallIntakeTest, DefaultJobsWithCommaAndQuoteReachTheRowsUnshifted) {
  OpenCompanyDb()->Execute(
      "INSERT INTO [Employee Table] ([Card ID], [Home Department], DefaultAssignment) VALUES "
      "(1, 44, 'a,b'), (2, 45, 'x\"y')");
  core::WriteFileAtomically(dir.path() / "SettingsOverride.txt",
                            "assignhomedept = yes\nassigndefaultjob = yes\n");
  CallIntake intake = MakeIntake();
  ASSERT_EQ(intake.Open({"Front", 7, "F"}), OpenResult::kOpened);
  intake.Add(TcdRecordStatic::Parse("7,1,1,,,,,I,091020,0800,,,,1"));
  intake.Add(TcdRecordStatic::Parse("7,2,2,,,,,I,091020,0805,,,,1"));
  intake.Add(TcdRecordStatic::Parse("7,3,1,,job-1,,,I,091020,0810,,,,1"));  // keypad dash
  ASSERT_TRUE(intake.Seal());
  intake.Finish(true);

  auto rows = OpenCompanyDb()->Query(
      "SELECT [Card ID], Department, JobNumber, [Punch Type], [Date In], [Time In] "
      "FROM [Clock Data Table] ORDER BY Punch");
  const std::vector<std::vector<std::string>> expected = {
      {"1", "44", "a,b", "I", "2009-10-20", "08:00:00"},
      {"2", "45", "x\"y", "I", "2009-10-20", "08:05:00"},
      {"1", "44", "job1", "I", "2009-10-20", "08:10:00"}};
  for (const auto& want : expected) {
    ASSERT_FALSE(rows.Eof());
    for (size_t i = 0; i < want.size(); ++i) EXPECT_EQ(rows.Field(i).AsText(), want[i]) << i;
    rows.MoveNext();
  }
  EXPECT_TRUE(rows.Eof());
}

// A failed call's file goes (the terminal keeps its punches), and so does its own .BAD; the
// packets of calls without a header are kept in NOHEADER.BAD, which no later call removes.
TEST_F(CallIntakeTest, AFailedCallLosesItsOwnFilesButNeverAnotherCallsRejects) {
  CallIntake intake = MakeIntake();
  for (const char* packet : {"garbage one", "garbage two"}) {
    intake.Reject(packet, "Data packet before header.");
    EXPECT_TRUE(intake.Seal());
    intake.Finish(false);
  }
  const std::string kept = core::ReadWholeFile(dir.path() / "data" / kNoHeaderRejectFile);
  EXPECT_NE(kept.find("garbage one"), std::string::npos);
  EXPECT_NE(kept.find("garbage two"), std::string::npos);

  ASSERT_EQ(intake.Open({"Front", 7, "F"}), OpenResult::kOpened);
  intake.Add(TcdRecordStatic::Parse("7,1,1,,,,,I,091020,0800,,,,1"));
  intake.Reject("not a punch", "bad");
  ASSERT_TRUE(intake.Seal());
  EXPECT_EQ(DataFiles(".TCD").size(), 1u);
  EXPECT_EQ(DataFiles(".BAD").size(), 2u);
  intake.Finish(false);
  EXPECT_TRUE(DataFiles(".TCD").empty());
  EXPECT_EQ(DataFiles(".BAD").size(), 1u);  // NOHEADER.BAD only
  EXPECT_EQ(RowCount(), 0);
  EXPECT_TRUE(log.HasScreen("Upload Incomplete"));
}

// A clock name used in a duplicate folder cannot climb out of that folder.
TEST_F(CallIntakeTest, ADuplicateCopyStaysInsideItsFolderWhateverTheClockIsCalled) {
  std::filesystem::create_directory(dir.path() / "copies");
  core::WriteFileAtomically(
      dir.path() / "SettingsOverride.txt",
      "duplicatetcdfile = " + (dir.path() / "copies").string() + "/[ClockName]\n");
  db::Open(registry_path)->Execute("UPDATE Company SET [Clock Name] = '../../OUTSIDE'");
  companies.Refresh();
  CallIntake intake = MakeIntake();
  ASSERT_EQ(intake.Open({"../../OUTSIDE", 7, "F"}), OpenResult::kOpened);
  intake.Add(TcdRecordStatic::Parse("7,1,1,,,,,I,091020,0800,,,,1"));
  ASSERT_TRUE(intake.Seal());
  intake.Finish(true);
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "OUTSIDE"));
  EXPECT_FALSE(std::filesystem::exists(dir.path().parent_path() / "OUTSIDE"));
  size_t copies = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir.path() / "copies")) {
    copies += e.is_regular_file();
  }
  EXPECT_EQ(copies, 1u);
}

}  // namespace
}  // namespace clockcomm::records
