// The identity of a punch, kept in the company database beside its row: a re-sent batch, a
// re-sent packet or a recovered call file brings the same punches again, and each goes in once.
// A punch is known by its clock (name and number) and its whole content: sequence number, badge,
// department, job, type, dates, times, amount and class. Two punches that agree in all of these
// (the same badge punching the same type twice in one minute on a terminal that numbers nothing)
// cannot be told apart from one punch sent twice, and go in once.
#pragma once

#include <cstdint>
#include <memory>
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

  // The keys of one clock's punches, with the clock's part hashed once.
  class Hasher {
   public:
    explicit Hasher(std::string_view clock_name);
    // The key of a punch; the view stays valid until the next call.
    std::string_view Of(const TcdRecord& record);

   private:
    uint64_t clock_state_;
    std::string line_;
    char hex_[16];
  };

  // Creates the table when missing.
  explicit PunchKeys(db::Database& company_db);
  ~PunchKeys();

  // The key of a punch of the clock, as 16 hex digits of a 64-bit FNV-1a hash.
  static std::string KeyOf(std::string_view clock_name, const TcdRecord& record);

  bool Contains(std::string_view key);
  // Records a stored punch; call inside the transaction that wrote its row.
  void Add(std::string_view key, int64_t clock_data_id, const core::Date& seen);
  // Forgets keys older than kKeepDays before today.
  int64_t Expire(const core::Date& today);
  // Forgets the keys whose row an administrator deleted, so that punch may go in again.
  int64_t ForgetDeletedRows();

 private:
  db::Database& db_;
  std::unique_ptr<db::Statement> find_;
  std::unique_ptr<db::Statement> add_;
  std::optional<core::Date> seen_;
  char seen_text_[16] = {};
};

}  // namespace clockcomm::records
