// The few descriptor operations every connection shares: read what is there, write all of it,
// and sleep in poll() until input, a deadline or a wake signal.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "comm/connection.h"

namespace clockcomm::comm::fd_io {

struct ReadOutcome {
  std::string text;
  bool hung_up = false;  // end of file, EIO on a pty whose other end closed, a reset socket
};

// Reads without blocking until the descriptor is empty or max_bytes were read. A terminal in raw
// mode answers "nothing there" with 0 rather than EAGAIN, so zero_is_eof is false for ttys; their
// hang-up shows as EIO. A tty's short read ends the reading: more arriving later is for the next
// wait.
ReadOutcome ReadAvailable(int fd, size_t max_bytes, const std::string& what,
                          bool zero_is_eof = true);

// Writes all bytes to a non-blocking descriptor, sleeping in poll() while it is full. Throws
// core::TimeoutException when no progress is possible before the time-out. A socket closed by its
// peer raises ConnectionClosedError, never SIGPIPE.
void WriteAll(int fd, std::string_view text, std::chrono::milliseconds timeout,
              const std::string& what, bool socket = false);

bool IsSocket(int fd);

// Sleeps until fd is readable (or hung up), the deadline passes, or a wake signal is raised.
WaitResult WaitReadable(int fd, SteadyTime deadline, const WakeSet& wake);

// poll() counts real time, so the waits here read the real steady clock. That is the steady time
// of core::SystemClock, the clock that goes with a real line: a deadline its callers computed from
// the injected clock means the same instant here.

// Milliseconds for poll(): -1 for no deadline, rounded up so that a wake-up is never early.
int PollTimeoutMs(SteadyTime deadline);
// A deadline the given time from now, for waits that only the kernel measures (a connect).
SteadyTime DeadlineAfter(std::chrono::milliseconds timeout);

void SetNonBlocking(int fd, const std::string& what);

}  // namespace clockcomm::comm::fd_io
