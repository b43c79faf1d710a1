#include "records/validation_codes.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "core/errors.h"
#include "core/text.h"
#include "records/tcd_record.h"

namespace clockcomm::records {
namespace {

void CheckDescription(std::string_view name) {
  // The description travels to the terminals in a packet that control characters would cut.
  if (core::HasControlCharacter(name)) {
    throw core::ArgumentException("The name may not hold control characters.", "name");
  }
}

}  // namespace

bool ValidationCodes::AddDepartment(int64_t number, std::string_view name) {
  if (number < 0 || number > kMaxDepartment) {
    throw core::ArgumentException(kDepartmentRangeMessage, "number");
  }
  return Add("LEVEL2", std::to_string(number), name);
}

bool ValidationCodes::AddJob(std::string_view code, std::string_view name) {
  const std::string trimmed = core::Trim(code);
  if (trimmed.empty()) throw core::ArgumentException("The job code is empty.", "code");
  if (trimmed.size() > kMaxJobNumberLength) {
    throw core::ArgumentException(kJobNumberLengthMessage, "code");
  }
  if (core::HasControlCharacter(trimmed)) {
    throw core::ArgumentException("The job code may not hold control characters.", "code");
  }
  return Add("LEVEL3", trimmed, name);
}

bool ValidationCodes::Add(const char* table, const std::string& code, std::string_view name) {
  CheckDescription(name);
  // The table name is one of two constants, never a value from outside.
  return db_.Execute(std::string("INSERT INTO ") + table +
                         " (Code, Description) VALUES (?, ?) ON CONFLICT(Code) DO NOTHING",
                     {code, core::Trim(name)}) == 1;
}

std::vector<ValidationCode> ValidationCodes::Departments() {
  auto departments = List("LEVEL2");
  // By number: 8 before 10. A code that is no number (written by another program) goes last.
  auto key = [](const ValidationCode& c) {
    const auto n = core::ParseInt(c.code);
    return std::make_pair(n ? *n : std::numeric_limits<int>::max(), c.code);
  };
  std::stable_sort(departments.begin(), departments.end(),
                   [&](const auto& a, const auto& b) { return key(a) < key(b); });
  return departments;
}

std::vector<ValidationCode> ValidationCodes::Jobs() { return List("LEVEL3"); }

std::vector<ValidationCode> ValidationCodes::List(const char* table) {
  const auto rows =
      db_.Query(std::string("SELECT Code, Description FROM ") + table + " ORDER BY Code");
  std::vector<ValidationCode> codes;
  for (const auto& row : rows.Rows()) codes.push_back({row[0].AsText(), row[1].AsText()});
  return codes;
}

}  // namespace clockcomm::records
