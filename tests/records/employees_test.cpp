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

// One past the largest department and the longest job are refused by the command test too.
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
      {"21", "x", "", "", "Department must be between 0 and 999999999."},
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

TEST_F(EmployeesAndCodesTest, ImportReadsRealCsvAndNamesEachRefusedLine) {
  const auto result = ImportEmployees(*db_,
                                      "21,,\"A,B\"\r\n"     // no header: the first is an employee
                                      "x22,7,wash\r\n"      // refused
                                      "23,1000000000,\r\n"  // refused
                                      "\r\n"                // blank
                                      "24,7,wash,\"Smith, Ann\"\r\n"
                                      "25,1,2,3,4\r\n"  // refused: five fields
                                      "26,\"7\"x,\r\n"  // refused: stray quote
                                      "27");
  EXPECT_FALSE(result.header);
  EXPECT_EQ(result.imported, 3);
  std::vector<int> lines;
  for (const auto& r : result.refused) lines.push_back(r.line);
  EXPECT_EQ(lines, (std::vector<int>{2, 3, 6, 7}));
  EXPECT_EQ(Employees(), (Rows{{int64_t{21}, "", {}, "A,B"},
                               {int64_t{24}, "Smith, Ann", int64_t{7}, "wash"},
                               {int64_t{27}, "", {}, ""}}));
  EXPECT_EQ(Level1().size(), 3u);

  // A header is known by its card field; a quoted number is a card.
  const std::tuple<const char*, bool, int> headers[] = {
      {"card,home department,default job,name\n31,7,,Ann\n", true, 1},
      {"\"32\",7\n33\n", false, 2},
      {"3\"4,7\n35\n", false, 1},  // a first line that cannot be read is refused, not skipped
  };
  for (const auto& [text, header, imported] : headers) {
    const auto r = ImportEmployees(*db_, text);
    EXPECT_EQ(r.header, header) << text;
    EXPECT_EQ(r.imported, imported) << text;
  }
  EXPECT_EQ(Level1()[3], (std::vector<db::Value>{int64_t{31}, "Ann", int64_t{1}}));
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
