#include "records/punch_batch.h"

#include <set>

namespace clockcomm::records {

void PunchBatch::Add(const PunchKey& key, TcdRecord record) {
  keys_in_.push_back(key);
  records_.push_back(std::move(record));
}

PunchBatch::Result PunchBatch::Write(const std::function<void(const TcdRecord&)>& written) {
  Result result;
  if (records_.empty()) return result;
  db_.LockForWriting("[Clock Data Table]");
  const std::vector<bool> stored = keys_.FindStored(keys_in_);
  std::set<std::pair<int64_t, uint64_t>> in_batch;
  std::vector<PunchKey> new_keys;
  std::vector<const TcdRecord*> new_records;
  for (size_t i = 0; i < records_.size(); ++i) {
    if (stored[i] || !in_batch.emplace(keys_in_[i].minute, keys_in_[i].hash).second) {
      ++result.already_present;
      continue;
    }
    new_keys.push_back(keys_in_[i]);
    new_records.push_back(&records_[i]);
  }
  if (!new_records.empty()) {
    const auto count = static_cast<int64_t>(new_records.size());
    const int64_t first_id = db_.ReserveIds("[Clock Data Table]", "ID", count);
    writer_.WriteMany(new_records, first_id);
    keys_.AddMany(new_keys, first_id);
    result.written = static_cast<int>(count);
    if (written) {
      for (const TcdRecord* r : new_records) written(*r);
    }
  }
  keys_in_.clear();
  records_.clear();
  return result;
}

}  // namespace clockcomm::records
