// A connection that leaves at least a set gap between two of its sends: the LAN delay, for
// network terminals too slow to take the program's packets back to back.
#pragma once

#include <chrono>
#include <memory>

#include "comm/connection.h"

namespace clockcomm::comm {

class SpacedConnection : public IConnection {
 public:
  SpacedConnection(std::unique_ptr<IConnection> inner, std::chrono::microseconds gap)
      : inner_(std::move(inner)), gap_(gap) {}

  std::string Read() override { return inner_->Read(); }
  // Sleeps until the gap since the previous send has passed (at most the gap), then sends.
  void WriteText(std::string_view text) override;
  WaitResult WaitForInput(SteadyTime deadline, const WakeSet& wake) override {
    return inner_->WaitForInput(deadline, wake);
  }
  void WaitUntilSent() override { inner_->WaitUntilSent(); }
  std::string Describe() const override { return inner_->Describe(); }

 private:
  std::unique_ptr<IConnection> inner_;
  std::chrono::microseconds gap_;
  std::chrono::steady_clock::time_point last_send_{};
};

}  // namespace clockcomm::comm
