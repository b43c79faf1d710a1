#include "records/punch_keys.h"

#include "core/text.h"

namespace clockcomm::records {
namespace {

constexpr uint64_t kFnvBasis = 14695981039346656037ull;
constexpr uint64_t kFnvPrime = 1099511628211ull;

// FNV-1a of the text, then a separator no field holds.
uint64_t AddField(uint64_t h, std::string_view text) {
  for (unsigned char c : text) {
    h ^= c;
    h *= kFnvPrime;
  }
  h ^= 0x1F;
  h *= kFnvPrime;
  return h;
}

}  // namespace

PunchKeys::Hasher::Hasher(std::string_view clock_name)
    : clock_state_(AddField(kFnvBasis, core::ToUpper(clock_name))) {}

std::string_view PunchKeys::Hasher::Of(const TcdRecord& record) {
  line_.clear();
  record.AppendTcdString(line_, 0);
  uint64_t h = AddField(clock_state_, line_);
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int i = 15; i >= 0; --i, h >>= 4) hex_[i] = kDigits[h & 0xF];
  return std::string_view(hex_, 16);
}

PunchKeys::PunchKeys(db::Database& company_db) : db_(company_db) {
  db_.Execute(
      "CREATE TABLE IF NOT EXISTS [Punch Keys] ("
      "PunchKey TEXT PRIMARY KEY, ClockDataID INTEGER, Seen TEXT NOT NULL) WITHOUT ROWID");
  db_.Execute("CREATE INDEX IF NOT EXISTS [Punch Keys Seen] ON [Punch Keys] (Seen)");
}

PunchKeys::~PunchKeys() = default;

std::string PunchKeys::KeyOf(std::string_view clock_name, const TcdRecord& record) {
  return std::string(Hasher(clock_name).Of(record));
}

bool PunchKeys::Contains(std::string_view key) {
  if (!find_) find_ = db_.Prepare("SELECT 1 FROM [Punch Keys] WHERE PunchKey = ?");
  find_->BindText(1, key);
  return find_->HasRow();
}

void PunchKeys::Add(std::string_view key, int64_t clock_data_id, const core::Date& seen) {
  if (!add_) {
    add_ = db_.Prepare("INSERT INTO [Punch Keys] (PunchKey, ClockDataID, Seen) VALUES (?, ?, ?)");
  }
  if (seen_ != seen) {
    seen_ = seen;
    core::FormatIsoDate(seen, seen_text_);
  }
  add_->BindText(1, key);
  add_->BindInt(2, clock_data_id);
  add_->BindText(3, std::string_view(seen_text_, 10));
  add_->Execute();
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
