#include "t4/net/t4_transport.h"

namespace clockcomm::t4::net {

T4TcpTransport::T4TcpTransport(std::unique_ptr<comm::TcpConnection> connection)
    : connection_(std::move(connection)) {}

void T4TcpTransport::Send(const T4Packet& packet) { connection_->WriteText(EncodeTcp(packet)); }

std::optional<T4Packet> T4TcpTransport::Receive(comm::SteadyTime deadline,
                                                const comm::WakeSet& wake) {
  for (;;) {
    while (auto frame = cutter_.Next()) {
      if (auto packet = Decode(*frame)) return packet;
      ++bad_checksums_;
    }
    if (connection_->WaitForInput(deadline, wake) != comm::WaitResult::kReadable) {
      return std::nullopt;
    }
    cutter_.Append(connection_->Read());  // throws ConnectionClosedError once the terminal left
  }
}

void T4UdpTransport::Send(const T4Packet& packet) { socket_.Send(Encode(packet)); }

std::optional<T4Packet> T4UdpTransport::Receive(comm::SteadyTime deadline,
                                                const comm::WakeSet& wake) {
  while (auto datagram = socket_.Receive(deadline, wake, kMaxPacketSize)) {
    if (auto packet = Decode(datagram->bytes)) return packet;
    ++bad_checksums_;
  }
  return std::nullopt;
}

std::unique_ptr<T4Transport> OpenT4Transport(T4TransportKind kind, const std::string& host,
                                             uint16_t port, const comm::WakeSet& wake) {
  if (kind == T4TransportKind::kUdp) {
    return std::make_unique<T4UdpTransport>(comm::UdpSocket::Connect(host, port));
  }
  return std::make_unique<T4TcpTransport>(
      comm::TcpConnection::Connect(host, port, kT4ConnectTimeout, wake));
}

}  // namespace clockcomm::t4::net
