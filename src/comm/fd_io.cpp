#include "comm/fd_io.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <vector>

#include "core/errors.h"
#include "core/heartbeat.h"

namespace clockcomm::comm::fd_io {

ReadOutcome ReadAvailable(int fd, size_t max_bytes, const std::string& what, bool zero_is_eof) {
  ReadOutcome outcome;
  char chunk[4096];
  while (outcome.text.size() < max_bytes) {
    size_t want = std::min(sizeof chunk, max_bytes - outcome.text.size());
    ssize_t n = ::read(fd, chunk, want);
    if (n > 0) {
      outcome.text.append(chunk, static_cast<size_t>(n));
      // A short read took all there was: asking again would only answer "nothing yet" (a hang-up
      // after the data shows at the next read).
      if (static_cast<size_t>(n) < want) break;
      continue;
    }
    if (n == 0) {
      outcome.hung_up = zero_is_eof;
      break;
    }
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) break;
    // A pty whose other end is closed answers EIO; a socket reset by the peer ECONNRESET.
    if (errno == EIO || errno == ECONNRESET) {
      outcome.hung_up = true;
      break;
    }
    throw core::SystemError::FromErrno(errno, "read from " + what);
  }
  return outcome;
}

SteadyTime DeadlineAfter(std::chrono::milliseconds timeout) {
  return std::chrono::steady_clock::now() + timeout;
}

int PollTimeoutMs(SteadyTime deadline) {
  if (deadline == kNoDeadline) return -1;
  auto now = std::chrono::steady_clock::now();
  if (deadline <= now) return 0;
  auto remaining = deadline - now;
  auto ms = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
  return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

WaitResult WaitReadable(int fd, SteadyTime deadline, const WakeSet& wake) {
  std::vector<int> wake_fds = wake.Fds();
  std::vector<pollfd> fds;
  fds.push_back({fd, POLLIN, 0});
  for (int w : wake_fds) fds.push_back({w, POLLIN, 0});
  // Under a watchdog the wait wakes every slice to beat for its loop.
  const auto slice = core::Heartbeat::WaitSlice();
  for (;;) {
    core::Heartbeat::BeatThisThread();
    if (wake.AnyRequested()) return WaitResult::kWoken;
    SteadyTime until = deadline;
    if (slice != std::chrono::nanoseconds::max() &&
        std::chrono::steady_clock::now() + slice < deadline) {
      until = std::chrono::steady_clock::now() + slice;
    }
    int timeout_ms = PollTimeoutMs(until);
    int n = ::poll(fds.data(), fds.size(), timeout_ms);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw core::SystemError::FromErrno(errno, "poll");
    }
    if (fds[0].revents != 0) return WaitResult::kReadable;
    for (size_t i = 1; i < fds.size(); ++i) {
      if (fds[i].revents != 0) return WaitResult::kWoken;
    }
    // poll rounds its time-out to whole milliseconds; go round again only if the deadline is
    // truly still ahead (the next poll then sleeps for the remainder).
    if (n == 0 && std::chrono::steady_clock::now() >= deadline) return WaitResult::kTimedOut;
  }
}

void WriteAll(int fd, std::string_view text, std::chrono::milliseconds timeout,
              const std::string& what, bool socket) {
  auto deadline = DeadlineAfter(timeout);
  while (!text.empty()) {
    const ssize_t n = socket ? ::send(fd, text.data(), text.size(), MSG_NOSIGNAL)
                             : ::write(fd, text.data(), text.size());
    if (n > 0) {
      text.remove_prefix(static_cast<size_t>(n));
      deadline = DeadlineAfter(timeout);  // progress restarts the wait
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      if (errno == EIO || errno == EPIPE || errno == ECONNRESET) {
        throw ConnectionClosedError("The other end of " + what + " is closed.");
      }
      throw core::SystemError::FromErrno(errno, "write to " + what);
    }
    pollfd p{fd, POLLOUT, 0};
    int ready = ::poll(&p, 1, PollTimeoutMs(deadline));
    if (ready < 0 && errno != EINTR) throw core::SystemError::FromErrno(errno, "poll");
    if (ready == 0) throw core::TimeoutException();
  }
}

bool IsSocket(int fd) {
  struct stat st {};
  return ::fstat(fd, &st) == 0 && S_ISSOCK(st.st_mode);
}

void SetNonBlocking(int fd, const std::string& what) {
  int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
    throw core::SystemError::FromErrno(errno, "fcntl on " + what);
  }
}

}  // namespace clockcomm::comm::fd_io
