// The employees of one company as the punch-time assignment needs them: card, home department
// and default job, keyed by card.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "db/database.h"

namespace clockcomm::records {

struct EmployeeInfo {
  int32_t BadgeId = 0;
  std::optional<int64_t> HomeDepartment;
  std::string DefaultAssignment;
};

class EmployeeInfoMap {
 public:
  EmployeeInfoMap() = default;
  // Loads every row of [Employee Table] of the company database.
  static EmployeeInfoMap Load(db::Database& company_db);

  bool Contains(int32_t badge_id) const { return map_.count(badge_id) != 0; }
  // Throws core::ItemNotFoundException for an unknown card.
  const EmployeeInfo& GetEmployeeInfo(int32_t badge_id) const;
  int Count() const { return static_cast<int>(map_.size()); }
  // A later entry for the same card replaces the earlier.
  void Add(EmployeeInfo info) { map_[info.BadgeId] = std::move(info); }

 private:
  std::unordered_map<int32_t, EmployeeInfo> map_;
};

}  // namespace clockcomm::records
