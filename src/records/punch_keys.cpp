#include "records/punch_keys.h"

#include <fmt/format.h>

#include "core/text.h"

namespace clockcomm::records {

PunchKeys::PunchKeys(db::Database& company_db) : db_(company_db) {
  db_.Execute(
      "CREATE TABLE IF NOT EXISTS [Punch Keys] ("
      "PunchKey TEXT PRIMARY KEY, ClockDataID INTEGER, Seen TEXT NOT NULL) WITHOUT ROWID");
  db_.Execute("CREATE INDEX IF NOT EXISTS [Punch Keys Seen] ON [Punch Keys] (Seen)");
}

std::string PunchKeys::KeyOf(std::string_view clock_name, const TcdRecord& record) {
  uint64_t h = 14695981039346656037ull;
  auto add = [&h](std::string_view text) {
    for (unsigned char c : text) {
      h ^= c;
      h *= 1099511628211ull;
    }
    h ^= 0x1F;  // a separator no field holds
    h *= 1099511628211ull;
  };
  add(core::ToUpper(clock_name));
  add(record.ToTcdString(0));
  return fmt::format("{:016x}", h);
}

bool PunchKeys::Contains(const std::string& key) {
  return !db_.Query("SELECT 1 FROM [Punch Keys] WHERE PunchKey = ?", {key}).Eof();
}

void PunchKeys::Add(const std::string& key, int64_t clock_data_id, const core::Date& seen) {
  db_.Execute("INSERT INTO [Punch Keys] (PunchKey, ClockDataID, Seen) VALUES (?, ?, ?)",
              {key, clock_data_id, seen.Format("yyyy-mm-dd")});
}

int64_t PunchKeys::Expire(const core::Date& today) {
  return db_.Execute("DELETE FROM [Punch Keys] WHERE Seen < ?",
                     {today.AddDays(-kKeepDays).Format("yyyy-mm-dd")});
}

int64_t PunchKeys::ForgetDeletedRows() {
  return db_.Execute(
      "DELETE FROM [Punch Keys] WHERE ClockDataID IS NOT NULL AND NOT EXISTS "
      "(SELECT 1 FROM [Clock Data Table] WHERE ID = [Punch Keys].ClockDataID)");
}

}  // namespace clockcomm::records
