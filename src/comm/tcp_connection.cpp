#include "comm/tcp_connection.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "comm/fd_io.h"
#include "core/errors.h"

namespace clockcomm::comm {

namespace {

std::string EndpointText(const sockaddr* addr) {
  char host[NI_MAXHOST] = "?";
  char serv[NI_MAXSERV] = "?";
  socklen_t len = addr->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  ::getnameinfo(addr, len, host, sizeof host, serv, sizeof serv, NI_NUMERICHOST | NI_NUMERICSERV);
  return std::string(host) + ":" + serv;
}

void SetNoDelay(int fd) {
  int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);  // packets are small and paced
}

}  // namespace

std::unique_ptr<TcpConnection> TcpConnection::Connect(const std::string& host, uint16_t port,
                                                      std::chrono::milliseconds timeout,
                                                      const WakeSet& wake) {
  const std::string where = host + ":" + std::to_string(port);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int rc = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (rc != 0) {
    throw core::SystemError(rc, "cannot resolve " + where + ": " + ::gai_strerror(rc));
  }
  std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> guard(found, &::freeaddrinfo);

  const auto deadline = fd_io::DeadlineAfter(timeout);
  int last_error = ECONNREFUSED;
  for (addrinfo* ai = found; ai != nullptr; ai = ai->ai_next) {
    int fd =
        ::socket(ai->ai_family, ai->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, ai->ai_protocol);
    if (fd < 0) {
      last_error = errno;
      continue;
    }
    if (::connect(fd, ai->ai_addr, ai->ai_addrlen) == 0) {
      SetNoDelay(fd);
      return std::make_unique<TcpConnection>(fd, where);
    }
    if (errno != EINPROGRESS) {
      last_error = errno;
      ::close(fd);
      continue;
    }
    std::vector<pollfd> fds{{fd, POLLOUT, 0}};
    for (int w : wake.Fds()) fds.push_back({w, POLLIN, 0});
    int n;
    do {
      n = ::poll(fds.data(), fds.size(), fd_io::PollTimeoutMs(deadline));
    } while (n < 0 && errno == EINTR);
    if (n == 0) {
      ::close(fd);
      throw core::TimeoutException();
    }
    if (wake.AnyRequested()) {
      ::close(fd);
      throw ConnectionClosedError("Connecting to " + where + " was stopped.");
    }
    int error = 0;
    socklen_t len = sizeof error;
    ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len);
    if (error == 0) {
      SetNoDelay(fd);
      return std::make_unique<TcpConnection>(fd, where);
    }
    last_error = error;
    ::close(fd);
  }
  throw core::SystemError::FromErrno(last_error, "connect to " + where);
}

TcpListener::TcpListener(const std::string& address, uint16_t port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1) {
    throw core::ArgumentException("Not an IPv4 address: \"" + address + "\".", "address");
  }
  fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0) throw core::SystemError::FromErrno(errno, "socket");
  int one = 1;
  ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0 ||
      ::listen(fd_, SOMAXCONN) < 0) {
    int error = errno;
    ::close(fd_);
    fd_ = -1;
    throw core::SystemError::FromErrno(error, "listen on " + address + ":" + std::to_string(port));
  }
  socklen_t len = sizeof addr;
  ::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len);
  port_ = ntohs(addr.sin_port);
}

TcpListener::~TcpListener() {
  if (fd_ >= 0) ::close(fd_);
}

std::unique_ptr<TcpConnection> TcpListener::Accept(SteadyTime deadline, const WakeSet& wake) {
  for (;;) {
    sockaddr_storage peer{};
    socklen_t len = sizeof peer;
    int fd = ::accept4(fd_, reinterpret_cast<sockaddr*>(&peer), &len, SOCK_CLOEXEC);
    if (fd >= 0) {
      SetNoDelay(fd);
      return std::make_unique<TcpConnection>(fd, EndpointText(reinterpret_cast<sockaddr*>(&peer)));
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK)
      throw core::SystemError::FromErrno(errno, "accept");
    if (fd_io::WaitReadable(fd_, deadline, wake) != WaitResult::kReadable) return nullptr;
  }
}

}  // namespace clockcomm::comm
