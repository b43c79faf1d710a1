#include "shell/schedule/scheduled_event.h"

#include "core/errors.h"

namespace clockcomm::shell {

void ScheduledEvent::SetNextAfter(const core::DateTime& d) {
  core::DateTime next(d.GetDate(), time_of_day_);
  if (next <= d) next = next.AddDays(1);
  next_event_ = next;
}

bool ScheduledEvent::Elapsed(const core::DateTime& d) const {
  if (!next_event_) {
    throw core::InvalidOperationException("ScheduledEvent " + ToString() +
                                          " has no NextEvent; call SetNextAfter first.");
  }
  return core::SecondsBetween(*next_event_, d) >= 0;
}

std::string ScheduledEvent::ToString() const {
  std::string text = key_ + " at " + time_of_day_.Format(core::kFormatHourMinuteSecond);
  if (next_event_) text += ", next " + next_event_->ToString();
  return text;
}

}  // namespace clockcomm::shell
