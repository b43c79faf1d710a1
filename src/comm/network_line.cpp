#include "comm/network_line.h"

#include <charconv>

#include "comm/spaced_connection.h"
#include "core/errors.h"

namespace clockcomm::comm {

EndPoint ParseEndPoint(std::string_view text, bool any_port) {
  const size_t colon = text.rfind(':');
  auto refuse = [&] {
    return core::ArgumentException(
        "\"" + std::string(text) + "\" is not a network address: write host:port.", "address");
  };
  if (colon == std::string_view::npos || colon == 0) throw refuse();
  std::string_view host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  const std::string_view port_text = text.substr(colon + 1);
  unsigned port = 0;
  const auto [end, error] =
      std::from_chars(port_text.data(), port_text.data() + port_text.size(), port);
  if (error != std::errc() || end != port_text.data() + port_text.size() ||
      (port == 0 && !any_port) || port > 65535 || host.empty()) {
    throw refuse();
  }
  return {std::string(host), static_cast<uint16_t>(port)};
}

IConnection& NetworkLine::CurrentConnection::Current() {
  if (!current_) throw ConnectionClosedError("No terminal is connected on the LAN line.");
  return *current_;
}

LineEvent NetworkLine::WaitForCall(SteadyTime, const WakeSet&) {
  throw core::InvalidOperationException(
      "A LAN line polls its terminals; calls in come to the LAN listener.");
}

LineEvent NetworkLine::Reach(const std::string& address, const WakeSet& wake) {
  connection_.reset();
  LineEvent event{LineEvent::Kind::kFailed};
  try {
    const EndPoint end = ParseEndPoint(address);
    connection_ = std::make_unique<SpacedConnection>(
        TcpConnection::Connect(end.host, end.port, kConnectTimeout, wake), lan_delay_);
    event.kind = LineEvent::Kind::kConnected;
  } catch (const core::TimeoutException&) {
    event.text = "no answer from " + address;
  } catch (const core::Error& e) {
    event.text = e.what();
  }
  return event;
}

LanCallLine::LanCallLine(std::unique_ptr<TcpConnection> connection,
                         std::chrono::microseconds lan_delay)
    : peer_(connection->Describe()),
      connection_(std::make_unique<SpacedConnection>(std::move(connection), lan_delay)) {}

IConnection& LanCallLine::Connection() {
  if (!connection_) throw ConnectionClosedError("The terminal at " + peer_ + " was hung up.");
  return *connection_;
}

LineEvent LanCallLine::WaitForCall(SteadyTime deadline, const WakeSet& wake) {
  IConnection& connection = Connection();
  if (connection.WaitForInput(deadline, wake) != WaitResult::kReadable) return {};
  LineEvent event{LineEvent::Kind::kInput};
  event.data = connection.Read();
  return event;
}

}  // namespace clockcomm::comm
