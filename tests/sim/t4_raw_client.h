// A bare client for the simulated T4 terminal: sends packets built with the codec over TCP or UDP
// and hands back every packet that arrives, raw, without any of the real client's logic.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "comm/tcp_connection.h"
#include "comm/udp_socket.h"
#include "t4/net/t4_frame_cutter.h"
#include "t4/net/t4_packet.h"

namespace clockcomm::sim {

class T4RawClient {
 public:
  T4RawClient(bool tcp, uint16_t port) {
    if (tcp) {
      tcp_ = comm::TcpConnection::Connect("127.0.0.1", port, std::chrono::seconds(2));
    } else {
      udp_ = comm::UdpSocket::Connect("127.0.0.1", port);
    }
  }

  // Sends code with the next reply id (or `id`) and the session of the last CONNECT.
  void Send(uint16_t code, std::string data = {}, std::optional<uint16_t> id = {}) {
    if (!id) id = code == t4::net::cmd::kConnect ? 0 : ++last_id_;
    SendRaw(t4::net::Encode({code, session_, *id, std::move(data)}));
  }
  void SendRaw(std::string packet) {
    if (tcp_) {
      std::string framed = "PP\x82\x7d" + std::string(4, '\0');
      framed[4] = static_cast<char>(packet.size() & 0xFF);
      framed[5] = static_cast<char>(packet.size() >> 8);
      tcp_->WriteText(framed + packet);
    } else {
      udp_->Send(packet);
    }
  }
  // The next packet's bytes (UDP form), or nullopt after `wait` of silence.
  std::optional<std::string> ReceiveRaw(std::chrono::milliseconds wait = std::chrono::seconds(3)) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    if (udp_) {
      auto d = udp_->Receive(deadline, {});
      return d ? std::optional(d->bytes) : std::nullopt;
    }
    for (;;) {
      if (auto frame = cutter_.Next()) return frame;
      if (tcp_->WaitForInput(deadline, {}) != comm::WaitResult::kReadable) return std::nullopt;
      cutter_.Append(tcp_->Read());
    }
  }
  std::optional<t4::net::T4Packet> Receive(
      std::chrono::milliseconds wait = std::chrono::seconds(3)) {
    auto bytes = ReceiveRaw(wait);
    return bytes ? t4::net::Decode(*bytes) : std::nullopt;
  }
  // Sends and waits for the one packet that answers (code 0 when none came).
  t4::net::T4Packet Call(uint16_t code, std::string data = {},
                         std::chrono::milliseconds wait = std::chrono::seconds(3)) {
    Send(code, std::move(data));
    return Receive(wait).value_or(t4::net::T4Packet{});
  }
  // CONNECT; keeps the session id handed out.
  t4::net::T4Packet Connect(std::chrono::milliseconds wait = std::chrono::seconds(3)) {
    auto answer = Call(t4::net::cmd::kConnect, {}, wait);
    session_ = answer.session;
    return answer;
  }
  void SetLastId(uint16_t id) { last_id_ = id; }
  uint16_t Session() const { return session_; }

 private:
  std::unique_ptr<comm::TcpConnection> tcp_;
  std::optional<comm::UdpSocket> udp_;
  t4::net::T4FrameCutter cutter_;
  uint16_t session_ = 0, last_id_ = 0;
};

}  // namespace clockcomm::sim
