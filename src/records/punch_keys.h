// The identity of a punch, kept in the company database beside its row: a re-sent batch, a
// re-sent packet or a recovered call file brings the same punches again, and each goes in once.
// A punch is known by its clock (name and number) and its whole content: sequence number, badge,
// department, job, type, dates, times, amount and class. Two punches that agree in all of these
// (the same badge punching the same type twice in one minute on a terminal that numbers nothing)
// cannot be told apart from one punch sent twice, and go in once.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/date_time.h"
#include "db/database.h"
#include "records/tcd_record.h"

namespace clockcomm::records {

class PunchKeys {
 public:
  // How long a key is kept: far longer than a terminal keeps a batch it could not deliver.
  static constexpr int kKeepDays = 400;

  // Creates the table when missing.
  explicit PunchKeys(db::Database& company_db);

  // The key of a punch of the clock, as 16 hex digits of a 64-bit FNV-1a hash.
  static std::string KeyOf(std::string_view clock_name, const TcdRecord& record);

  bool Contains(const std::string& key);
  // Records a stored punch; call inside the transaction that wrote its row.
  void Add(const std::string& key, int64_t clock_data_id, const core::Date& seen);
  // Forgets keys older than kKeepDays before today.
  int64_t Expire(const core::Date& today);
  // Forgets the keys whose row an administrator deleted, so that punch may go in again.
  int64_t ForgetDeletedRows();

 private:
  db::Database& db_;
};

}  // namespace clockcomm::records
