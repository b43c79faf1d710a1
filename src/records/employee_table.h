// The employees of a company: [Employee Table], and beside it the validation table LEVEL1 that
// the terminals receive (card, name, Active). Every write goes to both in one transaction, so a
// terminal learns exactly the cards the company has.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/database.h"

namespace clockcomm::records {

struct Employee {
  int32_t card = 0;
  std::string name;
  std::optional<int32_t> home_department;
  std::string default_job;
  bool active = true;
};

// Reads an employee from texts as typed or imported, each trimmed; an empty home department is
// none. Returns the reason when the values are not acceptable.
std::optional<std::string> ReadEmployee(std::string_view card, std::string_view home_department,
                                        std::string_view default_job, std::string_view name,
                                        Employee& out);

class EmployeeTable {
 public:
  // Writes join the caller's transaction when there is one, else each makes its own.
  explicit EmployeeTable(db::Database& company_db) : db_(company_db) {}

  bool Contains(int32_t card);
  // Adds a new employee; false, and nothing written, when the card is there already.
  bool Add(const Employee& employee);
  // Adds the employee, or updates the card's home department and default job, and its name
  // unless the new one is empty.
  void Put(const Employee& employee);
  // The employees by card, skipping `offset`, at most `limit`; and how many there are.
  std::vector<Employee> List(int64_t offset, int64_t limit);
  int64_t Count();

 private:
  // Copies the card's name and Active flag from [Employee Table] to LEVEL1.
  void CopyToLevel1(int32_t card);

  db::Database& db_;
};

}  // namespace clockcomm::records
