// The T4 host over in-process terminals on threads of their own, in real time with short cycles:
// one terminal that never answers holds up nobody, its outage is logged once however often it is
// tried, the others' punches reach their companies' databases once, and the host follows its list.
#include "t4/host/t4_host.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <fstream>
#include <future>
#include <mutex>

#include "comm/fd_io.h"
#include "core/durable_file.h"
#include "core/text.h"
#include "fake_t4_device.h"
#include "records/tcd_archive.h"
#include "records/transfer_fixture.h"

namespace clockcomm::t4 {
namespace {

using namespace std::chrono_literals;

// The fake terminal, but its event pump sleeps until the deadline or a wake, as a real one does.
class BlockingFakeDevice : public test::FakeT4Device {
 public:
  using FakeT4Device::FakeT4Device;
  PumpResult PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) override {
    FakeT4Device::PumpEvents(deadline, wake);
    std::vector<pollfd> fds;
    for (int fd : wake.Fds()) fds.push_back({fd, POLLIN, 0});
    ::poll(fds.data(), fds.size(), comm::fd_io::PollTimeoutMs(deadline));
    return wake.AnyRequested() ? PumpResult::kWoken : PumpResult::kDeadline;
  }
};

// A log several stations write at once; a test waits on it for a line.
class SharedLog : public core::LogSink {
 public:
  void Event(std::string_view type, std::string_view text) override {
    Add(std::string(type) + ": " + std::string(text));
  }
  void Debug(std::string_view name, std::string_view text) override {
    Add(std::string(name) + " debug: " + std::string(text));
  }
  void Screen(std::string_view) override {}
  int Count(const std::string& text) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(lines_.begin(), lines_.end(), [&](const auto& line) {
      return line.find(text) != std::string::npos;
    }));
  }
  bool WaitFor(const std::string& text, int times = 1) {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, 20s, [&] {
      return std::count_if(lines_.begin(), lines_.end(), [&](const auto& line) {
               return line.find(text) != std::string::npos;
             }) >= times;
    });
  }

 private:
  void Add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
    cv_.notify_all();
  }
  mutable std::mutex mutex_;
  std::condition_variable cv_;
  std::vector<std::string> lines_;
};

AttTransaction Punch(int badge, int minute) {
  AttTransaction t;
  t.enroll_number = std::to_string(badge);
  const auto now = core::SystemClock().Now();
  t.year = now.GetDate().Year(), t.month = now.GetDate().Month(), t.day = now.GetDate().Day();
  t.hour = 7, t.minute = minute;
  return t;
}

// A site of two companies: Acme with the clock name "Front" (two terminals may share it) and
// Beta with "Back"; the T4 clock list in the product database.
class T4Site {
 public:
  T4Site() {
    db::Open(site.registry_path)
        ->Execute(
            "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
            "[Pay Period Type]) VALUES ('Beta', 'Back', 'beta', '2009-10-18', 'weekly')");
    std::filesystem::create_directory(site.dir.path() / "beta");
    db::CreateCompanySchema(*Beta());
    std::filesystem::create_directory(program);
    db::CreateProductSchema(*OpenProduct());
    companies.Initialize(site.registry_path);
  }
  std::unique_ptr<db::Database> OpenProduct() const {
    return db::Open(site.dir.path() / db::kProductDatabaseFile, db::OpenMode::kCreate);
  }
  std::unique_ptr<db::Database> Beta() const {
    return db::Open(site.dir.path() / "beta" / "Company.db", db::OpenMode::kCreate);
  }
  int64_t AddClock(const std::string& name, const std::string& address) {
    return T4ClockList(*OpenProduct()).Add({0, name, address, 1});
  }

  records::test_support::TransferFixture site;
  SharedLog log;
  core::SystemClock time;
  core::ManualClock device_time;  // the fakes' clock for slow calls; none is slow here
  records::CompanyFactory companies{log, site.dir.path()};
  std::filesystem::path program = site.dir.path() / "program";
};

// Today's daily file of Acme.
std::filesystem::path DailyFileOf(const T4Site& t4) {
  return t4.site.dir.path() / "acme" /
         records::DailyArchivePath("", t4.time.Now().GetDate()).filename();
}

TEST(T4HostTest, AnUnreachableTerminalHoldsUpNobodyAndTheHostFollowsItsList) {
  T4Site t4;
  std::ofstream(t4.program / "ClockAssignments.txt")
      << "Front, debuglog=true\nBack, debuglog=true\n";
  PunchTypeRules rules(t4.program, t4.log);
  ClockAssignments assignments(t4.program, t4.log);
  T4PacketWriter writer(t4.companies, rules, assignments, t4.program, t4.log, t4.time);
  const int64_t front = t4.AddClock("Front", "10.0.0.1");
  t4.AddClock("Gate", "10.0.0.3");
  t4.AddClock("Back", "10.0.0.2");
  // Each connection gets a terminal of its own holding that clock's punches; Gate never answers.
  auto connect = [&](const T4ClockEntry& e) -> std::unique_ptr<IT4Connection> {
    auto device = std::make_unique<BlockingFakeDevice>(t4.device_time);
    if (e.name == "Front") device->log = {Punch(101, 1), Punch(102, 2), Punch(101, 30)};
    if (e.name == "Back") device->log = {Punch(201, 5), Punch(202, 6)};
    if (e.name == "Gate") device->failures["Connect_Net"] = -1;
    return std::make_unique<T4EthernetConnection>(std::move(device), e.address, e.device_number,
                                                  e.name, t4.log);
  };
  T4StationSettings settings;
  settings.cycle_interval = 30ms;
  settings.first_retry = 10ms;
  settings.max_retry = 40ms;
  std::promise<int> moved;  // the polls of Front counted when its new station is made
  auto connect_and_note = [&](const T4ClockEntry& e) {
    if (e.address == "10.0.0.4") moved.set_value(t4.log.Count("Poll of Front ended"));
    return connect(e);
  };
  T4Host host([&] { return t4.OpenProduct(); }, connect_and_note, t4.companies, writer, assignments,
              settings, t4.time, t4.log);
  core::StopSignal stop;
  auto run = std::async(std::launch::async, [&] { host.Run(stop); });

  ASSERT_TRUE(t4.log.WaitFor("Front debug: Poll of Front ended"));
  ASSERT_TRUE(t4.log.WaitFor("Back debug: Poll of Back ended"));
  ASSERT_TRUE(t4.log.WaitFor("Gate debug: could not connect", 4)) << "tried again and again";
  // Front moves to another address: its station is replaced, and the terminal's punches, sent
  // again, are not stored twice.
  T4ClockList(*t4.OpenProduct()).Remove(front);
  t4.AddClock("Front", "10.0.0.4");
  auto polls_before = moved.get_future();
  ASSERT_EQ(polls_before.wait_for(20s), std::future_status::ready);
  ASSERT_TRUE(t4.log.WaitFor("Front debug: Poll of Front ended", polls_before.get() + 1));
  std::vector<std::string> names;
  for (const auto& status : host.Snapshot()) {
    names.push_back(status.name + (status.online ? "+" : "-"));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"Gate-", "Back+", "Front+"}));
  stop.Request();
  run.get();

  EXPECT_EQ(t4.log.Count("T4 Clock Offline: Gate"), 1);
  EXPECT_EQ(t4.site.RowCount(), 3);
  EXPECT_EQ(t4.Beta()->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt(), 2);
  EXPECT_EQ(host.PunchesStored(), 5);
}

// Tasks through one poll of every clock: a user reloaded from the terminal they enrolled on
// reaches the company's store and, queued by the host, the company's other terminal, not the
// other company's; a task the terminal fails waits for the next poll; tasks that can never be done
// leave the table with a reason.
TEST(T4HostTest, UserTasksMoveUsersThroughTheCompanysStore) {
  T4Site t4;
  std::ofstream(t4.program / "ClockAssignments.txt") << "Gate, templates=true\n";
  // Gate belongs to Acme too, its templates managed by hand.
  db::Open(t4.site.registry_path)
      ->Execute(
          "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
          "[Pay Period Type]) VALUES ('Acme East', 'Gate', 'acme', '2009-10-18', 'weekly')");
  t4.companies.Initialize(t4.site.registry_path);
  PunchTypeRules rules(t4.program, t4.log);
  ClockAssignments assignments(t4.program, t4.log);
  T4PacketWriter writer(t4.companies, rules, assignments, t4.program, t4.log, t4.time);

  const int64_t enrolled = t4.AddClock("Front", "10.0.0.1");
  const int64_t other = t4.AddClock("Front", "10.0.0.2");
  const int64_t beta = t4.AddClock("Back", "10.0.0.3");
  const int64_t gate = t4.AddClock("Gate", "10.0.0.4");
  std::map<std::string, std::shared_ptr<std::map<std::string, T4User>>> users;
  std::map<std::string, std::map<std::string, int>> failures;
  for (const char* address : {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"}) {
    users[address] = std::make_shared<std::map<std::string, T4User>>();
  }
  const T4User ann{"1042", "Ann", "", 0, true, {{0, 1, "QUJD"}, {6, 3, "REVG"}}};
  (*users["10.0.0.1"])["1042"] = ann;
  (*users["10.0.0.3"])["77"] = {"77", "Bo"};
  auto connect = [&](const T4ClockEntry& e) -> std::unique_ptr<IT4Connection> {
    auto device = std::make_unique<test::FakeT4Device>(t4.device_time);
    device->users = users[e.address];
    device->failures = failures[e.address];
    return std::make_unique<T4EthernetConnection>(std::move(device), e.address, e.device_number,
                                                  e.name, t4.log);
  };
  T4Host host([&] { return t4.OpenProduct(); }, connect, t4.companies, writer, assignments, {},
              t4.time, t4.log);
  {
    auto product = t4.OpenProduct();
    T4ClockList list(*product);
    list.AddTask({0, enrolled, kReloadUser, "1042"});
    list.AddTask({0, enrolled, kReloadUser, "5"});  // nobody enrolled as 5
    list.AddTask({0, beta, kAddUser, "1042"});      // Beta's store has no 1042
    list.AddTask({0, beta, kRemoveUser, "77"});
    list.AddTask({0, gate, kLoadAllUsers, ""});
  }
  failures["10.0.0.2"]["SetUser"] = -2;
  EXPECT_EQ(host.PollAll(), std::vector<std::string>{});
  auto waiting = [&](int64_t clock) {
    std::vector<std::string> out;
    for (const auto& t : T4ClockList(*t4.OpenProduct()).ReadTasks(clock)) {
      out.push_back(t.task + " " + t.user_id);
    }
    return out;
  };
  EXPECT_EQ(waiting(enrolled), std::vector<std::string>{});
  EXPECT_EQ(waiting(other), std::vector<std::string>{"Add User 1042"});
  EXPECT_EQ(waiting(beta), std::vector<std::string>{});
  EXPECT_EQ(waiting(gate), std::vector<std::string>{});
  EXPECT_EQ(t4.log.Count("task 2 \"Reload User\" for user 5 removed: the terminal has no such"), 1);
  EXPECT_EQ(t4.log.Count("company Beta has no such T4 user"), 1);
  EXPECT_EQ(t4.log.Count("template management is off"), 1);
  EXPECT_EQ(t4.log.Count("SetUser failed (Error in file read/write); it is tried again"), 1);
  EXPECT_TRUE(users["10.0.0.3"]->empty());
  EXPECT_TRUE(users["10.0.0.4"]->empty());

  failures.clear();
  EXPECT_EQ(host.PollAll(), std::vector<std::string>{});
  EXPECT_EQ(waiting(other), std::vector<std::string>{});
  EXPECT_EQ(users["10.0.0.2"]->at("1042"), ann);
  auto acme = db::Open(t4.site.company_db_path);
  EXPECT_EQ(T4UserStore(*acme).Find("1042"), ann);
}

// The terminal of the death test: dies, when asked to, at the moment it would clear its log.
class DyingDevice : public test::FakeT4Device {
 public:
  DyingDevice(core::ManualClock& clock, bool die_at_clear)
      : FakeT4Device(clock), die_at_clear_(die_at_clear) {}
  bool ClearGLog(int machine) override {
    if (die_at_clear_) ::_exit(3);
    return FakeT4Device::ClearGLog(machine);
  }

 private:
  bool die_at_clear_;
};

// The process polling a terminal of 2,000 punches dies: once just before the terminal's log is
// cleared, then killed at moments spread over the poll. Each new process reads the log again, and
// in the end every punch is in the table and in the daily file exactly once.
TEST(T4DeathTest, EveryPunchOnceWhereverThePollDies) {
  T4Site t4;
  t4.AddClock("Front", "10.0.0.1");
  std::vector<AttTransaction> terminal_log;
  for (int i = 0; i < 2000; ++i) terminal_log.push_back(Punch(1000 + i % 100, i / 100));
  // A poll in a child process; returns how it ended, as waitpid tells.
  auto poll_in_child = [&](bool die_at_clear, std::chrono::milliseconds kill_after) {
    const pid_t pid = ::fork();
    if (pid == 0) {
      PunchTypeRules rules(t4.program, t4.log);
      ClockAssignments assignments(t4.program, t4.log);
      T4PacketWriter writer(t4.companies, rules, assignments, t4.program, t4.log, t4.time);
      T4Host host([&] { return t4.OpenProduct(); },
                  [&](const T4ClockEntry& e) -> std::unique_ptr<IT4Connection> {
                    auto device = std::make_unique<DyingDevice>(t4.device_time, die_at_clear);
                    device->log = terminal_log;
                    return std::make_unique<T4EthernetConnection>(std::move(device), e.address, 1,
                                                                  e.name, t4.log);
                  },
                  t4.companies, writer, assignments, {}, t4.time, t4.log);
      ::_exit(host.PollAll().empty() ? 0 : 1);
    }
    const int exited = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    pollfd fd{exited, POLLIN, 0};
    if (::poll(&fd, 1, static_cast<int>(kill_after.count())) == 0) ::kill(pid, SIGKILL);
    ::close(exited);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return status;
  };

  int status = poll_in_child(true, 60s);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
  int kills = 0;
  for (auto after = 5ms; !terminal_log.empty(); after = after * 3 / 2) {
    status = poll_in_child(false, after);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) terminal_log.clear();  // the poll cleared it
    kills += WIFSIGNALED(status) ? 1 : 0;
    ASSERT_LT(after, 60s) << "the poll never finished";
  }
  EXPECT_GT(kills, 0);
  std::vector<std::string> rows = records::test_support::RowsText(
      *t4.site.OpenCompanyDb(),
      "SELECT [Card ID], COALESCE([Time In], [Time Out]) AS At FROM [Clock Data Table] ORDER BY "
      "[Card ID], At");
  EXPECT_EQ(rows.size(), 2000u);
  EXPECT_EQ(std::unique(rows.begin(), rows.end()), rows.end()) << "a punch is in twice";
  std::vector<std::string> lines = core::Split(core::ReadWholeFile(DailyFileOf(t4)), '\n');
  std::erase(lines, "");
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines.size(), 2000u);
  EXPECT_EQ(std::unique(lines.begin(), lines.end()), lines.end()) << "a line is in twice";
}

}  // namespace
}  // namespace clockcomm::t4
