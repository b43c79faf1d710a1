// The identity of a punch, kept in the company database beside its row: a re-sent batch, a
// re-sent packet, a recovered call file or a file transferred twice brings the same punches
// again, and each goes in once. A punch is known by its clock (name and number) and its whole
// content: sequence number, badge, department, job, type, dates, times, amount and class. Two
// punches that agree in all of these (the same badge punching the same type twice in one minute
// on a terminal that numbers nothing) cannot be told apart from one punch sent twice, and go in
// once. Keys are kept as long as the rows: a file transferred years later still goes in once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/date_time.h"
#include "db/database.h"
#include "records/tcd_record.h"

namespace clockcomm::records {

// The minute of the punch leads the key, so a day's punches are stored side by side: a batch of
// new keys lands on the table's last pages instead of all over it.
struct PunchKey {
  int64_t minute = 0;  // minutes since 1970-01-01 00:00 of the punch's date and time; 0: no date
  uint64_t hash = 0;   // 64-bit FNV-1a of the clock and the whole record

  // A text form, for tables that name a punch by its key.
  std::string Text() const;
};

class PunchKeys {
 public:
  // The keys of one clock's punches, with the clock's part hashed once.
  class Hasher {
   public:
    explicit Hasher(std::string_view clock_name);
    PunchKey Of(const TcdRecord& record);

   private:
    uint64_t clock_state_;
    std::string line_;
  };

  // Creates the table when missing, and turns keys of the earlier text form into this one.
  explicit PunchKeys(db::Database& company_db);
  ~PunchKeys();

  static PunchKey KeyOf(std::string_view clock_name, const TcdRecord& record);
  // The key of a punch that is not a TCD record (a terminal's own report of it).
  static PunchKey KeyOf(const core::DateTime& moment, std::string_view content);

  bool Contains(const PunchKey& key);
  // Records a stored punch; call inside the transaction that wrote its row.
  void Add(const PunchKey& key, int64_t clock_data_id);
  // For each of a batch's keys, whether it is stored: one range query per cluster of minutes
  // (a day's punches are one), read while the table is locked for writing.
  std::vector<bool> FindStored(const std::vector<PunchKey>& keys);
  // Records the keys of punches just stored as rows first_id, first_id + 1, ..., in bulk; call
  // inside the transaction that wrote the rows.
  void AddMany(const std::vector<PunchKey>& keys, int64_t first_id);
  // Forgets the keys whose row an administrator deleted, so that punch may go in again.
  int64_t ForgetDeletedRows();

 private:
  static int64_t MinuteOf(const std::optional<core::Date>& date,
                          const std::optional<core::TimeOfDay>& time);
  void ConvertTextKeys();

  db::Database& db_;
  std::unique_ptr<db::Statement> find_;
  std::unique_ptr<db::Statement> add_;
};

}  // namespace clockcomm::records
