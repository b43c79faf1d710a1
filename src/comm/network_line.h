// A line to terminals on a network, for polling: reaching a location opens a TCP connection to its
// address ("host:port"), ending the call closes it. It takes no incoming calls.
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
// text when it has no port or a port outside 1..65535.
EndPoint ParseEndPoint(std::string_view text);

class NetworkLine : public TerminalLine {
 public:
  // A terminal that does not accept the connection within this time is reported as not answering;
  // long enough for a converter on a slow site link, short enough not to hold up a poll list.
  static constexpr std::chrono::seconds kConnectTimeout{5};

  void Open() override { open_ = true; }
  bool IsOpen() const override { return open_; }
  PrepareResult Prepare() override { return {}; }
  void Close() override {
    connection_.reset();
    open_ = false;
  }
  IConnection& Connection() override;
  // Throws core::InvalidOperationException: terminals on a network are polled, not waited for.
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
  bool open_ = false;
  std::unique_ptr<TcpConnection> connection_;
};

}  // namespace clockcomm::comm
