#include "shell/schedule/clock_entry_comparer.h"

namespace clockcomm::shell {
namespace {
template <typename T>
int Sign(const T& a, const T& b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}
}  // namespace

int ClockEntryComparer::Compare(const ClockEntry& a, const ClockEntry& b) {
  if (int c = Sign(a.CallTime(), b.CallTime())) return c;
  if (int c = a.GroupKey().compare(b.GroupKey())) return c < 0 ? -1 : 1;
  return Sign(a.LocationId(), b.LocationId());
}

}  // namespace clockcomm::shell
