// The punches of a company's [Clock Data Table] as the console lists and exports them: by badge
// and by the punch's day (its in date, else its out date), in the order they were stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/date_time.h"
#include "db/database.h"

namespace clockcomm::records {

struct PunchFilter {
  std::optional<int64_t> badge;
  std::optional<core::Date> from;
  std::optional<core::Date> to;
  int64_t after_id = 0;  // only rows after this ID: a long export read in pieces
};

struct StoredPunch {
  int64_t id = 0;
  std::optional<int64_t> sequence;
  int64_t badge = 0;
  std::string punch_type;
  std::optional<int64_t> department;
  std::string job;
  std::string level4;
  std::string level5;
  std::optional<core::Date> date_in;
  std::optional<core::TimeOfDay> time_in;
  std::optional<core::Date> date_out;
  std::optional<core::TimeOfDay> time_out;
  std::optional<double> amount;
  std::string amount_column;  // the column the amount was read from; empty without one
};

class StoredPunches {
 public:
  explicit StoredPunches(db::Database& db) : db_(db) {}

  int64_t Count(const PunchFilter& filter);
  // The rows of the filter in ID order, skipping `offset`, at most `limit`.
  std::vector<StoredPunch> Find(const PunchFilter& filter, int64_t offset, int64_t limit);

 private:
  db::Database& db_;
};

}  // namespace clockcomm::records
