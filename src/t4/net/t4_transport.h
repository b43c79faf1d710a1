// How packets reach a T4 terminal: TCP (frames cut by their length prefix) or UDP (one datagram,
// one packet). A packet whose checksum is wrong is dropped and counted, as the terminal itself
// drops ours.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "comm/connection.h"
#include "comm/tcp_connection.h"
#include "comm/udp_socket.h"
#include "t4/net/t4_frame_cutter.h"
#include "t4/net/t4_packet.h"

namespace clockcomm::t4::net {

enum class T4TransportKind { kTcp, kUdp };

class T4Transport {
 public:
  virtual ~T4Transport() = default;
  virtual void Send(const T4Packet& packet) = 0;
  // The next whole packet with a good checksum; nullopt when the deadline passed or a wake signal
  // came first. Throws comm::ConnectionClosedError when the terminal closed the connection and
  // T4StreamError when the stream is out of step.
  virtual std::optional<T4Packet> Receive(comm::SteadyTime deadline, const comm::WakeSet& wake) = 0;
  virtual T4TransportKind Kind() const = 0;
  virtual std::string Describe() const = 0;
  size_t BadChecksums() const { return bad_checksums_; }

 protected:
  size_t bad_checksums_ = 0;
};

class T4TcpTransport : public T4Transport {
 public:
  explicit T4TcpTransport(std::unique_ptr<comm::TcpConnection> connection);
  void Send(const T4Packet& packet) override;
  std::optional<T4Packet> Receive(comm::SteadyTime deadline, const comm::WakeSet& wake) override;
  T4TransportKind Kind() const override { return T4TransportKind::kTcp; }
  std::string Describe() const override { return "tcp " + connection_->Describe(); }

 private:
  std::unique_ptr<comm::TcpConnection> connection_;
  T4FrameCutter cutter_;
};

class T4UdpTransport : public T4Transport {
 public:
  explicit T4UdpTransport(comm::UdpSocket socket) : socket_(std::move(socket)) {}
  void Send(const T4Packet& packet) override;
  std::optional<T4Packet> Receive(comm::SteadyTime deadline, const comm::WakeSet& wake) override;
  T4TransportKind Kind() const override { return T4TransportKind::kUdp; }
  std::string Describe() const override { return socket_.Describe(); }

 private:
  comm::UdpSocket socket_;
};

// A terminal that does not take the TCP connection within this time is reported as not answering.
inline constexpr std::chrono::seconds kT4ConnectTimeout{5};

// Opens the transport to host:port. Throws core::SystemError (refused, no route, bad name) and
// core::TimeoutException.
std::unique_ptr<T4Transport> OpenT4Transport(T4TransportKind kind, const std::string& host,
                                             uint16_t port, const comm::WakeSet& wake = {});

}  // namespace clockcomm::t4::net
