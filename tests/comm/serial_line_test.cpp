#include "comm/serial_line.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>

#include "comm/line_settings.h"
#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "core/durable_file.h"
#include "core/errors.h"
#include "test_support/temp_dir.h"

namespace clockcomm::comm {
namespace {

using namespace std::chrono_literals;

TEST(LineSettings, ParsesTheSettingsStrings) {
  struct Row {
    const char* text;
    int baud;
    char parity;
    int data_bits;
    int stop_bits;
  };
  for (const Row& row : {Row{"9600,N,8,1", 9600, 'N', 8, 1}, Row{"9600,O,7,2", 9600, 'O', 7, 2},
                         Row{"1200,N,8,1", 1200, 'N', 8, 1}, Row{"300,e,7,1", 300, 'E', 7, 1},
                         Row{" 19200 , N , 8 , 1 ", 19200, 'N', 8, 1}}) {
    SCOPED_TRACE(row.text);
    LineSettings s = LineSettings::Parse(row.text);
    EXPECT_EQ(s.baud, row.baud);
    EXPECT_EQ(s.parity, row.parity);
    EXPECT_EQ(s.data_bits, row.data_bits);
    EXPECT_EQ(s.stop_bits, row.stop_bits);
  }
  EXPECT_EQ(LineSettings::Parse("9600,O,7,2").ToString(), "9600,O,7,2");
}

TEST(LineSettings, RefusesMalformedStrings) {
  for (const char* bad :
       {"", "9600", "9600,N,8", "9600,N,8,1,1", "9601,N,8,1", "fast,N,8,1", "9600,X,8,1",
        "9600,NN,8,1", "9600,N,9,1", "9600,N,4,1", "9600,N,8,3", "9600,N,8,1.5"}) {
    SCOPED_TRACE(bad);
    try {
      LineSettings::Parse(bad);
      ADD_FAILURE() << "accepted";
    } catch (const core::ArgumentException& e) {
      EXPECT_EQ(e.ParamName(), "Settings");
    }
  }
}

TEST(LineSettings, TransmitTimeFollowsTheRate) {
  // 10 bits a byte at 9600 baud: 960 bytes a second.
  EXPECT_EQ(LineSettings::Parse("9600,N,8,1").TransmitTime(960), 1000ms);
  // 7 data bits, parity and 2 stop bits make 11 bits; 300 baud carries 30 such bytes in 1.1 s.
  EXPECT_EQ(LineSettings::Parse("300,O,7,2").TransmitTime(30), 1100ms);
}

class SerialLineOverPty : public ::testing::Test {
 protected:
  void SetUp() override {
    line_.SetSettings("9600,N,8,1");
    line_.Open(pty_.SlavePath());
    far_ = pty_.TakeMaster();
  }

  // Reads from the far end until n bytes came or a second passed.
  std::string ReadFar(size_t n) {
    std::string got;
    auto deadline = std::chrono::steady_clock::now() + 1s;
    while (got.size() < n && far_->WaitForInput(deadline, {}) == WaitResult::kReadable) {
      got += far_->Read();
    }
    return got;
  }

  PtyPair pty_ = PtyPair::Open();
  SerialLine line_;
  std::unique_ptr<FdConnection> far_;
};

TEST_F(SerialLineOverPty, CarriesEveryByteValueBothWays) {
  std::string all;
  for (int c = 0; c < 256; ++c) all.push_back(static_cast<char>(c));
  SerialConnection conn(line_);
  conn.WriteText(all);
  conn.WaitUntilSent();
  EXPECT_EQ(ReadFar(all.size()), all);

  far_->WriteText(all);
  std::string got;
  while (got.size() < all.size() &&
         conn.WaitForInput(std::chrono::steady_clock::now() + 1s, {}) == WaitResult::kReadable) {
    got += conn.Read();
  }
  EXPECT_EQ(got, all);
  EXPECT_EQ(conn.Read(), "");  // nothing more: an empty read, not a block
}

TEST_F(SerialLineOverPty, SettingsApplyWhileOpenAndBadOnesKeepTheOld) {
  line_.SetSettings("1200,O,7,2");
  EXPECT_EQ(line_.Settings().ToString(), "1200,O,7,2");
  EXPECT_THROW(line_.SetSettings("1200,Q,7,2"), core::ArgumentException);
  EXPECT_EQ(line_.Settings().ToString(), "1200,O,7,2");
  far_->WriteText("ok\r\n");
  ASSERT_EQ(line_.WaitForInput(std::chrono::steady_clock::now() + 1s, {}), WaitResult::kReadable);
  EXPECT_EQ(line_.Read(), "ok\r\n");
}

TEST_F(SerialLineOverPty, PtyHasNoModemLinesButReportsCarrierWhileTheFarEndIsOpen) {
  EXPECT_FALSE(line_.SetDtr(true));
  EXPECT_FALSE(line_.SetDtr(false));
  EXPECT_TRUE(line_.CarrierDetect());
  far_.reset();
  pty_.ReleaseSlave();
  EXPECT_FALSE(line_.CarrierDetect());
}

TEST_F(SerialLineOverPty, FarEndHangUpIsAnErrorNotSilence) {
  far_->WriteText("last");
  ASSERT_EQ(line_.WaitForInput(std::chrono::steady_clock::now() + 1s, {}), WaitResult::kReadable);
  far_.reset();
  // What came before the hang-up may or may not survive it on a pty; the hang-up itself must show.
  auto deadline = std::chrono::steady_clock::now() + 1s;
  bool raised = false;
  for (int i = 0; i < 3 && !raised; ++i) {
    try {
      line_.Read();
    } catch (const ConnectionClosedError&) {
      raised = true;
    }
  }
  EXPECT_TRUE(raised);
  // The wait must not block (or spin silently) on a dead line.
  EXPECT_EQ(line_.WaitForInput(deadline, {}), WaitResult::kReadable);
  EXPECT_THROW(line_.Read(), ConnectionClosedError);
}

TEST(SerialLine, ClosedLineRaisesOnEveryOperation) {
  SerialLine line;
  SerialConnection conn(line);
  EXPECT_THROW(conn.Read(), ConnectionClosedError);
  EXPECT_THROW(conn.WriteText("x"), ConnectionClosedError);
  EXPECT_THROW(conn.WaitForInput(kNoDeadline, {}), ConnectionClosedError);
  EXPECT_THROW(line.SetDtr(true), ConnectionClosedError);

  PtyPair pty = PtyPair::Open();
  line.Open(pty.SlavePath());
  EXPECT_EQ(conn.Read(), "");
  line.Close();
  EXPECT_THROW(conn.Read(), ConnectionClosedError);
}

TEST(SerialLine, OpeningAMissingDeviceNamesIt) {
  SerialLine line;
  try {
    line.Open("/dev/clockcomm-no-such-port");
    FAIL() << "opened";
  } catch (const core::SystemError& e) {
    EXPECT_NE(std::string(e.what()).find("/dev/clockcomm-no-such-port"), std::string::npos);
  }
  EXPECT_FALSE(line.IsOpen());
}

std::string PidText(pid_t pid) {
  std::string digits = std::to_string(pid);
  return std::string(10 - digits.size(), ' ') + digits + "\n";
}

bool Exclusive(int fd) {
  int flag = 0;
  return ::ioctl(fd, TIOCGEXCL, &flag) == 0 && flag != 0;
}

TEST(SerialLineLocking, ASecondOpenOfThePortIsRefusedUntilTheFirstCloses) {
  test::TempDir dir;
  // With a lock folder the refusal names this process from the lock file; without one only the
  // descriptor lock is there and the holder is unknown.
  for (bool with_lock_files : {true, false}) {
    SCOPED_TRACE(with_lock_files ? "lock files" : "no lock folder");
    const std::filesystem::path lock_dir = with_lock_files ? dir.path() : dir.path() / "none";
    PtyPair pty = PtyPair::Open();
    const std::filesystem::path lock_file =
        lock_dir / ("LCK.." + std::filesystem::path(pty.SlavePath()).filename().string());
    SerialLine first(lock_dir);
    SerialLine second(lock_dir);
    first.Open(pty.SlavePath());
    EXPECT_TRUE(Exclusive(first.Fd()));
    if (with_lock_files) {
      EXPECT_EQ(first.LockFile(), lock_file);
      EXPECT_EQ(core::ReadWholeFile(lock_file), PidText(::getpid()));
    } else {
      EXPECT_TRUE(first.LockFile().empty());
    }
    try {
      second.Open(pty.SlavePath());
      ADD_FAILURE() << "opened twice";
    } catch (const PortBusyError& e) {
      const std::string message = e.what();
      EXPECT_NE(message.find("The port " + pty.SlavePath() + " is in use by "), std::string::npos)
          << message;
      if (with_lock_files) {
        EXPECT_EQ(e.Holder(), ::getpid());
        EXPECT_NE(message.find("this process (" + std::to_string(::getpid()) + ") (lock file " +
                               lock_file.string() + ")"),
                  std::string::npos)
            << message;
      } else {
        EXPECT_EQ(e.Holder(), std::nullopt);
      }
    }
    EXPECT_FALSE(second.IsOpen());
    EXPECT_TRUE(first.IsOpen());
    // The refused line must not have taken the first line's lock file with it.
    EXPECT_EQ(std::filesystem::exists(lock_file), with_lock_files);

    first.Close();
    EXPECT_FALSE(std::filesystem::exists(lock_file));
    {  // the tty stays open through the pair; the exclusive flag must not outlive the line
      int probe = ::open(pty.SlavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
      ASSERT_GE(probe, 0);
      EXPECT_FALSE(Exclusive(probe));
      ::close(probe);
    }
    second.Open(pty.SlavePath());
    EXPECT_TRUE(second.IsOpen());
  }
}

pid_t DeadPid() {
  pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

TEST(SerialLineLocking, LockFilesOfDeadProcessesAreTakenOverOthersRefuse) {
  struct Row {
    const char* legend;
    std::string content;
    bool opens;
    std::optional<pid_t> holder;
  };
  const Row rows[] = {
      {"dead process", PidText(DeadPid()), true, std::nullopt},
      {"left by an earlier run under this PID", PidText(::getpid()), true, std::nullopt},
      {"live process (init)", PidText(1), false, 1},
      {"unpadded live PID", "1\n", false, 1},
      {"no PID in it", "garbage\n", false, std::nullopt},
      {"empty", "", false, std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.legend);
    test::TempDir dir;
    PtyPair pty = PtyPair::Open();
    const std::filesystem::path lock_file =
        dir.path() / ("LCK.." + std::filesystem::path(pty.SlavePath()).filename().string());
    std::ofstream(lock_file) << row.content;
    SerialLine line(dir.path());
    if (row.opens) {
      line.Open(pty.SlavePath());
      EXPECT_EQ(core::ReadWholeFile(lock_file), PidText(::getpid()));
      line.Close();
      EXPECT_FALSE(std::filesystem::exists(lock_file));
      continue;
    }
    try {
      line.Open(pty.SlavePath());
      ADD_FAILURE() << "opened a port whose lock file is held";
    } catch (const PortBusyError& e) {
      const std::string message = e.what();
      EXPECT_EQ(e.Holder(), row.holder);
      EXPECT_NE(message.find(pty.SlavePath()), std::string::npos) << message;
      EXPECT_NE(message.find(lock_file.string()), std::string::npos) << message;
      EXPECT_NE(message.find(std::strerror(EBUSY)), std::string::npos) << message;
      if (row.holder) {
        EXPECT_NE(message.find("process " + std::to_string(*row.holder)), std::string::npos);
      }
    }
    EXPECT_FALSE(line.IsOpen());
    EXPECT_EQ(core::ReadWholeFile(lock_file), row.content);  // someone else's file is left alone
    // The port itself was released: a line without lock files opens it.
    SerialLine unlocked(dir.path() / "none");
    EXPECT_NO_THROW(unlocked.Open(pty.SlavePath()));
  }
}

// A process that dies between making its lock file and writing its PID must not leave a lock
// file without a PID, which would refuse the port to every later start. The file size limit
// makes the first byte written to a file end the child with SIGXFSZ, right in that gap.
TEST(SerialLineLocking, AProcessKilledWhileTakingTheLockLeavesNoLockFileBehind) {
  test::TempDir dir;
  PtyPair pty = PtyPair::Open();
  const std::filesystem::path lock_file =
      dir.path() / ("LCK.." + std::filesystem::path(pty.SlavePath()).filename().string());
  const pid_t child = ::fork();
  if (child == 0) {
    const rlimit no_file_growth{0, 0};
    ::setrlimit(RLIMIT_FSIZE, &no_file_growth);
    ::signal(SIGXFSZ, SIG_DFL);
    SerialLine line(dir.path());
    line.Open(pty.SlavePath());
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << "status " << status;
  EXPECT_FALSE(std::filesystem::exists(lock_file));
  SerialLine line(dir.path());
  ASSERT_NO_THROW(line.Open(pty.SlavePath()));
  EXPECT_EQ(core::ReadWholeFile(lock_file), PidText(::getpid()));
  line.Close();
  // What is left is the dead process's own file, never a lock.
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    EXPECT_EQ(entry.path().filename().string(), "LTMP." + std::to_string(child));
  }
}

TEST_F(SerialLineOverPty, WaitEndsAtTheDeadlineNotBeforeOrAtOnceOnTheStopSignal) {
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(line_.WaitForInput(start + 50ms, {}), WaitResult::kTimedOut);
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, 50ms);
  EXPECT_LT(took, 1s);

  core::StopSignal stop;
  std::thread stopper([&] {
    std::this_thread::sleep_for(30ms);
    stop.Request();
  });
  start = std::chrono::steady_clock::now();
  EXPECT_EQ(line_.WaitForInput(start + 10s, {&stop}), WaitResult::kWoken);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
  stopper.join();
}

}  // namespace
}  // namespace clockcomm::comm
