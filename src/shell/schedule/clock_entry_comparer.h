// The order in which the timed cycle calls its entries.
#pragma once

#include "shell/schedule/clock_entry.h"

namespace clockcomm::shell {

// By CallTime; at the same call time entries of one line (GroupKey) come together, and then the
// poll list's order (LocationId) decides, so the order never depends on how rows were read.
class ClockEntryComparer {
 public:
  // Negative, zero or positive as a sorts before, with, or after b.
  static int Compare(const ClockEntry& a, const ClockEntry& b);
  bool operator()(const ClockEntry& a, const ClockEntry& b) const { return Compare(a, b) < 0; }
};

}  // namespace clockcomm::shell
