#include "comm/network_line.h"

#include <charconv>

#include "core/errors.h"

namespace clockcomm::comm {

EndPoint ParseEndPoint(std::string_view text) {
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
  if (error != std::errc() || end != port_text.data() + port_text.size() || port == 0 ||
      port > 65535 || host.empty()) {
    throw refuse();
  }
  return {std::string(host), static_cast<uint16_t>(port)};
}

IConnection& NetworkLine::Connection() {
  if (!connection_) throw ConnectionClosedError("No terminal is connected on the LAN line.");
  return *connection_;
}

LineEvent NetworkLine::WaitForCall(SteadyTime, const WakeSet&) {
  throw core::InvalidOperationException(
      "A LAN line polls its terminals; it takes no incoming calls.");
}

LineEvent NetworkLine::Reach(const std::string& address, const WakeSet& wake) {
  connection_.reset();
  LineEvent event{LineEvent::Kind::kFailed};
  try {
    const EndPoint end = ParseEndPoint(address);
    connection_ = TcpConnection::Connect(end.host, end.port, kConnectTimeout, wake);
    event.kind = LineEvent::Kind::kConnected;
  } catch (const core::TimeoutException&) {
    event.text = "no answer from " + address;
  } catch (const core::Error& e) {
    event.text = e.what();
  }
  return event;
}

}  // namespace clockcomm::comm
