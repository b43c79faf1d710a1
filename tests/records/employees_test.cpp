#include <gtest/gtest.h>

#include "core/errors.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/employee_import.h"
#include "records/employee_table.h"
#include "records/validation_codes.h"
#include "test_support/temp_dir.h"

namespace clockcomm::records {
namespace {

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
