#include "comm/spaced_connection.h"

#include <thread>

namespace clockcomm::comm {

void SpacedConnection::WriteText(std::string_view text) {
  if (gap_.count() > 0 && last_send_ != std::chrono::steady_clock::time_point{}) {
    std::this_thread::sleep_until(last_send_ + gap_);
  }
  inner_->WriteText(text);
  last_send_ = std::chrono::steady_clock::now();
}

}  // namespace clockcomm::comm
