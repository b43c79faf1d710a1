// IConnection over a descriptor it owns: the master side of a pty pair, an accepted or connected
// socket. Once the other end is gone, Read returns what was left and then raises
// ConnectionClosedError.
#pragma once

#include <chrono>
#include <string>

#include "comm/connection.h"

namespace clockcomm::comm {

class FdConnection : public IConnection {
 public:
  // Takes ownership of fd and makes it non-blocking.
  FdConnection(int fd, std::string description);
  ~FdConnection() override;
  FdConnection(const FdConnection&) = delete;
  FdConnection& operator=(const FdConnection&) = delete;

  std::string Read() override;
  void WriteText(std::string_view text) override;
  WaitResult WaitForInput(SteadyTime deadline, const WakeSet& wake) override;
  std::string Describe() const override { return description_; }

  void Close();
  bool IsOpen() const { return fd_ >= 0; }
  // True once a Read has seen the other end close.
  bool PeerClosed() const { return peer_closed_; }
  int Fd() const { return fd_; }

  // How long WriteText may wait for room before it gives up.
  void SetWriteTimeout(std::chrono::milliseconds timeout) { write_timeout_ = timeout; }

  static constexpr size_t kMaxReadChunk = 65536;

 private:
  void RequireOpen() const;

  int fd_;
  std::string description_;
  bool socket_;
  bool peer_closed_ = false;
  std::chrono::milliseconds write_timeout_{30000};
};

}  // namespace clockcomm::comm
