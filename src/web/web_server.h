// The console's HTTP server: binds an address, serves the API on a pool of threads until Stop.
// Stop may come from any thread (the signal watcher), before or while Run runs; Run's accept
// blocks, and Stop wakes it by closing the listening socket.
#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "web/api_routes.h"

namespace clockcomm::web {

// The console's port unless --listen says otherwise: free in IANA's list and easy to remember.
inline constexpr int kDefaultConsolePort = 8470;
inline constexpr const char* kDefaultConsoleHost = "127.0.0.1";
// How long a connection may stay silent before its request.
inline constexpr std::chrono::seconds kSilentClient{2};

// Threads that answer requests; a few of them may be held by live screens.
inline constexpr size_t kRequestThreads = 16;

struct ListenAddress {
  std::string host = kDefaultConsoleHost;
  int port = kDefaultConsolePort;
};
// "HOST:PORT", "HOST" or ":PORT" ("[::1]:8470" for IPv6); throws core::ArgumentException naming
// the text when it is none of these.
ListenAddress ParseListenAddress(const std::string& text);

class WebServer {
 public:
  explicit WebServer(ApiRoutes& routes);

  // Port 0 takes any free port. Throws core::InvalidOperationException naming the address.
  void Bind(const ListenAddress& address);
  int Port() const { return port_; }
  // Serves until Stop; returns at once when Stop came first.
  void Run();
  void Stop();

 private:
  httplib::Server server_;
  int port_ = 0;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool stopped_ = false;
  bool running_ = false;
};

}  // namespace clockcomm::web
