// The per-badge filter every T4 punch passes: a punch within Threshold seconds of one already
// accepted for the same badge is a duplicate (a finger presented twice, or the bulk read handing
// back what a real-time event already delivered).
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "core/date_time.h"

namespace clockcomm::t4 {

class DuplicateChecker {
 public:
  static constexpr long kDefaultThreshold = 15;

  // True when the badge already has a punch at time or within Threshold seconds of it (whole
  // seconds, either side). A punch that is not a duplicate is remembered.
  bool FindDuplicate(long badge, const core::DateTime& time);
  // Forgets a punch remembered by FindDuplicate (one that could not be stored after all, so that
  // the next read delivers it again).
  void Forget(long badge, const core::DateTime& time);

  long Threshold() const { return threshold_; }
  // Throws core::ArgumentException for a negative value.
  void SetThreshold(long seconds);

  void Reset() { times_.clear(); }
  // Drops, for every badge, the punches more than minutes older than now.
  void PurgeRecords(long minutes, const core::DateTime& now);

 private:
  // Seconds on DateTime's uniform scale, ascending per badge.
  std::unordered_map<long, std::vector<int64_t>> times_;
  long threshold_ = kDefaultThreshold;
};

}  // namespace clockcomm::t4
