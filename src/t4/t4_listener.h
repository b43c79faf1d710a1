// Who receives what a T4 clock collects: each accepted punch (the clock's current-punch
// properties hold it) and the end of a poll.
#pragma once

namespace clockcomm::t4 {

class T4Clock;

class IT4Listener {
 public:
  virtual ~IT4Listener() = default;
  // Must store the punch durably before returning: the terminal's log is cleared after a pass
  // whose punches were all received. Throws when it could not; the pass then keeps the log.
  virtual void ReceivedPunch(T4Clock& clock) = 0;
  virtual void AutoPolled(T4Clock& clock) = 0;
};

}  // namespace clockcomm::t4
