// Companies (registration, pay periods, the registry), their employees and validation codes.
#include <gtest/gtest.h>

#include "core/errors.h"
#include "core/log_sink.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/company_factory.h"
#include "records/company_registration.h"
#include "records/employee_import.h"
#include "records/employee_table.h"
#include "records/transfer_fixture.h"
#include "records/validation_codes.h"

namespace clockcomm::records {
namespace {

TEST(RegisterCompanyTest, TheCompanyFolderMustLieBelowTheDataFolder) {
  namespace fs = std::filesystem;
  test::TempDir dir;
  const fs::path data = dir.path() / "data";
  fs::create_directories(data);
  const fs::path registry = data / db::kCompanyRegistryFile;
  db::CreateCompanyRegistrySchema(*db::Open(registry, db::OpenMode::kCreate));
  fs::create_symlink(dir.path(), data / "up");
  struct Row {
    std::string dir;  // as the operator gives it; relative ones lie under the data folder
    bool accepted;
  };
  const Row rows[] = {
      {"../x", false},
      {"acme/../../x", false},
      {(dir.path() / "x").string(), false},  // absolute, outside
      {"up/x", false},                       // a link that leads out
      {".", false},                          // the data folder itself
      {"acme/..", false},
      {"acme", true},
      {(data / "deep" / "er").string(), true},  // absolute, inside
  };
  // Registers a company in the folder as the operator names it.
  auto add = [&](const std::string& name, const std::string& clock, const std::string& folder) {
    const fs::path path = fs::path(folder).is_absolute() ? fs::path(folder) : data / folder;
    RegisterCompany({registry, data, path, path / db::kCompanyDatabaseFile},
                    {.name = name, .clock_name = clock, .directory = folder});
    return path / db::kCompanyDatabaseFile;
  };
  int n = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.dir);
    ++n;
    try {
      EXPECT_TRUE(
          fs::exists(add("Company " + std::to_string(n), "CLOCK" + std::to_string(n), row.dir)));
      EXPECT_TRUE(row.accepted);
    } catch (const core::ArgumentException& e) {
      EXPECT_FALSE(row.accepted) << e.what();
      EXPECT_EQ(e.ParamName(), "dir");
      EXPECT_EQ(std::string(e.what()), "The company directory \"" + row.dir +
                                           "\" is not a folder below the data folder " +
                                           data.string() + ".");
    }
  }
  EXPECT_FALSE(fs::exists(dir.path() / "x"));
  EXPECT_FALSE(fs::exists(data / db::kCompanyDatabaseFile));

  // Names already there in the other case are refused, accented Windows-1252 letters too (plain
  // ones are the command test's).
  ASSERT_NO_THROW(add("Caf\xC9 Ltd", "CAF\xC9", "d1"));
  EXPECT_THROW(add("Other", "caf\xE9", "d2"), core::ArgumentException);
  EXPECT_THROW(add("caf\xE9 ltd", "ELSEWHERE", "d3"), core::ArgumentException);
}

using test_support::D;
core::DateTime DT(int y, int m, int d, int h = 0, int n = 0) {
  return *core::DateTime::FromParts(y, m, d, h, n);
}

Company Make(const char* type, core::Date start, int custom_days = 0,
             core::TimeOfDay start_time = {}) {
  Company c;
  c.Initialize("Acme", {}, "CLOCK1", "acme", start, type, start_time, custom_days, "/data");
  return c;
}

TEST(CompanyTest, PayPeriodEndForEveryTypeAndMonthEdge) {
  struct Case {
    const char* type;
    core::Date start;
    int custom_days;
    core::Date last_day;
  };
  const Case cases[] = {
      {"weekly", D(2009, 12, 28), 0, D(2010, 1, 3)},
      {"biweekly", D(2009, 1, 2), 0, D(2009, 1, 15)},
      {"biweekly", D(2008, 2, 20), 0, D(2008, 3, 4)},
      {"semimonthly", D(2009, 3, 1), 0, D(2009, 3, 15)},
      {"semimonthly", D(2009, 4, 16), 0, D(2009, 4, 30)},
      {"semimonthly", D(2009, 2, 16), 0, D(2009, 2, 28)},
      {"semimonthly", D(2008, 2, 16), 0, D(2008, 2, 29)},
      {"monthly", D(2008, 2, 1), 0, D(2008, 2, 29)},
      {"monthly", D(2009, 12, 1), 0, D(2009, 12, 31)},
      {"monthly", D(2009, 1, 15), 0, D(2009, 2, 14)},
      {"custom", D(2009, 1, 1), 10, D(2009, 1, 10)},
      {"accrued custom", D(2009, 12, 30), 5, D(2010, 1, 3)},
      {"CUSTOM", D(2009, 1, 1), 1, D(2009, 1, 1)},
  };
  for (const auto& c : cases) {
    const Company company = Make(c.type, c.start, c.custom_days);
    EXPECT_EQ(company.PayPeriodEnd(), core::DateTime(c.last_day, *core::TimeOfDay::FromHms(23, 59)))
        << c.type << " from " << c.start.ToString();
  }
  EXPECT_THROW(Make("fortnightly", D(2009, 1, 1)).PayPeriodEnd(), core::ArgumentException);
  EXPECT_THROW(Make("custom", D(2009, 1, 1), 0).PayPeriodEnd(), core::ArgumentException);
}

TEST(CompanyTest, StartAndEndFollowTheStartTimeAndResyncMovesForwardOnly) {
  EXPECT_EQ(Make("weekly", D(2009, 1, 1)).PayPeriodEndDateTime(), DT(2009, 1, 7, 23, 59));
  const Company six = Make("weekly", D(2009, 1, 1), 0, *core::TimeOfDay::FromHms(6, 0, 45));
  EXPECT_EQ(six.TimeOfDayStart(), *core::TimeOfDay::FromHms(6, 0)) << "seconds dropped";
  EXPECT_EQ(six.PayPeriodStartDateTime(), DT(2009, 1, 1, 6, 0));
  EXPECT_EQ(six.PayPeriodEndDateTime(), DT(2009, 1, 8, 5, 59));

  // A resync moves the period forward only.
  Company c = Make("biweekly", D(2009, 1, 2));  // to 2009-01-15
  c.ResyncPayPeriod(DT(2009, 1, 15, 23, 59));
  EXPECT_EQ(c.PayPeriodStart(), D(2009, 1, 2)) << "the last minute is inside";
  c.ResyncPayPeriod(DT(2009, 1, 16, 8, 0));
  EXPECT_EQ(c.PayPeriodStart(), D(2009, 1, 16));
  EXPECT_EQ(c.PayPeriodEnd(), DT(2009, 1, 29, 23, 59));
  c.ResyncPayPeriod(DT(2008, 6, 1));
  EXPECT_EQ(c.PayPeriodStart(), D(2009, 1, 16)) << "never backward";
  c.ResyncPayPeriod(DT(2009, 3, 1, 12, 0));
  EXPECT_EQ(c.PayPeriodStart(), D(2009, 2, 27)) << "several periods at once";

  Company semi = Make("semimonthly", D(2009, 1, 16));
  semi.ResyncPayPeriod(DT(2009, 3, 20));
  EXPECT_EQ(semi.PayPeriodStart(), D(2009, 3, 16));
  EXPECT_EQ(semi.PayPeriodEnd(), DT(2009, 3, 31, 23, 59));
}

// The fields of a row, a relative folder and a clock name in the other case (accented too) are the
// transfer and command tests'.
TEST(CompanyFactoryTest, AbsoluteFolderNoStampAndTheFirstOfTwoClocksThatDifferInCase) {
  test::TempDir dir;
  const auto path = dir.path() / "COMPANY3.db";
  {
    auto db = db::Open(path, db::OpenMode::kCreate);
    db::CreateCompanyRegistrySchema(*db);
    db->Execute(
        "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
        "[Pay Period Type], CustomDays) VALUES "
        "('Bolt', 'Back', '/abs/bolt', '2009-10-01', 'monthly', 0), "
        "('Bolt Two', 'BACK', 'b2', '2009-10-01', 'custom', 3)");
  }
  core::NullLogSink log;
  CompanyFactory factory(log, dir.path());
  factory.Initialize(path);
  EXPECT_EQ(factory.GetCompany("Bolt").ClockwynDatabaseFilename(), "/abs/bolt/Company.db");
  EXPECT_EQ(factory.GetCompany("Bolt").ClockDataTableLastUpdated(), core::DateTime());
  EXPECT_EQ(factory.GetCompanyByClockName("back")->Name(), "Bolt");
  EXPECT_FALSE(factory.GetCompanyByClockName("Side"));
}

using Rows = std::vector<std::vector<db::Value>>;

class EmployeesAndCodesTest : public ::testing::Test {
 protected:
  EmployeesAndCodesTest() : db_(db::Open(dir_.path() / "Company.db", db::OpenMode::kCreate)) {
    db::CreateCompanySchema(*db_);
  }
  Rows Query(const char* sql) { return db_->Query(sql).Rows(); }
  // What the terminals receive of the employees, and what the assignment reads.
  Rows Level1() { return Query("SELECT [Card ID], Name, Active FROM LEVEL1 ORDER BY [Card ID]"); }
  Rows Employees() {
    return Query(
        "SELECT [Card ID], [Employee Name], [Home Department], DefaultAssignment "
        "FROM [Employee Table] ORDER BY [Card ID]");
  }

  test::TempDir dir_;
  std::unique_ptr<db::Database> db_;
};

TEST_F(EmployeesAndCodesTest, EveryEmployeeWriteReachesLevel1) {
  EmployeeTable employees(*db_);
  EXPECT_TRUE(employees.Add({12, "Ada", 7, "J1"}));
  EXPECT_FALSE(employees.Add({12, "Someone else", {}, ""})) << "a card is added once";
  employees.Put({12, "", 8, "J2"});  // no name: the card keeps its own
  employees.Put({13, "Bob", {}, ""});
  EXPECT_EQ(Employees(),
            (Rows{{int64_t{12}, "Ada", int64_t{8}, "J2"}, {int64_t{13}, "Bob", {}, ""}}));
  EXPECT_EQ(Level1(), (Rows{{int64_t{12}, "Ada", int64_t{1}}, {int64_t{13}, "Bob", int64_t{1}}}));

  db_->Execute("UPDATE [Employee Table] SET Active = 0 WHERE [Card ID] = 13");
  employees.Put({13, "Bob Jones", {}, ""});
  EXPECT_EQ(Level1()[1], (std::vector<db::Value>{int64_t{13}, "Bob Jones", int64_t{0}}));

  // Inside the caller's transaction: rolled back, neither table keeps the card.
  db_->BeginTransaction();
  EXPECT_TRUE(employees.Add({14, "Cy", {}, ""}));
  db_->Rollback();
  EXPECT_FALSE(employees.Contains(14));
  EXPECT_EQ(Level1().size(), 2u);
}

// Each line imported on its own: the employee it gives, or part of the reason it is refused. A
// header, the line numbers in the messages and a quoted name are the command test's.
TEST_F(EmployeesAndCodesTest, ImportTakesEachGoodLineAndRefusesEachBadOneWithItsReason) {
  struct Row {
    const char* line;
    std::vector<db::Value> employee;  // empty when refused
    const char* reason = "";
  };
  const Row rows[] = {
      {" 21 ,,\"A,B\"", {int64_t{21}, "", {}, "A,B"}},
      {"22, 999999999 ,1234567890123,Caf\xE9",
       {int64_t{22}, "Caf\xE9", int64_t{999999999}, "1234567890123"}},
      {"23", {int64_t{23}, "", {}, ""}},
      {"\"24\",7", {int64_t{24}, "", int64_t{7}, ""}},  // a quoted number is a card, not a header
      {"25,0,,", {int64_t{25}, "", int64_t{0}, ""}},
      {"1,x,,", {}, "home department \"x\": Department must be between 0 and 999999999."},
      {"0,,,", {}, "card \"0\" is not a positive whole number"},
      {"1,,,Ann\x1c", {}, "control character"},
      {"1,,J\x03", {}, "control character"},
      {"1,1,2,3,4", {}, "found 5 fields"},
      // A first line that cannot be read is refused, not skipped as a header.
      {"3\"4,7", {}, "a double quote inside a field"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    const auto result = ImportEmployees(*db_, row.line);
    EXPECT_FALSE(result.header);
    EXPECT_EQ(result.imported, row.employee.empty() ? 0 : 1);
    if (row.employee.empty()) {
      ASSERT_EQ(result.refused.size(), 1u);
      EXPECT_EQ(result.refused[0].line, 1);
      EXPECT_NE(result.refused[0].reason.find(row.reason), std::string::npos)
          << result.refused[0].reason;
    } else {
      EXPECT_EQ(Employees().back(), row.employee);
    }
  }
  EXPECT_EQ(Level1().size(), 5u);
}

TEST_F(EmployeesAndCodesTest, DepartmentsAndJobs) {
  ValidationCodes codes(*db_);
  EXPECT_TRUE(codes.AddDepartment(10, " Shipping "));
  EXPECT_TRUE(codes.AddDepartment(7, "Assembly"));
  EXPECT_TRUE(codes.AddDepartment(0, ""));
  EXPECT_TRUE(codes.AddDepartment(999999999, "Last"));
  EXPECT_FALSE(codes.AddDepartment(7, "Again")) << "7 is there already";
  EXPECT_EQ(codes.Departments(),
            (std::vector<ValidationCode>{
                {"0", ""}, {"7", "Assembly"}, {"10", "Shipping"}, {"999999999", "Last"}}));
  EXPECT_TRUE(codes.AddJob(" J1 ", "Frames"));
  EXPECT_FALSE(codes.AddJob("J1", "Other"));
  EXPECT_TRUE(codes.AddJob("1234567890123", "Longest"));
  EXPECT_EQ(codes.Jobs(),
            (std::vector<ValidationCode>{{"1234567890123", "Longest"}, {"J1", "Frames"}}));

  EXPECT_THROW(codes.AddDepartment(-1, "x"), core::ArgumentException);
  EXPECT_THROW(codes.AddDepartment(1000000000, "x"), core::ArgumentException);
  EXPECT_THROW(codes.AddDepartment(8, "Paint\x03"), core::ArgumentException);
  EXPECT_THROW(codes.AddJob(" ", "x"), core::ArgumentException);
  EXPECT_THROW(codes.AddJob("12345678901234", "x"), core::ArgumentException);
  EXPECT_THROW(codes.AddJob("J\x1c", "x"), core::ArgumentException);
  EXPECT_EQ(Query("SELECT COUNT(*) FROM LEVEL2")[0][0], db::Value(int64_t{4}));
}

}  // namespace
}  // namespace clockcomm::records
