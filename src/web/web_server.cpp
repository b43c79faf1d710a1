#include "web/web_server.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "core/errors.h"
#include "core/text.h"
#include "web/api_reply.h"

namespace clockcomm::web {

ListenAddress ParseListenAddress(const std::string& text) {
  ListenAddress address;
  std::string host = text;
  std::string port;
  if (!text.empty() && text.front() == '[') {  // [IPv6]:port
    const size_t close = text.find(']');
    if (close == std::string::npos) {
      throw core::ArgumentException("--listen \"" + text + "\": no closing ']'.", "listen");
    }
    host = text.substr(1, close - 1);
    if (close + 1 < text.size()) {
      if (text[close + 1] != ':') {
        throw core::ArgumentException("--listen \"" + text + "\": expected HOST:PORT.", "listen");
      }
      port = text.substr(close + 2);
    }
  } else if (const size_t colon = text.rfind(':'); colon != std::string::npos) {
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
  }
  if (!host.empty()) address.host = host;
  if (!port.empty() || (!text.empty() && text.back() == ':')) {
    const auto number = core::ParseInt(port);
    if (!number || *number < 0 || *number > 65535) {
      throw core::ArgumentException(
          "--listen \"" + text + "\": the port must be a number from 0 to 65535.", "listen");
    }
    address.port = static_cast<int>(*number);
  }
  return address;
}

WebServer::WebServer(ApiRoutes& routes) {
  server_.set_payload_max_length(kMaxRequestBody);
  // Headers and body go out in separate writes; without this, Nagle's algorithm holds the body
  // until the client's delayed ACK, some 40 ms on every answer.
  server_.set_tcp_nodelay(true);
  // One request per connection: the library waits for a connection's next request by polling
  // every 10 ms, so a kept-alive idle connection would wake the server a hundred times a second.
  // A new connection on a LAN costs far less than that. A client that connects and sends nothing
  // is dropped after kSilentClient.
  // SO_REUSEADDR only: the library's default, SO_REUSEPORT, would let a second server bind the
  // same port and take half of the first one's connections.
  server_.set_socket_options([](int sock) {
    const int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  // A fixed pool, larger than the live screens that may hold a thread each.
  server_.new_task_queue = [] { return new httplib::ThreadPool(kRequestThreads); };
  server_.set_keep_alive_max_count(1);
  server_.set_keep_alive_timeout(kSilentClient.count());
  routes.Register(server_);
}

void WebServer::Bind(const ListenAddress& address) {
  const bool bound = address.port == 0 ? (port_ = server_.bind_to_any_port(address.host)) > 0
                                       : server_.bind_to_port(address.host, address.port);
  if (!bound) {
    throw core::InvalidOperationException("Cannot listen on " + address.host + ":" +
                                          std::to_string(address.port) + ": " +
                                          std::strerror(errno));
  }
  if (address.port != 0) port_ = address.port;
}

void WebServer::Run() {
  {
    std::lock_guard lock(mutex_);
    if (stopped_) return;
    running_ = true;
  }
  server_.listen_after_bind();
  std::lock_guard lock(mutex_);
  running_ = false;
  ended_.notify_all();
}

void WebServer::Stop() {
  std::unique_lock lock(mutex_);
  stopped_ = true;
  // A Stop just before the accept loop has marked itself running is not seen by it: ask again
  // until Run has returned.
  while (running_) {
    server_.stop();
    ended_.wait_for(lock, std::chrono::milliseconds(50));
  }
}

}  // namespace clockcomm::web
