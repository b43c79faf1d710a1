#include "comm/serial_line.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "comm/line_settings.h"
#include "comm/pty_pair.h"
#include "comm/serial_connection.h"
#include "core/durable_file.h"
#include "core/errors.h"
#include "test_support/temp_dir.h"

namespace clockcomm::comm {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Property;
using ::testing::Throws;
using ::testing::ThrowsMessage;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Each string as it reads back once parsed; a refusal names the Settings parameter.
TEST(LineSettings, ParsesTheSettingsStringOrRefusesIt) {
  const std::pair<const char*, const char*> rows[] = {
      {"9600,O,7,2", "9600,O,7,2"},
      {"300,e,7,1", "300,E,7,1"},
      {" 19200 , N , 8 , 1 ", "19200,N,8,1"},
  };
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(LineSettings::Parse(text).ToString(), expected);
  }
  for (const char* bad :
       {"", "9600", "9600,N,8", "9600,N,8,1,1", "9601,N,8,1", "fast,N,8,1", "9600,X,8,1",
        "9600,NN,8,1", "9600,N,9,1", "9600,N,4,1", "9600,N,8,3", "9600,N,8,1.5"}) {
    EXPECT_THAT(
        [&] { LineSettings::Parse(bad); },
        Throws<core::ArgumentException>(Property(&core::ArgumentException::ParamName, "Settings")))
        << bad;
  }
}

TEST(LineSettings, TransmitTimeCountsStartParityAndStopBits) {
  EXPECT_EQ(LineSettings::Parse("9600,N,8,1").TransmitTime(960), 1000ms);  // 10 bits a byte
  EXPECT_EQ(LineSettings::Parse("300,O,7,2").TransmitTime(30), 1100ms);    // 11 bits a byte
}

// Reads until n bytes came or a second passed.
std::string ReadAtLeast(IConnection& conn, size_t n) {
  std::string got;
  const auto deadline = std::chrono::steady_clock::now() + 1s;
  while (got.size() < n && conn.WaitForInput(deadline, {}) == WaitResult::kReadable) {
    got += conn.Read();
  }
  return got;
}

class SerialLineOverPty : public ::testing::Test {
 protected:
  void SetUp() override {
    line_.SetSettings("9600,N,8,1");
    line_.Open(pty_.SlavePath());
    far_ = pty_.TakeMaster();
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
  EXPECT_EQ(ReadAtLeast(*far_, all.size()), all);
  far_->WriteText(all);
  EXPECT_EQ(ReadAtLeast(conn, all.size()), all);
  EXPECT_EQ(conn.Read(), "");  // nothing more: an empty read, not a block
}

TEST_F(SerialLineOverPty, SettingsApplyWhileOpenAndBadOnesKeepTheOld) {
  line_.SetSettings("1200,O,7,2");
  EXPECT_THROW(line_.SetSettings("1200,Q,7,2"), core::ArgumentException);
  EXPECT_EQ(line_.Settings().ToString(), "1200,O,7,2");
  far_->WriteText("ok\r\n");
  SerialConnection conn(line_);
  EXPECT_EQ(ReadAtLeast(conn, 4), "ok\r\n");
}

TEST(SerialLine, AClosedLineRaisesOnEveryOperationAndAMissingDeviceIsNamed) {
  SerialLine line;
  SerialConnection conn(line);
  EXPECT_THROW(conn.Read(), ConnectionClosedError);
  EXPECT_THROW(conn.WriteText("x"), ConnectionClosedError);
  EXPECT_THROW(conn.WaitForInput(kNoDeadline, {}), ConnectionClosedError);
  EXPECT_THROW(line.SetDtr(true), ConnectionClosedError);
  EXPECT_THAT([&] { line.Open("/dev/clockcomm-no-such-port"); },
              ThrowsMessage<core::SystemError>(HasSubstr("/dev/clockcomm-no-such-port")));
  PtyPair pty = PtyPair::Open();
  line.Open(pty.SlavePath());
  EXPECT_EQ(conn.Read(), "");
  line.Close();
  EXPECT_THROW(conn.Read(), ConnectionClosedError);
}

std::string PidText(pid_t pid) {
  std::string digits = std::to_string(pid);
  return std::string(10 - digits.size(), ' ') + digits + "\n";
}

fs::path LockFileOf(const fs::path& dir, const PtyPair& pty) {
  return dir / ("LCK.." + fs::path(pty.SlavePath()).filename().string());
}

bool Exclusive(int fd) {
  int flag = 0;
  return ::ioctl(fd, TIOCGEXCL, &flag) == 0 && flag != 0;
}

// With a lock folder the refusal names this process from the lock file; without one only the
// descriptor lock is there and the holder is unknown.
TEST(SerialLineLocking, ASecondOpenOfThePortIsRefusedUntilTheFirstCloses) {
  test::TempDir dir;
  for (bool with_lock_files : {true, false}) {
    SCOPED_TRACE(with_lock_files ? "lock files" : "no lock folder");
    const fs::path lock_dir = with_lock_files ? dir.path() : dir.path() / "none";
    PtyPair pty = PtyPair::Open();
    const fs::path lock_file = LockFileOf(lock_dir, pty);
    SerialLine first(lock_dir);
    SerialLine second(lock_dir);
    first.Open(pty.SlavePath());
    EXPECT_TRUE(Exclusive(first.Fd()));
    EXPECT_EQ(first.LockFile(), with_lock_files ? lock_file : fs::path());
    if (with_lock_files) {
      EXPECT_EQ(core::ReadWholeFile(lock_file), PidText(::getpid()));
    }
    const std::string held_by = with_lock_files ? "this process (" + std::to_string(::getpid()) +
                                                      ") (lock file " + lock_file.string() + ")"
                                                : "";
    EXPECT_THAT([&] { second.Open(pty.SlavePath()); },
                Throws<PortBusyError>(AllOf(
                    Property(&PortBusyError::Holder,
                             with_lock_files ? std::optional<pid_t>(::getpid()) : std::nullopt),
                    Property(&PortBusyError::what, HasSubstr("The port " + pty.SlavePath() +
                                                             " is in use by " + held_by)))));
    EXPECT_FALSE(second.IsOpen());
    // The refused line must not have taken the first line's lock file with it.
    EXPECT_EQ(fs::exists(lock_file), with_lock_files);

    first.Close();
    EXPECT_FALSE(fs::exists(lock_file));
    // The tty stays open through the pair; the exclusive flag must not outlive the line.
    const int probe = ::open(pty.SlavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_FALSE(Exclusive(probe));
    ::close(probe);
    EXPECT_NO_THROW(second.Open(pty.SlavePath()));
  }
}

// The lock file of a process that is gone is taken over: the kill-and-restart test's, whose
// killed programs leave theirs.
TEST(SerialLineLocking, LockFilesOfLiveOrUnknownHoldersRefuseTheirOwnAreTakenOver) {
  struct Row {
    const char* legend;
    std::string content;
    bool opens;
    std::optional<pid_t> holder;
  };
  const Row rows[] = {
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
    const fs::path lock_file = LockFileOf(dir.path(), pty);
    std::ofstream(lock_file) << row.content;
    SerialLine line(dir.path());
    if (row.opens) {
      line.Open(pty.SlavePath());
      EXPECT_EQ(core::ReadWholeFile(lock_file), PidText(::getpid()));
      line.Close();
      EXPECT_FALSE(fs::exists(lock_file));
      continue;
    }
    try {
      line.Open(pty.SlavePath());
      ADD_FAILURE() << "opened a port whose lock file is held";
    } catch (const PortBusyError& e) {
      EXPECT_EQ(e.Holder(), row.holder);
      std::vector<std::string> parts = {pty.SlavePath(), lock_file.string(), std::strerror(EBUSY)};
      if (row.holder) parts.push_back("process " + std::to_string(*row.holder));
      for (const auto& part : parts) EXPECT_NE(std::string(e.what()).find(part), std::string::npos);
    }
    EXPECT_FALSE(line.IsOpen());
    EXPECT_EQ(core::ReadWholeFile(lock_file), row.content);  // someone else's file is left alone
    // The port itself was released: a line without lock files opens it.
    EXPECT_NO_THROW(SerialLine(dir.path() / "none").Open(pty.SlavePath()));
  }
}

// A process that dies between making its lock file and writing its PID must not leave a lock
// file without a PID, which would refuse the port to every later start. The file size limit
// makes the first byte written to a file end the child with SIGXFSZ, right in that gap.
TEST(SerialLineLocking, AProcessKilledWhileTakingTheLockLeavesNoLockFileBehind) {
  test::TempDir dir;
  PtyPair pty = PtyPair::Open();
  const pid_t child = ::fork();
  if (child == 0) {
    const rlimit no_file_growth{0, 0};
    ::setrlimit(RLIMIT_FSIZE, &no_file_growth);
    ::signal(SIGXFSZ, SIG_DFL);
    SerialLine(dir.path()).Open(pty.SlavePath());
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << "status " << status;
  EXPECT_FALSE(fs::exists(LockFileOf(dir.path(), pty)));
  SerialLine line(dir.path());
  ASSERT_NO_THROW(line.Open(pty.SlavePath()));
  line.Close();
  // What is left is the dead process's own file, never a lock.
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    EXPECT_TRUE(entry.path().filename().string().starts_with("LTMP." + std::to_string(child) + "."))
        << entry.path();
  }
}

}  // namespace
}  // namespace clockcomm::comm
