#include <gtest/gtest.h>

#include "core/errors.h"
#include "db/open.h"
#include "db/schema.h"
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

TEST(ReadEmployeeTest, Refusals) {
  struct Case {
    const char* card;
    const char* dept;
    const char* job;
    const char* name;
    const char* reason;  // part of it; null when accepted
  };
  const Case cases[] = {
      {" 21 ", "", "", "", nullptr},
      {"21", " 999999999 ", "1234567890123", "Caf\xE9", nullptr},
      {"0", "", "", "", "not a positive whole number"},
      {"2.5", "", "", "", "not a positive whole number"},
      {"21", "1000000000", "", "", "Department must be between 0 and 999999999."},
      {"21", "x", "", "", "Department must be between"},
      {"21", "", "12345678901234", "", "JobNumber cannot exceed 13 characters."},
      {"21", "", "", "Ann\x1c", "control character"},
  };
  for (const auto& c : cases) {
    Employee e;
    const auto reason = ReadEmployee(c.card, c.dept, c.job, c.name, e);
    if (c.reason == nullptr) {
      EXPECT_FALSE(reason) << c.card << ": " << *reason;
    } else {
      ASSERT_TRUE(reason) << c.card << " " << c.dept << " " << c.job;
      EXPECT_NE(reason->find(c.reason), std::string::npos) << *reason;
    }
  }
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
