// Lines to terminals on a network. NetworkLine polls: reaching a location opens a TCP connection
// to its address ("host:port"), ending the call closes it. LanCallLine is the line of one
// terminal that connected to the program's LAN listener: the conversation is that of a direct
// line, for as long as the terminal keeps the connection. Both leave the LAN delay between two
// of the program's sends.
#pragma once

#include <chrono>
#include <memory>

#include "comm/tcp_connection.h"
#include "comm/terminal_line.h"

namespace clockcomm::comm {

struct EndPoint {
  std::string host;
  uint16_t port = 0;
};

// "10.0.0.7:3001", "clock7.local:3001" or "[::1]:3001". Throws core::ArgumentException naming the
// text when it has no port or a port outside 1..65535 (0..65535 with any_port: an address to
// listen on, where 0 picks a free port).
EndPoint ParseEndPoint(std::string_view text, bool any_port = false);

class NetworkLine : public TerminalLine {
 public:
  // A terminal that does not accept the connection within this time is reported as not answering;
  // long enough for a converter on a slow site link, short enough not to hold up a poll list.
  static constexpr std::chrono::seconds kConnectTimeout{5};

  explicit NetworkLine(std::chrono::microseconds lan_delay = {}) : lan_delay_(lan_delay) {}

  void Open() override { open_ = true; }
  bool IsOpen() const override { return open_; }
  PrepareResult Prepare() override { return {}; }
  void Close() override {
    connection_.reset();
    open_ = false;
  }
  // The connection of the location reached; reading or writing it with none raises
  // ConnectionClosedError.
  IConnection& Connection() override { return current_; }
  // Throws core::InvalidOperationException: terminals call in on the LAN listener, not here.
  LineEvent WaitForCall(SteadyTime deadline, const WakeSet& wake) override;
  // Connects to the address; a refusal, a time-out or a bad address is kFailed with the reason.
  LineEvent Reach(const std::string& address, const WakeSet& wake) override;
  void HangUp() override { connection_.reset(); }
  void EndCall() override { connection_.reset(); }
  bool CarrierLost() const override { return false; }
  bool FramedControls() const override { return false; }
  void SetSpeed(const std::string&) override {}
  std::string Describe() const override { return "LAN"; }

 private:
  // The connection of the call in progress, under one name for the line's whole life: a driver
  // keeps it from one location to the next.
  class CurrentConnection : public IConnection {
   public:
    explicit CurrentConnection(std::unique_ptr<IConnection>& current) : current_(current) {}
    std::string Read() override { return Current().Read(); }
    void WriteText(std::string_view text) override { Current().WriteText(text); }
    WaitResult WaitForInput(SteadyTime deadline, const WakeSet& wake) override {
      return Current().WaitForInput(deadline, wake);
    }
    std::string Describe() const override { return current_ ? current_->Describe() : "LAN"; }

   private:
    IConnection& Current();
    std::unique_ptr<IConnection>& current_;
  };

  std::chrono::microseconds lan_delay_;
  bool open_ = false;
  std::unique_ptr<IConnection> connection_;
  CurrentConnection current_{connection_};
};

class LanCallLine : public TerminalLine {
 public:
  LanCallLine(std::unique_ptr<TcpConnection> connection, std::chrono::microseconds lan_delay);

  void Open() override {}
  bool IsOpen() const override { return connection_ != nullptr; }
  PrepareResult Prepare() override { return {}; }
  void Close() override { connection_.reset(); }
  IConnection& Connection() override;
  // The terminal's bytes, as on a direct line; raises ConnectionClosedError once it has gone.
  LineEvent WaitForCall(SteadyTime deadline, const WakeSet& wake) override;
  // The terminal is there already.
  LineEvent Reach(const std::string&, const WakeSet&) override {
    return {LineEvent::Kind::kConnected};
  }
  void HangUp() override { connection_.reset(); }
  // The terminal may hold another call on the same connection (a serial-to-Ethernet converter
  // keeps it open), so the end of a call leaves it open.
  void EndCall() override {}
  bool CarrierLost() const override { return false; }
  bool FramedControls() const override { return false; }
  void SetSpeed(const std::string&) override {}
  // The terminal's address, "10.0.0.7:50312".
  std::string Describe() const override { return peer_; }

 private:
  std::string peer_;
  std::unique_ptr<IConnection> connection_;
};

}  // namespace clockcomm::comm
