// A UDP socket for the terminals that answer on datagrams: bound to a local port (a server) or
// connected to one peer (a client, which then hears only that peer). Waits block in poll() with a
// deadline and wake on a stop signal.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "comm/connection.h"

namespace clockcomm::comm {

// Where a datagram came from, to answer it there.
struct UdpPeer {
  sockaddr_storage address{};
  socklen_t length = 0;

  bool operator==(const UdpPeer& other) const;
  std::string Describe() const;  // "127.0.0.1:4370"
};

struct Datagram {
  std::string bytes;
  UdpPeer from;
};

class UdpSocket {
 public:
  // Receives on address:port; port 0 picks a free port (see Port()). Throws core::SystemError.
  static UdpSocket Bind(const std::string& address, uint16_t port);
  // Sends to and hears only host:port. Throws core::SystemError when the name does not resolve.
  static UdpSocket Connect(const std::string& host, uint16_t port);

  UdpSocket(UdpSocket&& other) noexcept;
  UdpSocket& operator=(UdpSocket&& other) noexcept;
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;
  ~UdpSocket();

  // Sends one datagram to the connected peer, or to `to`. Throws core::SystemError; a peer that is
  // not listening shows as ConnectionClosedError on a connected socket.
  void Send(std::string_view datagram);
  void SendTo(std::string_view datagram, const UdpPeer& to);
  // The next datagram (bytes past max_bytes cut off), or nullopt when the deadline passed or a
  // wake signal was raised first.
  std::optional<Datagram> Receive(SteadyTime deadline, const WakeSet& wake,
                                  size_t max_bytes = 65536);

  uint16_t Port() const { return port_; }
  const std::string& Describe() const { return description_; }

 private:
  UdpSocket(int fd, std::string description);

  int fd_ = -1;
  uint16_t port_ = 0;
  std::string description_;
};

}  // namespace clockcomm::comm
