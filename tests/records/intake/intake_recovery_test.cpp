#include "records/intake/intake_recovery.h"

#include <gtest/gtest.h>

#include "core/durable_file.h"
#include "records/intake/call_intake.h"
#include "records/intake/call_state.h"
#include "records/tcd_record_static.h"
#include "records/transfer_fixture.h"

namespace clockcomm::records {
namespace {

using test_support::TransferFixture;

class IntakeRecoveryTest : public ::testing::Test, public TransferFixture {
 protected:
  IntakeRecoveryTest() {
    companies.Initialize(registry_path);
    std::filesystem::create_directory(dir.path() / "data");
  }
  IntakePaths Paths() { return {dir.path() / "data", dir.path(), registry_path}; }

  // A call of clock Front with n punches, left in the state a process dies in after `sealed`.
  std::filesystem::path DeadCall(int n, bool sealed, const std::string& clock = "Front") {
    CallIntake intake(Paths(), companies, log, clock_);
    EXPECT_EQ(intake.Open({clock, 7, "F"}), OpenResult::kOpened);
    for (int i = 1; i <= n; ++i) {
      char line[64];
      std::snprintf(line, sizeof line, "7,%d,12,,,,,I,091020,08%02d,,,,1", i, i);
      intake.Add(TcdRecordStatic::Parse(line));
    }
    if (sealed) {
      EXPECT_TRUE(intake.Seal());
    }
    return intake.File();
  }  // the intake goes without Finish, as a killed process does

  SweepResult Sweep() { return IntakeRecovery(Paths(), companies, log, clock_).Sweep(); }
  std::vector<WaitingFile> Waiting() {
    return IntakeRecovery(Paths(), companies, log, clock_).Waiting();
  }

  CompanyFactory companies{log, dir.path()};
  core::ManualClock clock_{
      core::DateTime(*core::Date::FromYmd(2009, 10, 21), *core::TimeOfDay::FromHms(9, 0))};
};

// Sealed means the terminal may have been told: the sweep delivers it, once. Not sealed means it
// never was: the file is set aside and never transferred, as the terminal sends it all again.
TEST_F(IntakeRecoveryTest, ADeadProcessesCallsAreDeliveredOrSetAsideByWhetherTheyWereSealed) {
  const auto sealed = DeadCall(3, true);
  const auto unsealed = DeadCall(2, false);
  ASSERT_EQ(Waiting().size(), 2u);

  const SweepResult swept = Sweep();
  EXPECT_EQ(swept.delivered, 1);
  EXPECT_EQ(swept.rows, 3);
  EXPECT_EQ(swept.set_aside, 1);
  EXPECT_EQ(RowCount(), 3);
  EXPECT_TRUE(std::filesystem::exists(sealed));
  EXPECT_FALSE(std::filesystem::exists(unsealed));
  EXPECT_TRUE(std::filesystem::exists(SetAsidePath(unsealed)));
  EXPECT_TRUE(log.HasEvent("Recovered call file"));
  EXPECT_TRUE(log.HasEvent("Incomplete call set aside"));

  // Nothing left to do; what waits now is the set-aside file, said as such.
  const SweepResult again = Sweep();
  EXPECT_EQ(again.delivered + again.set_aside + again.still_pending, 0);
  const auto waiting = Waiting();
  ASSERT_EQ(waiting.size(), 1u);
  EXPECT_EQ(waiting[0].state, "set aside");
  EXPECT_EQ(RowCount(), 3);
}

TEST_F(IntakeRecoveryTest, ACallInProgressIsLeftAlone) {
  CallIntake live(Paths(), companies, log, clock_);
  ASSERT_EQ(live.Open({"Front", 7, "F"}), OpenResult::kOpened);
  live.Add(TcdRecordStatic::Parse("7,1,12,,,,,I,091020,0800,,,,1"));
  EXPECT_EQ(Sweep().set_aside, 0);
  EXPECT_TRUE(std::filesystem::exists(live.File()));
  ASSERT_TRUE(live.Seal());
  EXPECT_EQ(live.Finish(true), FinishResult::kDelivered);
  EXPECT_EQ(RowCount(), 1);
  EXPECT_TRUE(Waiting().empty());
}

// A clock without company and a locked database keep the file pending with the reason; once the
// cause is fixed the sweep delivers it.
TEST_F(IntakeRecoveryTest, PendingFilesWaitWithTheirReasonUntilTheCauseIsFixed) {
  CallIntake intake(Paths(), companies, log, clock_);
  ASSERT_EQ(intake.Open({"Nowhere", 7, "F"}), OpenResult::kOpened);
  intake.Add(TcdRecordStatic::Parse("7,1,12,,,,,I,091020,0800,,,,1"));
  ASSERT_TRUE(intake.Seal());
  EXPECT_EQ(intake.Finish(true), FinishResult::kPending);
  EXPECT_TRUE(log.HasScreen("The punches of clock Nowhere wait in"));

  const auto front = DeadCall(2, true);
  auto blocker = OpenCompanyDb();
  blocker->Execute("BEGIN EXCLUSIVE");
  SweepResult swept = Sweep();
  EXPECT_EQ(swept.still_pending, 2);
  auto waiting = Waiting();
  ASSERT_EQ(waiting.size(), 2u);
  for (const auto& w : waiting) {
    EXPECT_EQ(w.state, "pending");
    EXPECT_NE(w.detail.find(w.file == front ? "locked" : "belongs to no company"),
              std::string::npos)
        << w.detail;
  }

  blocker->Execute("ROLLBACK");
  db::Open(registry_path)->Execute("UPDATE Company SET [Clock Name] = 'Nowhere'");
  db::Open(registry_path)
      ->Execute(
          "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
          "[Pay Period Type]) VALUES ('Acme2', 'Front', 'acme', '2009-10-18', 'weekly')");
  companies.Refresh();
  swept = Sweep();
  EXPECT_EQ(swept.delivered, 2);
  EXPECT_EQ(RowCount(), 3);
  EXPECT_TRUE(Waiting().empty());
}

}  // namespace
}  // namespace clockcomm::records
