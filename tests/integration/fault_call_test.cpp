// Line and storage faults in a call over a real pty: whatever breaks, once the fault clears every
// punch is in [Clock Data Table] exactly once, and the fault was reported.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "integration/call_fixture.h"
#include "test_support/child_process.h"
#include "test_support/run_clockcomm.h"

namespace clockcomm::test {
namespace {

using sim::CallOutcome;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Set in the copy of the test process that runs in its own mount namespace: the tmpfs.
constexpr const char* kTmpfsVariable = "CLOCKCOMM_TEST_TMPFS";

class FaultCallTest : public CallFixture {
 protected:
  // A lost ACK must be waited out before the program's 3 s packet time-out.
  static sim::TerminalConfig Terminal(sim::TerminalFaults faults = {}) {
    return {.faults = faults, .timeouts = {.ack_wait = 500ms}};
  }
};

// The program cannot tell a batch or packet sent again from a new one: the content keys keep it
// out, and the screen and the event log say how many were already there.
TEST_F(FaultCallTest, ABatchOrPacketSentAgainGoesInOnceAndIsReported) {
  struct Case {
    const char* name;
    sim::TerminalFaults fault;
    CallOutcome first_call;
    std::string report;  // "<n> of <m>" punches were already in the database
  };
  const Case cases[] = {
      {"missed EOT", {.miss_eot = true}, CallOutcome::kNoEot, "5 of 5"},
      {"lost ACK", {.lose_ack = 3}, CallOutcome::kCompleted, "1 of 6"},
      {"stray NAK", {.stray_nak = 3}, CallOutcome::kCompleted, "1 of 6"},
  };
  int case_number = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int first = 100 * ++case_number;  // each case's own punches
    sim::ZonTerminal terminal(Terminal(c.fault), Punches(5, first));
    EXPECT_EQ(HostOnce(terminal), c.first_call) << screen_.All();
    ExpectEachPunchOnce(5, first);
    if (c.first_call != CallOutcome::kCompleted) {
      EXPECT_EQ(terminal.PendingPunches().size(), 5u);
      EXPECT_EQ(HostOnce(terminal), CallOutcome::kCompleted) << screen_.All();
      ExpectEachPunchOnce(5, first);
    }
    EXPECT_TRUE(terminal.PendingPunches().empty());
    EXPECT_EQ(terminal.Stats().resends, c.first_call == CallOutcome::kCompleted ? 1 : 0);
    EXPECT_TRUE(screen_.Contains(c.report + " punches were already in the database"))
        << screen_.All();
    EXPECT_EQ(Events("Punches already present"), case_number);
  }
  EXPECT_EQ(Rows(), 15);
}

// The terminal is told (the punches are durable in the call file) but the rows cannot go in: the
// file waits with its reason until the database is usable again, then goes in once.
TEST_F(FaultCallTest, ALockedOrDamagedCompanyDatabaseKeepsTheCallPendingUntilItIsFixed) {
  const fs::path company = paths_->CompanyDatabase("demo");
  const fs::path good_copy = home_ / "COMPANY.good";
  std::unique_ptr<db::Database> blocker;
  struct Case {
    const char* name;
    std::function<void()> fault, fix;
    const char* reason;
    bool by_command;  // delivered by `transfer --pending`, else by the next call's sweep
  };
  const Case cases[] = {
      {"locked",
       [&] {
         blocker = db::Open(company);
         blocker->Execute("BEGIN EXCLUSIVE");
       },
       [&] { blocker.reset(); }, "is locked by another user", false},
      {"damaged",
       [&] {
         company_db_.reset();  // the last connection: the database is whole in its main file
         fs::copy_file(company, good_copy, fs::copy_options::overwrite_existing);
         std::ofstream(company, std::ios::binary | std::ios::trunc) << std::string(8192, 'x');
       },
       [&] {
         fs::copy_file(good_copy, company, fs::copy_options::overwrite_existing);
         company_db_ = db::Open(company);
       },
       "is damaged", true},
  };
  int case_number = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int first = 100 * ++case_number;
    sim::ZonTerminal terminal(Terminal(), Punches(5, first));
    c.fault();
    bool ok = true;
    EXPECT_EQ(HostOnce(terminal, &ok), CallOutcome::kCompleted) << screen_.All();
    EXPECT_FALSE(ok) << "the call's punches wait";
    EXPECT_TRUE(terminal.PendingPunches().empty());
    EXPECT_TRUE(screen_.Contains(c.reason)) << screen_.All();
    const CommandResult waiting = RunClockcomm(home_, "pending");
    EXPECT_NE(waiting.out.find(std::string("pending\tclock DEMODATA: Company database ") +
                               company.string() + " " + c.reason),
              std::string::npos)
        << waiting.out;

    c.fix();
    if (c.by_command) {
      const CommandResult moved = RunClockcomm(home_, "transfer --pending");
      EXPECT_EQ(moved.exit_code, 0) << moved.out << moved.err;
      EXPECT_NE(moved.out.find("1 pending file(s) delivered, 5 row(s) went in"), std::string::npos)
          << moved.out;
    } else {
      sim::ZonTerminal next(Terminal(), Punches(2, first + 50));
      EXPECT_TRUE(HostOnce(next, &ok) == CallOutcome::kCompleted && ok) << screen_.All();
      EXPECT_TRUE(screen_.Contains("Recovered 1 call file(s): 5 row(s) went in"));
      ExpectEachPunchOnce(2, first + 50);
    }
    ExpectEachPunchOnce(5, first);
    EXPECT_NE(RunClockcomm(home_, "pending").out.find("Nothing waits."), std::string::npos);
  }
}

// A TCLOG.db locked for the whole call, or that cannot be opened at the start: the call runs as
// usual, each lost event goes to the debug log, and stderr says it once per outage.
TEST_F(FaultCallTest, AnUnavailableEventLogNeverEndsACall) {
  const fs::path event_log = paths_->EventLogDatabase();
  std::unique_ptr<db::Database> blocker;
  struct Case {
    const char* name;
    std::function<void()> fault;
  };
  const Case cases[] = {
      {"locked",
       [&] {
         blocker = db::Open(event_log);
         blocker->Execute("BEGIN EXCLUSIVE");
       }},
      {"cannot be opened",
       [&] {
         blocker.reset();
         for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(event_log.string() + suffix);
         fs::create_directory(event_log);
         Wire();  // the program starting with it
       }},
  };
  int case_number = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int first = 100 * ++case_number;
    sim::ZonTerminal terminal(Terminal(), Punches(4, first));
    testing::internal::CaptureStderr();
    c.fault();
    bool ok = false;
    EXPECT_EQ(HostOnce(terminal, &ok), CallOutcome::kCompleted) << screen_.All();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(ok);
    ExpectEachPunchOnce(4, first);
    EXPECT_TRUE(err.find("Event log unavailable: " + event_log.string()) != std::string::npos ||
                err.find(shell::kEventLogUnavailable) != std::string::npos)
        << err;
    const std::string debug_log = core::ReadWholeFile(
        paths_->DebugLogDirectory() /
        ("Debug Log - " + clock_.Now().GetDate().Format("yyyy-mm-dd") + ".log"));
    size_t lost_ends = 0;
    const std::string lost_end = "Event not written: End of call - DEMODATA";
    for (size_t at = debug_log.find(lost_end); at != std::string::npos;
         at = debug_log.find(lost_end, at + 1)) {
      ++lost_ends;
    }
    EXPECT_EQ(lost_ends, static_cast<size_t>(case_number)) << debug_log;
  }
}

// What fills the folder: writes until the file system refuses, then keeps the file open.
void FillFileSystem(const fs::path& file) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0);
  const std::string chunk(64 * 1024, 'f');
  for (size_t size = chunk.size(); size > 0; size /= 2) {
    while (::write(fd, chunk.data(), size) > 0) {
    }
  }
  EXPECT_EQ(errno, ENOSPC);
  ::close(fd);
}

// Runs this test again in a process of its own mount namespace, with TMPDIR (and so the program
// folder) on a small tmpfs that the test can fill.
void RunOnASmallTmpfs() {
  TempDir mount_point;
  if (std::system("unshare -m true >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "no private mount namespace here (unshare -m needs CAP_SYS_ADMIN)";
  }
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  Child run({"unshare", "-m", "sh", "-c",
             "mount -t tmpfs -o size=8m clockcomm-test \"$0\" || exit 77; export " +
                 std::string(kTmpfsVariable) +
                 "=\"$0\" TMPDIR=\"$0\"; exec \"$1\" --gtest_filter=\"$2\"",
             mount_point.path().string(), fs::read_symlink("/proc/self/exe").string(),
             std::string(test->test_suite_name()) + "." + test->name()});
  if (!run.Drain(Steady::now() + 300s)) run.Signal(SIGKILL);
  const int status = run.Wait();
  const std::string output = run.Tail(SIZE_MAX);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
    GTEST_SKIP() << "tmpfs cannot be mounted here: " << output;
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;
  EXPECT_NE(output.find("[  PASSED  ] 1 test"), std::string::npos) << output;
}

// The disk fills up during an upload: the packet not written is not acknowledged, the terminal
// keeps every punch, and once space is freed the next call delivers them all.
TEST_F(FaultCallTest, AFullDiskIsNeverAcknowledgedAndTheNextCallDeliversEverything) {
  if (std::getenv(kTmpfsVariable) == nullptr) return RunOnASmallTmpfs();
  ASSERT_EQ(home_.string().rfind(std::getenv(kTmpfsVariable), 0), 0u);

  // Paced, so that the disk is full long before the last punch (a page of the call file holds
  // about a hundred).
  sim::TerminalConfig config = Terminal();
  config.pace = comm::LineSettings::Parse("38400,N,8,1");
  sim::ZonTerminal terminal(config, Punches(200));
  const fs::path filler = paths_->DataDirectory() / "filler";
  std::thread fill([&] {
    EXPECT_TRUE(screen_.WaitFor("Uploading Packets"));
    FillFileSystem(filler);
  });
  testing::internal::CaptureStderr();
  bool ok = true;
  EXPECT_NE(HostOnce(terminal, &ok), CallOutcome::kCompleted);
  fill.join();
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_FALSE(ok);
  EXPECT_LT(terminal.Stats().acks_received, 201);
  EXPECT_EQ(terminal.Stats().eots_received, 0);
  EXPECT_EQ(terminal.PendingPunches().size(), 200u);
  EXPECT_TRUE(screen_.Contains("Couldn't store a packet; the terminal keeps its punches"));
  EXPECT_NE(err.find("Couldn't write the call's file"), std::string::npos) << err;
  EXPECT_NE(err.find("No space left on device"), std::string::npos) << err;
  EXPECT_EQ(Rows(), 0);

  fs::remove(filler);
  EXPECT_EQ(HostOnce(terminal, &ok), CallOutcome::kCompleted) << screen_.All();
  EXPECT_TRUE(ok);
  EXPECT_TRUE(terminal.PendingPunches().empty());
  ExpectEachPunchOnce(200);
}

}  // namespace
}  // namespace clockcomm::test
