#include "comm/connection.h"

namespace clockcomm::comm {

WakeSet::WakeSet(std::initializer_list<const core::StopSignal*> signals) {
  for (const auto* signal : signals) Add(signal);
}

void WakeSet::Add(const core::StopSignal* signal) {
  if (signal != nullptr) signals_.push_back(signal);
}

bool WakeSet::AnyRequested() const {
  for (const auto* signal : signals_) {
    if (signal->Requested()) return true;
  }
  return false;
}

std::vector<int> WakeSet::Fds() const {
  std::vector<int> fds;
  fds.reserve(signals_.size());
  for (const auto* signal : signals_) fds.push_back(signal->WakeFd());
  return fds;
}

}  // namespace clockcomm::comm
