#include "ats/ats_connection.h"

namespace clockcomm::ats {

bool ATSLineConnection::Connect() {
  if (stop_.Requested()) return false;
  try {
    // A wait that is already over: throws when the line is not open, blocks not at all.
    line_.WaitForInput(clock_.Steady(), {});
    return true;
  } catch (const comm::ConnectionClosedError&) {
    return false;
  }
}

std::string ATSLineConnection::Receive(std::chrono::milliseconds wait) {
  const comm::SteadyTime deadline = clock_.Steady() + wait;
  const comm::WakeSet wake{&stop_};
  while (line_.WaitForInput(deadline, wake) == comm::WaitResult::kReadable) {
    std::string text = line_.Read();
    if (!text.empty()) return text;
  }
  return {};
}

}  // namespace clockcomm::ats
