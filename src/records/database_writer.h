// The "Clock Table Updated" stamps a transfer leaves in the company database and the registry.
#pragma once

#include <string>
#include <string_view>

#include "core/date_time.h"
#include "db/database.h"

namespace clockcomm::records {

class DatabaseWriter {
 public:
  // Executed with bound values. The clock name matches ignoring case, as lookups do.
  static void StampCompanyDatabase(db::Database& company_db, const core::Date& today);
  // Returns the number of registry rows stamped.
  static int64_t StampRegistry(db::Database& registry_db, std::string_view clock_name,
                               const core::Date& today);
};

}  // namespace clockcomm::records
