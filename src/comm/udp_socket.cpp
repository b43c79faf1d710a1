#include "comm/udp_socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "comm/fd_io.h"
#include "core/errors.h"

namespace clockcomm::comm {

bool UdpPeer::operator==(const UdpPeer& other) const {
  return length == other.length && std::memcmp(&address, &other.address, length) == 0;
}

std::string UdpPeer::Describe() const {
  char host[NI_MAXHOST] = "?";
  char serv[NI_MAXSERV] = "?";
  ::getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host, sizeof host, serv,
                sizeof serv, NI_NUMERICHOST | NI_NUMERICSERV);
  return std::string(host) + ":" + serv;
}

UdpSocket::UdpSocket(int fd, std::string description)
    : fd_(fd), description_(std::move(description)) {
  // Room for a burst of datagrams (a bulk read answers in hundreds of them); the system caps it.
  const int bytes = 4 << 20;
  ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
  sockaddr_storage local{};
  socklen_t len = sizeof local;
  ::getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &len);
  port_ = ntohs(local.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&local)->sin6_port
                                            : reinterpret_cast<sockaddr_in*>(&local)->sin_port);
}

UdpSocket UdpSocket::Bind(const std::string& address, uint16_t port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1) {
    throw core::ArgumentException("Not an IPv4 address: \"" + address + "\".", "address");
  }
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) throw core::SystemError::FromErrno(errno, "socket");
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    const int error = errno;
    ::close(fd);
    throw core::SystemError::FromErrno(error, "bind UDP " + address + ":" + std::to_string(port));
  }
  return UdpSocket(fd, "udp " + address + ":" + std::to_string(port));
}

UdpSocket UdpSocket::Connect(const std::string& host, uint16_t port) {
  const std::string where = host + ":" + std::to_string(port);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  const int rc = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (rc != 0) {
    throw core::SystemError(rc, "cannot resolve " + where + ": " + ::gai_strerror(rc));
  }
  std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> guard(found, &::freeaddrinfo);
  const int fd = ::socket(found->ai_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) throw core::SystemError::FromErrno(errno, "socket");
  if (::connect(fd, found->ai_addr, found->ai_addrlen) < 0) {
    const int error = errno;
    ::close(fd);
    throw core::SystemError::FromErrno(error, "connect UDP to " + where);
  }
  return UdpSocket(fd, "udp " + where);
}

UdpSocket::UdpSocket(UdpSocket&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      port_(other.port_),
      description_(std::move(other.description_)) {}

UdpSocket& UdpSocket::operator=(UdpSocket&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = std::exchange(other.fd_, -1);
    port_ = other.port_;
    description_ = std::move(other.description_);
  }
  return *this;
}

UdpSocket::~UdpSocket() {
  if (fd_ >= 0) ::close(fd_);
}

namespace {

void CheckSent(ssize_t sent, const std::string& what) {
  if (sent >= 0) return;
  if (errno == ECONNREFUSED) throw ConnectionClosedError(what + ": nobody listens there");
  throw core::SystemError::FromErrno(errno, "send on " + what);
}

}  // namespace

void UdpSocket::Send(std::string_view datagram) {
  ssize_t sent;
  do {
    sent = ::send(fd_, datagram.data(), datagram.size(), MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  CheckSent(sent, description_);
}

void UdpSocket::SendTo(std::string_view datagram, const UdpPeer& to) {
  ssize_t sent;
  do {
    sent = ::sendto(fd_, datagram.data(), datagram.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&to.address), to.length);
  } while (sent < 0 && errno == EINTR);
  CheckSent(sent, description_);
}

std::optional<Datagram> UdpSocket::Receive(SteadyTime deadline, const WakeSet& wake,
                                           size_t max_bytes) {
  std::string buffer(max_bytes, '\0');
  for (;;) {
    Datagram datagram;
    datagram.from.length = sizeof datagram.from.address;
    const ssize_t n =
        ::recvfrom(fd_, buffer.data(), buffer.size(), MSG_TRUNC,
                   reinterpret_cast<sockaddr*>(&datagram.from.address), &datagram.from.length);
    if (n >= 0) {
      buffer.resize(std::min(static_cast<size_t>(n), max_bytes));
      datagram.bytes = std::move(buffer);
      return datagram;
    }
    if (errno == EINTR) continue;
    // A connected socket hears an earlier datagram's refusal here: the peer is not listening.
    if (errno == ECONNREFUSED) throw ConnectionClosedError(description_ + ": nobody listens there");
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      throw core::SystemError::FromErrno(errno, "receive on " + description_);
    }
    if (fd_io::WaitReadable(fd_, deadline, wake) != WaitResult::kReadable) return std::nullopt;
  }
}

}  // namespace clockcomm::comm
