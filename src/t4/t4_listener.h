// Who receives what a T4 clock collects: each accepted punch (the clock's current-punch
// properties hold it), the punches of a bulk read together, and the end of a poll.
#pragma once

#include <vector>

#include "t4/t4_punch.h"

namespace clockcomm::t4 {

class T4Clock;

class IT4Listener {
 public:
  virtual ~IT4Listener() = default;
  // Must store the punch durably before returning: the terminal's log is cleared after a pass
  // whose punches were all received. Throws when it could not; the pass then keeps the log.
  virtual void ReceivedPunch(T4Clock& clock) = 0;
  // The punches a poll's bulk read accepted, in the log's order: stored durably together, or not
  // at all with an exception.
  virtual void ReceivedPunches(T4Clock& clock, const std::vector<T4Punch>& punches) = 0;
  virtual void AutoPolled(T4Clock& clock) = 0;
  // What a poll learned of the punches the terminal still holds that were not received from it:
  // its record count beyond the real-time transactions received, or 0 once its log was read.
  virtual void CountedWaiting(T4Clock& /*clock*/, long /*waiting*/) {}
};

}  // namespace clockcomm::t4
