#include "t4/duplicate_checker.h"

#include <algorithm>

#include "core/errors.h"

namespace clockcomm::t4 {

bool DuplicateChecker::FindDuplicate(long badge, const core::DateTime& time) {
  std::vector<int64_t>& times = times_[badge];
  const int64_t t = time.Seconds();
  const auto at = std::lower_bound(times.begin(), times.end(), t);
  if (at != times.end() && *at - t <= threshold_) return true;  // covers the exact match
  if (at != times.begin() && t - *(at - 1) <= threshold_) return true;
  times.insert(at, t);
  return false;
}

void DuplicateChecker::Forget(long badge, const core::DateTime& time) {
  const auto found = times_.find(badge);
  if (found == times_.end()) return;
  std::vector<int64_t>& times = found->second;
  const auto at = std::lower_bound(times.begin(), times.end(), time.Seconds());
  if (at != times.end() && *at == time.Seconds()) times.erase(at);
}

void DuplicateChecker::SetThreshold(long seconds) {
  if (seconds < 0) throw core::ArgumentException("Threshold cannot be negative.", "Threshold");
  threshold_ = seconds;
}

void DuplicateChecker::PurgeRecords(long minutes, const core::DateTime& now) {
  // Anything at or before this is more than minutes older than now.
  const int64_t newest_purged = now.Seconds() - int64_t{minutes} * 60 - 1;
  for (auto& [badge, times] : times_) {
    times.erase(times.begin(), std::upper_bound(times.begin(), times.end(), newest_purged));
  }
}

}  // namespace clockcomm::t4
