// Runs work in a forked child and kills it with SIGKILL after a delay in microseconds, unless it
// ends first: a power cut at a chosen moment. Waits on a pidfd, never polling.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>

namespace clockcomm::test {

// The child's exit code is what work returns. Returns the status waitpid gives.
inline int RunChildKilledAfter(const std::function<int()>& work,
                               std::chrono::microseconds kill_after) {
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(work());
  const int exited = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  pollfd fd{exited, POLLIN, 0};
  const timespec wait{static_cast<time_t>(kill_after.count() / 1'000'000),
                      static_cast<long>(kill_after.count() % 1'000'000 * 1000)};
  if (::ppoll(&fd, 1, &wait, nullptr) == 0) ::kill(pid, SIGKILL);
  ::close(exited);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return status;
}

}  // namespace clockcomm::test
