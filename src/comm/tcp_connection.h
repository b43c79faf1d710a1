// TCP connections on the loopback or a terminal's address: connecting out, and a listener that
// accepts connections (a burst of terminals calling at once waits in its backlog). Both wait
// without spinning and wake on a stop signal.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "comm/fd_connection.h"

namespace clockcomm::comm {

class TcpConnection : public FdConnection {
 public:
  // Connects to host:port (a name or a numeric address). Throws core::TimeoutException when the
  // time-out passes, core::SystemError when refused, ConnectionClosedError when woken by a
  // signal before the connection is made.
  static std::unique_ptr<TcpConnection> Connect(const std::string& host, uint16_t port,
                                                std::chrono::milliseconds timeout,
                                                const WakeSet& wake = {});
  TcpConnection(int fd, std::string description) : FdConnection(fd, std::move(description)) {}
};

class TcpListener {
 public:
  // Listens on address:port; port 0 picks a free port (see Port()).
  TcpListener(const std::string& address, uint16_t port);
  ~TcpListener();
  TcpListener(const TcpListener&) = delete;
  TcpListener& operator=(const TcpListener&) = delete;

  uint16_t Port() const { return port_; }
  // The next incoming connection, or null when the deadline passed or a wake signal was raised.
  std::unique_ptr<TcpConnection> Accept(SteadyTime deadline, const WakeSet& wake = {});

 private:
  int fd_ = -1;
  uint16_t port_ = 0;
};

}  // namespace clockcomm::comm
