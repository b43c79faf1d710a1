// `auto` as systemd runs it (Type=notify), the test holding the service manager's socket: READY,
// the watchdog, SIGHUP read between calls, STOPPING and a clean exit on SIGTERM.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <future>
#include <mutex>
#include <thread>

#include "comm/pty_pair.h"
#include "core/stop_signal.h"
#include "db/open.h"
#include "sim/zon_terminal.h"
#include "test_support/child_process.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::test {
namespace {

// The service manager's end of NOTIFY_SOCKET. Read all the time by a thread of its own, as systemd
// reads it: a sender blocks once a datagram socket's queue is full.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path)
      : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("bind " + path);
    }
    reader_ = std::thread([this] {
      pollfd fds[2] = {{fd_, POLLIN, 0}, {stop_.WakeFd(), POLLIN, 0}};
      while (!stop_.Requested() && poll(fds, 2, -1) >= 0) {
        if ((fds[0].revents & POLLIN) == 0) continue;
        char buffer[4096];
        const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
        if (n <= 0) continue;
        std::lock_guard lock(mutex_);
        messages_.emplace_back(buffer, static_cast<size_t>(n));
        arrived_.notify_all();
      }
    });
  }
  ~NotifySocket() {
    stop_.Request();
    reader_.join();
    close(fd_);
  }

  // Waits for a message after the last one found that contains text.
  bool WaitFor(std::string_view text, Steady::time_point deadline) {
    std::unique_lock lock(mutex_);
    return arrived_.wait_until(lock, deadline, [&] {
      for (; seen_ < messages_.size(); ++seen_) {
        if (messages_[seen_].find(text) != std::string::npos) {
          ++seen_;
          return true;
        }
      }
      return false;
    });
  }
  std::string All() {
    std::lock_guard lock(mutex_);
    std::string all;
    for (const auto& m : messages_) all += "[" + m + "]";
    return all;
  }

 private:
  int fd_;
  core::StopSignal stop_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::string> messages_;
  size_t seen_ = 0;
  std::thread reader_;
};

std::string HourMinuteFromNow(int hours) {
  const std::time_t t = std::time(nullptr) + hours * 3600;
  std::tm local{};
  localtime_r(&t, &local);
  char text[6];
  std::strftime(text, sizeof text, "%H:%M", &local);
  return text;
}

std::vector<std::string> Punches(int first, int count) {
  std::vector<std::string> lines;
  for (int i = first; i < first + count; ++i) {
    const int hhmm = (6 + i / 60) * 100 + i % 60;
    lines.push_back(std::to_string(i) + ",12,,,,,I,091020," + std::to_string(hhmm) + ",,,,1");
  }
  return lines;
}

// Waiting for its begin time, auto pets the watchdog; a SIGHUP with no begin time starts the host.
// A SIGHUP mid-call lets the call finish with every punch, then the line opens anew.
TEST(ServiceTest, ReadyWatchdogReloadsBetweenCallsAndStop) {
  TempDir dir;
  const auto run = [&](const std::string& args) {
    return RunClockcomm(dir.path(), args).exit_code;
  };
  ASSERT_EQ(run("init"), 0);
  ASSERT_EQ(run("company add Acme --clock DEMODATA --dir acme"), 0);
  ASSERT_EQ(run("settings set auto_start_mode=2 connection_type=Serial begin_time=" +
                HourMinuteFromNow(2) + " end_time=" + HourMinuteFromNow(3)),
            0);
  auto pty = comm::PtyPair::Open();
  auto line = pty.TakeMaster();
  const std::string socket_path = (dir.path() / "notify").string();
  NotifySocket manager(socket_path);
  // A 0.4 s watchdog: the waits wake every 0.1 s to beat.
  setenv("NOTIFY_SOCKET", socket_path.c_str(), 1);
  setenv("WATCHDOG_USEC", "400000", 1);
  Child program({CLOCKCOMM_BINARY_DIR "/clockcomm", "--home", dir.path().string(), "auto", "--port",
                 pty.SlavePath()});
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
  const auto deadline = Steady::now() + std::chrono::seconds(30);
  ASSERT_TRUE(manager.WaitFor("READY=1\nSTATUS=Auto-start Host", deadline)) << manager.All();
  const auto waiting = Steady::now();
  for (int pet = 0; pet < 5; ++pet) {
    ASSERT_TRUE(manager.WaitFor("WATCHDOG=1", deadline)) << pet << manager.All();
  }
  EXPECT_LT(Steady::now() - waiting, std::chrono::seconds(3));

  ASSERT_EQ(run("settings set begin_time=NONE"), 0);
  program.Signal(SIGHUP);
  ASSERT_TRUE(manager.WaitFor("RELOADING=1", deadline)) << manager.All();
  ASSERT_TRUE(manager.WaitFor("READY=1", deadline)) << manager.All();
  // A hundred punches at 38400 baud: the upload takes most of a second.
  sim::ZonTerminal first({.pace = comm::LineSettings::Parse("38400,N,8,1")}, Punches(1, 100));
  auto call = std::async(std::launch::async, [&] { return first.CallIn(*line); });
  ASSERT_TRUE(Child::Pump({&program}, deadline, [&] {
    return program.Find("Uploading Packets").has_value();
  })) << program.Tail();
  program.Signal(SIGHUP);
  EXPECT_EQ(call.get(), sim::CallOutcome::kCompleted) << program.Tail();
  ASSERT_TRUE(manager.WaitFor("RELOADING=1", deadline)) << manager.All();
  // The port closed after the call and opened again.
  ASSERT_TRUE(Child::Pump({&program}, deadline, [&] {
    const auto closed = program.Find("Closing Port");
    return closed && program.Find("Waiting for next event", *closed).has_value();
  })) << program.Tail();
  sim::ZonTerminal second(sim::TerminalConfig{}, Punches(101, 2));
  EXPECT_EQ(second.CallIn(*line), sim::CallOutcome::kCompleted) << program.Tail();

  program.Signal(SIGTERM);
  EXPECT_TRUE(manager.WaitFor("STOPPING=1", deadline)) << manager.All();
  ASSERT_TRUE(program.Drain(deadline));
  const int status = program.Wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << program.Tail();
  auto db = db::Open(dir.path() / "data" / "acme" / "Company.db");
  EXPECT_EQ(db->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt(), 102);
  const auto log = RunClockcomm(dir.path(), "log show --from 2000-01-01 --to 2100-12-31");
  const auto first_reload = log.out.find("Settings read again");
  ASSERT_NE(first_reload, std::string::npos) << log.out;
  EXPECT_NE(log.out.find("Settings read again", first_reload + 1), std::string::npos) << log.out;
}

}  // namespace
}  // namespace clockcomm::test
