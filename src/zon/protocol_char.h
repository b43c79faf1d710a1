// The control characters of the Zon/Tranz line protocol and the framed control packets built from
// them. One shared instance; the four-character packets are composed on each call.
#pragma once

#include <string>

#include "zon/block_check.h"

namespace clockcomm::zon {

class ProtocolChar {
 public:
  static constexpr char kSyn = 0x16;
  static constexpr char kSoh = 0x01;
  static constexpr char kStx = 0x02;
  static constexpr char kEtx = 0x03;
  static constexpr char kEot = 0x04;
  static constexpr char kEnq = 0x05;
  static constexpr char kAck = 0x06;
  static constexpr char kBell = 0x07;
  static constexpr char kFf = 0x0C;
  static constexpr char kNak = 0x15;
  static constexpr char kFs = 0x1C;
  static constexpr char kGs = 0x1D;
  static constexpr char kRs = 0x1E;
  static constexpr char kUs = 0x1F;

  static const ProtocolChar& Shared();

  std::string RSUS() const { return RS() + US(); }
  // STX, the control character, ETX, and the block check of the control character and ETX.
  std::string ACK4() const { return Framed(ACK()); }
  std::string NAK4() const { return Framed(NAK()); }
  std::string EOT4() const { return Framed(EOT()); }
  std::string SYN() const { return std::string(1, kSyn); }
  std::string SOH() const { return std::string(1, kSoh); }
  std::string STX() const { return std::string(1, kStx); }
  std::string ETX() const { return std::string(1, kEtx); }
  std::string EOT() const { return std::string(1, kEot); }
  std::string ENQ() const { return std::string(1, kEnq); }
  std::string ACK() const { return std::string(1, kAck); }
  std::string BELL() const { return std::string(1, kBell); }
  std::string FF() const { return std::string(1, kFf); }
  std::string NAK() const { return std::string(1, kNak); }
  std::string FS() const { return std::string(1, kFs); }
  std::string GS() const { return std::string(1, kGs); }
  std::string RS() const { return std::string(1, kRs); }
  std::string US() const { return std::string(1, kUs); }

 private:
  ProtocolChar() = default;
  std::string Framed(const std::string& control) const {
    return STX() + control + ETX() + BlockCheckOf(control + ETX());
  }
};

}  // namespace clockcomm::zon
