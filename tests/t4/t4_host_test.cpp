// The T4 host over in-process terminals on threads of their own, in real time with short cycles:
// one terminal that never answers holds up nobody, its outage is logged once however often it is
// tried, the others' punches reach their companies' databases once, and the host follows its list;
// and that list with its tasks.
#include "t4/host/t4_host.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <future>
#include <optional>
#include <set>

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"
#include "fake_t4_device.h"
#include "records/tcd_archive.h"
#include "records/transfer_fixture.h"
#include "test_support/kill_child.h"

namespace clockcomm::t4 {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using records::test_support::RowsText;

AttTransaction Punch(int badge, int minute) {  // today at 07:minute
  return test::Transaction(
      std::to_string(badge),
      core::DateTime(core::SystemClock().Now().GetDate(), *core::TimeOfDay::FromHms(7, minute, 0)));
}

// A site of two companies: Acme with the clock name "Front" (two terminals may share it) and
// Beta with "Back"; the T4 clock list in the product database.
class T4Site {
 public:
  T4Site() {
    AddCompany("Beta", "Back", "beta");
    db::CreateCompanySchema(*Beta());
    std::filesystem::create_directory(program);
    db::CreateProductSchema(*OpenProduct());
  }
  void AddCompany(const char* name, const char* clock, const char* directory) {
    db::Open(site.registry_path)
        ->Execute(
            "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
            "[Pay Period Type]) VALUES (?, ?, ?, '2009-10-18', 'weekly')",
            {name, clock, directory});
    std::filesystem::create_directories(site.dir.path() / directory);
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
  // The host over fake terminals that setup prepares, reading the site files as they are now.
  T4Host& Host(std::function<void(test::FakeT4Device&, const T4ClockEntry&)> setup,
               T4StationSettings settings = {}) {
    rules.emplace(program, log);
    assignments.emplace(program, log);
    writer.emplace(companies, *rules, *assignments, program, log, time);
    auto connect = [this, setup](const T4ClockEntry& e) -> std::unique_ptr<IT4Connection> {
      auto device = std::make_unique<test::FakeT4Device>(device_time);
      setup(*device, e);
      return std::make_unique<T4EthernetConnection>(std::move(device), e.address, e.device_number,
                                                    e.name, log);
    };
    return host.emplace([this] { return OpenProduct(); }, connect, companies, *writer, *assignments,
                        settings, time, log);
  }

  records::test_support::TransferFixture site;
  test::TestLog log;
  core::SystemClock time;
  core::ManualClock device_time;  // the fakes' clock for slow calls; none is slow here
  records::CompanyFactory companies{log, site.dir.path()};
  std::filesystem::path program = site.dir.path() / "program";
  std::optional<PunchTypeRules> rules;
  std::optional<ClockAssignments> assignments;
  std::optional<T4PacketWriter> writer;
  std::optional<T4Host> host;
};

TEST(T4HostTest, AnUnreachableTerminalHoldsUpNobodyAndTheHostFollowsItsList) {
  T4Site t4;
  std::ofstream(t4.program / "ClockAssignments.txt")
      << "Front, debuglog=true\nBack, debuglog=true\n";
  const int64_t front = t4.AddClock("Front", "10.0.0.1");
  t4.AddClock("Gate", "10.0.0.3");
  t4.AddClock("Back", "10.0.0.2");
  std::promise<int> moved;  // the polls of Front counted when its new station is made
  // Each connection gets a terminal of its own holding that clock's punches; Gate never answers.
  T4Host& host = t4.Host(
      [&](test::FakeT4Device& device, const T4ClockEntry& e) {
        device.blocking = true;
        if (e.name == "Front") device.log = {Punch(101, 1), Punch(102, 2), Punch(101, 30)};
        if (e.name == "Back") device.log = {Punch(201, 5), Punch(202, 6)};
        if (e.name == "Gate") device.failures["Connect_Net"] = -1;
        if (e.address == "10.0.0.4") moved.set_value(t4.log.Count("Poll of Front ended"));
      },
      {.cycle_interval = 30ms, .first_retry = 10ms, .max_retry = 40ms});
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
  Lines names;
  for (const auto& status : host.Snapshot()) {
    names.push_back(status.name + (status.online ? "+" : "-"));
  }
  EXPECT_EQ(names, (Lines{"Gate-", "Back+", "Front+"}));
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
  t4.AddCompany("Acme East", "Gate", "acme");  // Acme's too, its templates managed by hand
  const int64_t enrolled = t4.AddClock("Front", "10.0.0.1");
  const int64_t other = t4.AddClock("Front", "10.0.0.2");
  const int64_t beta = t4.AddClock("Back", "10.0.0.3");
  const int64_t gate = t4.AddClock("Gate", "10.0.0.4");
  const T4User ann{"1042", "Ann", "", 0, true, {{0, 1, "QUJD"}, {6, 3, "REVG"}}};
  using Users = std::map<std::string, T4User>;
  std::map<std::string, std::shared_ptr<Users>> users = {
      // by address, across connections
      {"10.0.0.1", std::make_shared<Users>(Users{{"1042", ann}})},
      {"10.0.0.3", std::make_shared<Users>(Users{{"77", {"77", "Bo"}}})}};
  bool set_user_fails = true;
  T4Host& host = t4.Host([&](test::FakeT4Device& device, const T4ClockEntry& e) {
    device.users = users.try_emplace(e.address, device.users).first->second;
    if (e.address == "10.0.0.2" && set_user_fails) device.failures["SetUser"] = -2;
  });
  {
    const auto product = t4.OpenProduct();
    T4ClockList list(*product);
    list.AddTask({0, enrolled, kReloadUser, "1042"});
    list.AddTask({0, enrolled, kReloadUser, "5"});  // nobody enrolled as 5
    list.AddTask({0, beta, kAddUser, "1042"});      // Beta's store has no 1042
    list.AddTask({0, beta, kRemoveUser, "77"});
    list.AddTask({0, gate, kLoadAllUsers, ""});
  }
  auto waiting = [&] {
    return RowsText(*t4.OpenProduct(), "SELECT ClockID, Task FROM ClockTasks");
  };
  EXPECT_EQ(host.PollAll(), Lines{});
  EXPECT_EQ(waiting(), Lines{std::to_string(other) + "|Add User"});
  EXPECT_EQ(t4.log.Count("task 2 \"Reload User\" for user 5 removed: the terminal has no such"), 1);
  EXPECT_EQ(t4.log.Count("company Beta has no such T4 user"), 1);
  EXPECT_EQ(t4.log.Count("template management is off"), 1);
  EXPECT_EQ(t4.log.Count("SetUser failed (Error in file read/write); it is tried again"), 1);
  EXPECT_TRUE(users["10.0.0.3"]->empty());
  EXPECT_TRUE(users["10.0.0.4"]->empty());

  set_user_fails = false;
  EXPECT_EQ(host.PollAll(), Lines{});
  EXPECT_EQ(waiting(), Lines{});
  EXPECT_EQ(users["10.0.0.2"]->at("1042"), ann);
  EXPECT_EQ(T4UserStore(*db::Open(t4.site.company_db_path)).Find("1042"), ann);
}

// The process polling a terminal of 2,000 punches dies: once just before the terminal's log is
// cleared, then killed at moments spread over the poll. Each new process reads the log again, and
// in the end every punch is in the table and in the daily file exactly once.
TEST(T4DeathTest, EveryPunchOnceWhereverThePollDies) {
  T4Site t4;
  t4.AddClock("Front", "10.0.0.1");
  std::vector<AttTransaction> terminal_log;
  for (int i = 0; i < 2000; ++i) terminal_log.push_back(Punch(1000 + i % 100, i / 100));
  // A poll in a child process; returns how it ended, as waitpid tells.
  auto poll_in_child = [&](bool die_at_clear, std::chrono::microseconds kill_after) {
    return clockcomm::test::RunChildKilledAfter(
        [&] {
          T4Host& host = t4.Host([&](test::FakeT4Device& device, const T4ClockEntry&) {
            device.log = terminal_log;
            device.on_call = [die_at_clear](const std::string& call) {
              if (die_at_clear && call == "ClearGLog") ::_exit(3);
            };
          });
          return host.PollAll().empty() ? 0 : 1;
        },
        kill_after);
  };

  int status = poll_in_child(true, 60s);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
  int kills = 0;
  for (std::chrono::microseconds after = 200us; !terminal_log.empty(); after = after * 5 / 4) {
    status = poll_in_child(false, after);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) terminal_log.clear();  // the poll cleared it
    kills += WIFSIGNALED(status) ? 1 : 0;
    ASSERT_LT(after, 60s) << "the poll never finished";
  }
  EXPECT_GT(kills, 0);
  EXPECT_EQ(t4.site.RowCount(), 2000);
  EXPECT_EQ(RowsText(*t4.site.OpenCompanyDb(),
                     "SELECT DISTINCT [Card ID], COALESCE([Time In], [Time Out]) "
                     "FROM [Clock Data Table]")
                .size(),
            2000u)
      << "a punch is in twice";
  Lines lines = core::Split(
      core::ReadWholeFile(t4.site.dir.path() / "acme" /
                          records::DailyArchivePath("", t4.time.Now().GetDate()).filename()),
      '\n');
  std::erase(lines, "");
  EXPECT_EQ(lines.size(), 2000u);
  EXPECT_EQ(std::set(lines.begin(), lines.end()).size(), 2000u) << "a line is in twice";
}

class T4ClockListTest : public ::testing::Test {
 protected:
  T4ClockListTest() : db_(db::Open(dir_.path() / db::kProductDatabaseFile, db::OpenMode::kCreate)) {
    db::CreateProductSchema(*db_);
  }
  static T4ClockEntry Clock(std::string name, std::string address = "10.0.0.9", int device = 1,
                            std::string transport = "tcp") {
    return {0, std::move(name), std::move(address), device, std::move(transport)};
  }

  clockcomm::test::TempDir dir_;
  std::unique_ptr<db::Database> db_;
  T4ClockList list_{*db_};
};

// Whatever a bad entry holds, it is refused naming the field, and nothing is stored.
TEST_F(T4ClockListTest, ABadEntryIsRefusedNamingItsField) {
  list_.Add(Clock("Lobby"));
  const std::pair<T4ClockEntry, const char*> bad[] = {
      {Clock(" "), "name"},
      {Clock("Lobby", "10.0.0.9:4370"), "address"},  // the same terminal as Lobby's
      {Clock("Dock", "10.0.0.9"), "address"},
      {Clock("Do\nck"), "name"},
      {Clock("Dock", ""), "address"},
      {Clock("Dock", "10.0.0.9:70000"), ""},
      {Clock("Dock", "10.0.0.20", 0), "device_number"},
      {Clock("Dock", "10.0.0.20", 256), "device_number"},
      {Clock("Dock", "10.0.0.20", 1, "serial"), "transport"},
  };
  for (const auto& [entry, field] : bad) {
    SCOPED_TRACE(entry.name + " " + entry.address);
    try {
      list_.Add(entry);
      ADD_FAILURE() << "accepted";
    } catch (const core::ArgumentException& e) {
      if (*field == '\0') continue;  // the connection's own port check
      EXPECT_EQ(e.ParamName(), field) << e.what();
    }
  }
  ASSERT_EQ(list_.ReadClocks().size(), 1u);
}

// A clock reads back as written and is found by its id or its name, the id telling apart clocks
// of one name; removing it takes its waiting tasks with it, not another's.
TEST_F(T4ClockListTest, ClocksAndTasksRoundTripAndGoTogether) {
  T4ClockEntry lobby = {0, "Lobby", "clock7.local:4371", 3, "udp", 1234};
  lobby.id = list_.Add(lobby);
  const int64_t dock = list_.Add(Clock("Dock"));
  const int64_t second_dock = list_.Add(Clock("DOCK", "10.0.0.10"));
  EXPECT_EQ(list_.Resolve("lobby"), lobby);
  EXPECT_EQ(list_.Resolve(std::to_string(second_dock)).address, "10.0.0.10");
  EXPECT_THROW(list_.Resolve("Dock"), core::ArgumentException);
  EXPECT_THROW(list_.Resolve("Yard"), core::ItemNotFoundException);

  list_.AddTask({0, lobby.id, kAddUser, "1042"});
  list_.AddTask({0, lobby.id, kLoadAllUsers, ""});
  list_.AddTask({0, dock, kReloadUser, "7"});
  EXPECT_THROW(list_.AddTask({0, dock, "Format Disk", ""}), core::ArgumentException);
  EXPECT_THROW(list_.AddTask({0, dock, kRemoveUser, ""}), core::ArgumentException);
  const auto tasks = list_.ReadTasks(lobby.id);
  ASSERT_EQ(tasks.size(), 2u);
  list_.RemoveTask(tasks[0].task_id);
  EXPECT_EQ(list_.ReadTasks(lobby.id).at(0).task, kLoadAllUsers);

  list_.Remove(lobby.id);
  EXPECT_THROW(list_.Resolve("Lobby"), core::ItemNotFoundException);
  EXPECT_EQ(db_->Query("SELECT COUNT(*) FROM ClockTasks").Field(0).AsInt(), 1);
  EXPECT_EQ(list_.ReadClocks().size(), 2u);
}

}  // namespace
}  // namespace clockcomm::t4
