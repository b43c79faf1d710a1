// The program's side of a call, scripted from the comm and zon pieces, so that the simulators are
// checked against the conversation rules rather than against the call loop.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "zon/block_check.h"
#include "zon/packet_reader.h"
#include "zon/protocol_char.h"

namespace clockcomm::sim::test {

using zon::ProtocolChar;

// A pty pair: the terminal side (master) and the program side (slave opened as a serial line).
struct PtyLine {
  PtyLine() : pair(comm::PtyPair::Open()) {
    line.Open(pair.SlavePath());
    terminal_end = pair.TakeMaster();
    host_end = std::make_unique<comm::SerialConnection>(line);
  }
  comm::PtyPair pair;
  comm::SerialLine line;
  std::unique_ptr<comm::FdConnection> terminal_end;
  std::unique_ptr<comm::SerialConnection> host_end;
};

struct HostCall {
  std::string header;             // the last header, without block check
  std::vector<std::string> data;  // punch lines accepted, without block check
  bool end_of_upload = false;     // "00" FS ENQ, rather than "00" FS EOT or silence
  bool ended = false;             // an end packet came, rather than silence
};

class ScriptedHost {
 public:
  ScriptedHost(comm::IConnection& line, bool framed, int timeout_ms = 3000)
      : line_(line), reader_(line), framed_(framed) {
    reader_.SetTimeout(timeout_ms);
  }

  void Send(const std::string& text) { line_.WriteText(text); }
  void Send(char c) { Send(std::string(1, c)); }
  void Ack() { Send(framed_ ? ProtocolChar::Shared().ACK4() : ProtocolChar::Shared().ACK()); }
  void Nak() { Send(framed_ ? ProtocolChar::Shared().NAK4() : ProtocolChar::Shared().NAK()); }
  void Eot() { Send(framed_ ? ProtocolChar::Shared().EOT4() : ProtocolChar::Shared().EOT()); }
  void Enq() { Send(ProtocolChar::kEnq); }

  // The next line, CRLF removed; "" with timed_out set when the terminal stayed silent.
  std::string ReadLine(bool* timed_out = nullptr) {
    try {
      return reader_.ReadPacket();
    } catch (const core::TimeoutException&) {
      if (timed_out != nullptr) *timed_out = true;
      return {};
    }
  }

  // Reads packets, checking and answering each, until an end packet or silence.
  HostCall ReceiveUpload() {
    HostCall call;
    const std::string end = std::string("00") + ProtocolChar::kFs;
    for (;;) {
      bool timed_out = false;
      const std::string packet = ReadLine(&timed_out);
      call.end_of_upload = packet == end + ProtocolChar::kEnq;
      call.ended = call.end_of_upload || packet == end + ProtocolChar::kEot;
      if (timed_out || call.ended) return call;
      if (!CheckOk(packet)) {
        Nak();
        continue;
      }
      const std::string body = packet.substr(0, packet.size() - 1);
      if (body[0] == ProtocolChar::kStx) {
        call.header = body;
      } else {
        call.data.push_back(body);
      }
      Ack();
    }
  }

  // The block check is the xor of all bytes before it.
  static bool CheckOk(const std::string& packet) {
    return !packet.empty() && packet.back() == zon::BlockCheckOf(std::string_view(packet).substr(
                                                   0, packet.size() - 1));
  }

 private:
  comm::IConnection& line_;
  zon::PacketReader reader_;
  bool framed_;
};

}  // namespace clockcomm::sim::test
