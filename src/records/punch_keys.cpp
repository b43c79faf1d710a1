#include "records/punch_keys.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <unordered_set>

#include "core/text.h"

namespace clockcomm::records {
namespace {

constexpr uint64_t kFnvBasis = 14695981039346656037ull;
constexpr uint64_t kFnvPrime = 1099511628211ull;

uint64_t Fnv(uint64_t h, std::string_view text) {
  for (unsigned char c : text) {
    h ^= c;
    h *= kFnvPrime;
  }
  return h;
}

// FNV-1a of the text, then a separator no field holds.
uint64_t AddField(uint64_t h, std::string_view text) {
  h = Fnv(h, text) ^ 0x1F;
  h *= kFnvPrime;
  return h;
}

// Without rowid the key is the table: one b-tree, written near its end for new punches.
constexpr const char* kCreateTable =
    "CREATE TABLE IF NOT EXISTS [Punch Keys] (Minute INTEGER NOT NULL, Hash INTEGER NOT NULL, "
    "ClockDataID INTEGER, PRIMARY KEY (Minute, Hash)) WITHOUT ROWID";

// SQLite keeps 64-bit signed integers: the hash is stored with the same bits.
int64_t Stored(uint64_t hash) { return static_cast<int64_t>(hash); }

constexpr int64_t kMinutesPerDay = 1440;

struct PairHash {
  size_t operator()(const std::pair<int64_t, int64_t>& p) const {
    return std::hash<int64_t>()(p.second) ^ static_cast<size_t>(p.first);
  }
};

}  // namespace

std::string PunchKey::Text() const {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = std::to_string(minute) + ":0123456789abcdef";
  uint64_t h = hash;
  for (size_t i = text.size(); i-- > text.size() - 16; h >>= 4) text[i] = kDigits[h & 0xF];
  return text;
}

PunchKeys::Hasher::Hasher(std::string_view clock_name)
    : clock_state_(AddField(kFnvBasis, core::ToUpper(clock_name))) {}

PunchKey PunchKeys::Hasher::Of(const TcdRecord& record) {
  line_.clear();
  record.AppendTcdString(line_, 0);
  return {MinuteOf(record.DateIn(), record.TimeIn()), AddField(clock_state_, line_)};
}

int64_t PunchKeys::MinuteOf(const std::optional<core::Date>& date,
                            const std::optional<core::TimeOfDay>& time) {
  if (!date) return 0;
  return date->DaysSinceEpoch() * 1440 + (time ? time->TotalSeconds() / 60 : 0);
}

PunchKey PunchKeys::KeyOf(std::string_view clock_name, const TcdRecord& record) {
  return Hasher(clock_name).Of(record);
}

PunchKey PunchKeys::KeyOf(const core::DateTime& moment, std::string_view content) {
  return {MinuteOf(moment.GetDate(), moment.GetTime()), Fnv(kFnvBasis, content)};
}

PunchKeys::PunchKeys(db::Database& company_db) : db_(company_db) {
  if (db_.HasColumn("Punch Keys", "PunchKey")) {
    ConvertTextKeys();
  }
  if (db_.TableExists("Punch Keys")) return;
  try {
    db_.Execute(kCreateTable);
  } catch (const db::DatabaseError&) {
    // On a server, another program may have made it in the same moment.
    if (!db_.TableExists("Punch Keys")) throw;
  }
}

PunchKeys::~PunchKeys() = default;

// Keys written by earlier versions: 16 hex digits of the same hash, without the minute, which is
// read back from the key's row (the punch's in date and time, or its out ones for an "O").
// A key whose row is gone goes with it, as ForgetDeletedRows would.
void PunchKeys::ConvertTextKeys() {
  std::optional<db::Transaction> own;
  if (!db_.InTransaction()) own.emplace(db_);
  db_.Execute("ALTER TABLE [Punch Keys] RENAME TO [Punch Keys Text]");
  db_.Execute("DROP INDEX IF EXISTS [Punch Keys Seen]");
  db_.Execute(kCreateTable);
  auto add = db_.Prepare(
      "INSERT INTO [Punch Keys] (Minute, Hash, ClockDataID) VALUES (?, ?, ?) "
      "ON CONFLICT DO NOTHING");
  for (auto rs =
           db_.Query("SELECT k.PunchKey, k.ClockDataID, COALESCE(c.[Date In], c.[Date Out]) AS D, "
                     "CASE WHEN c.[Date In] IS NULL THEN c.[Time Out] ELSE c.[Time In] END AS T "
                     "FROM [Punch Keys Text] k JOIN [Clock Data Table] c ON c.ID = k.ClockDataID");
       !rs.Eof(); rs.MoveNext()) {
    const std::string text = rs.Field("PunchKey").AsText();
    uint64_t hash = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), hash, 16);
    if (ec != std::errc() || end != text.data() + text.size()) continue;
    add->BindInt(1, MinuteOf(rs.Field("D").AsDate(), rs.Field("T").AsTime()));
    add->BindInt(2, Stored(hash));
    add->BindInt(3, rs.Field("ClockDataID").AsInt());
    add->Execute();
  }
  db_.Execute("DROP TABLE [Punch Keys Text]");
  if (own) own->Commit();
}

bool PunchKeys::Contains(const PunchKey& key) {
  if (!find_) find_ = db_.Prepare("SELECT 1 FROM [Punch Keys] WHERE Minute = ? AND Hash = ?");
  find_->BindInt(1, key.minute);
  find_->BindInt(2, Stored(key.hash));
  return find_->HasRow();
}

void PunchKeys::Add(const PunchKey& key, int64_t clock_data_id) {
  if (!add_) {
    add_ = db_.Prepare("INSERT INTO [Punch Keys] (Minute, Hash, ClockDataID) VALUES (?, ?, ?)");
  }
  add_->BindInt(1, key.minute);
  add_->BindInt(2, Stored(key.hash));
  add_->BindInt(3, clock_data_id);
  add_->Execute();
}

std::vector<bool> PunchKeys::FindStored(const std::vector<PunchKey>& keys) {
  std::vector<int64_t> minutes;
  minutes.reserve(keys.size());
  for (const PunchKey& key : keys) minutes.push_back(key.minute);
  std::sort(minutes.begin(), minutes.end());
  // The stored keys of the batch's minutes; ranges split where the punches are a day apart, so a
  // batch of two distant dates does not read all the years between.
  std::unordered_set<std::pair<int64_t, int64_t>, PairHash> stored;
  for (size_t i = 0; i < minutes.size();) {
    size_t last = i;
    while (last + 1 < minutes.size() && minutes[last + 1] - minutes[last] <= kMinutesPerDay) {
      ++last;
    }
    for (auto rs =
             db_.Query("SELECT Minute, Hash FROM [Punch Keys] WHERE Minute >= ? AND Minute <= ?",
                       {minutes[i], minutes[last]});
         !rs.Eof(); rs.MoveNext()) {
      stored.emplace(rs.Field(0).AsInt(), rs.Field(1).AsInt());
    }
    i = last + 1;
  }
  std::vector<bool> found(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    found[i] = stored.contains({keys[i].minute, Stored(keys[i].hash)});
  }
  return found;
}

void PunchKeys::AddMany(const std::vector<PunchKey>& keys, int64_t first_id) {
  if (keys.empty()) return;
  auto rows = db_.InsertMany("[Punch Keys]", {"Minute", "Hash", "ClockDataID"});
  int64_t id = first_id;
  for (const PunchKey& key : keys) {
    rows->BindInt(1, key.minute);
    rows->BindInt(2, Stored(key.hash));
    rows->BindInt(3, id++);
    rows->AddRow();
  }
  rows->Finish();
}

int64_t PunchKeys::ForgetDeletedRows() {
  return db_.Execute(
      "DELETE FROM [Punch Keys] WHERE ClockDataID IS NOT NULL AND NOT EXISTS "
      "(SELECT 1 FROM [Clock Data Table] WHERE ID = [Punch Keys].ClockDataID)");
}

}  // namespace clockcomm::records
