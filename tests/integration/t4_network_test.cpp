// The T4 road over real sockets: the network client against the simulated terminal over TCP and
// UDP with its faults, and the T4 host storing every punch once through restarts and outages.
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <set>
#include <thread>

#include "records/transfer_fixture.h"
#include "sim/t4_terminal_sim.h"
#include "t4/fake_t4_device.h"
#include "t4/host/t4_host.h"
#include "t4/net/t4_net_device.h"
#include "t4/net/t4_time_code.h"
#include "test_support/run_clockcomm.h"
#include "test_support/temp_dir.h"

namespace clockcomm::t4 {
namespace {

using namespace std::chrono_literals;
using net::T4NetDevice;
using net::T4Record;
using net::T4TransportKind;

const core::Date kToday = core::SystemClock().Now().GetDate();

T4Record Record(int badge, int minute_of_day, uint8_t state = 0) {
  T4Record r;
  r.user_id = std::to_string(badge);
  r.uid = static_cast<uint16_t>(badge % 1000);  // the simulator's users: uid n is badge 1000 + n
  r.verify = 1;
  r.state = state;
  r.time =
      net::EncodeTimeCode(core::DateTime(kToday, core::TimeOfDay::FromSeconds(minute_of_day * 60)));
  return r;
}

// A terminal's log of n punches: badges first_badge.., each punching once a minute apart.
std::vector<T4Record> Punches(int n, int first_badge, int first_minute = 6 * 60) {
  std::vector<T4Record> log;
  for (int i = 0; i < n; ++i) log.push_back(Record(first_badge + i % 50, first_minute + i / 50));
  return log;
}

net::T4NetOptions FastOptions(T4TransportKind transport, uint32_t key = 0) {
  net::T4NetOptions options;
  options.transport = transport;
  options.key = key;
  options.timeouts = {300ms, 3, 500ms, 3};  // a lost answer costs a test little
  options.clock_name = "Front";
  return options;
}

// The terminal a test talks to, serving on a free port of the loopback.
struct Terminal {
  explicit Terminal(sim::T4SimConfig config, std::vector<T4Record> log = {}, uint16_t port = 0)
      : sim(std::move(config), clock) {
    for (const auto& r : log) sim.Punch(r);
    sim.Listen("127.0.0.1", port);
  }
  std::string Address() const { return "127.0.0.1:" + std::to_string(sim.Port()); }
  core::SystemClock clock;
  sim::T4TerminalSim sim;
};

struct Download {
  bool ok = false;
  int count = 0;
  std::vector<T4Record> records;
  std::vector<std::string> badges;  // each record's enrolment number
  std::string failure;
};

Download DownloadFrom(Terminal& terminal, const net::T4NetOptions& options) {
  test::TestLog log;
  T4NetDevice device(options, log);
  Download d;
  if (!device.Connect_Net("127.0.0.1", terminal.sim.Port())) {
    d.failure = device.LastFailure();
    return d;
  }
  d.ok = device.EnableDevice(1, false) &&
         device.GetDeviceStatus(1, kAttendanceRecordCount, d.count) && device.ReadGeneralLogData(1);
  d.failure = device.LastFailure();
  d.records = device.Downloaded().records;
  for (const auto& r : d.records) d.badges.push_back(device.EnrolmentOf(r));
  device.EnableDevice(1, true);
  return d;
}

// Every layout over both transports, and the terminal's faults: each download must hand back the
// terminal's log exactly, or (where the terminal's data cannot be trusted) fail and say why.
TEST(T4NetworkClientTest, DownloadsEveryLayoutOverBothTransportsWhateverTheTerminalDoes) {
  using Faults = sim::T4SimFaults;
  namespace cmd = net::cmd;
  constexpr auto kTcp = T4TransportKind::kTcp;
  constexpr auto kUdp = T4TransportKind::kUdp;
  struct Case {
    const char* what;
    size_t layout;
    T4TransportKind transport;
    int records;
    Faults faults;
    size_t max_data = 65528;
    const char* failure = nullptr;  // what the failure says, when the download must fail
    uint32_t terminal_key = 0, client_key = 0;
  } cases[] = {
      {"inline answer", 40, kTcp, 20, {}},
      {"one chunk and 12 bytes", 40, kTcp, 1637, {}},
      {"DATA of 1,008 bytes", 49, kTcp, 3000, {}, 1008},
      {"five UDP chunks", 16, kUdp, 5000, {}},
      {"uids through the user table", 8, kUdp, 700, {}},
      {"legacy read", 40, kTcp, 900, {.refuse_buffered = true}},
      {"legacy read over UDP", 16, kUdp, 900, {.refuse_buffered = true}},
      {"a lost datagram", 40, kUdp, 2000, {.udp_drop = 5}},
      {"two datagrams swapped", 40, kUdp, 2000, {.udp_swap = 3}},
      {"a corrupt answer to a chunk", 40, kUdp, 2000, {.bad_checksum_command = cmd::kReadBuffer}},
      {"a lost answer to the count", 40, kTcp, 50, {.no_reply_command = cmd::kGetFreeSizes}},
      {"frames split inside the prefix", 40, kTcp, 3000, {.split_frames = true}},
      {"whole answers in one write", 16, kTcp, 3000, {.coalesce_frames = true}},
      {"PREPARE_DATA before small chunks", 8, kTcp, 100, {.prepare_small_chunks = true}},
      {"an 80-byte status answer", 40, kTcp, 100, {.free_sizes_80 = true}},
      {"a count that is off", 40, kTcp, 100, {.miscount = 3}},
      {"a stream out of step at CONNECT", 40, kTcp, 100, {.bad_prefix_once = true}},
      {"descriptor mismatch", 40, kTcp, 2000, {.descriptor_mismatch = true}, 65528, "announced"},
      {"the right key", 40, kTcp, 3, {}, 65528, nullptr, 123456, 123456},
      {"no key", 40, kTcp, 3, {}, 65528, "refused the communication key", 123456, 0},
      {"a wrong key", 40, kTcp, 3, {}, 65528, "refused the communication key", 123456, 123457},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.what << ": " << c.layout << "-byte records, " << c.records
                                    << (c.transport == kUdp ? " udp" : " tcp"));
    Terminal terminal({.record_size = c.layout,
                       .comm_key = c.terminal_key,
                       .users = 50,
                       .max_data_packet = c.max_data,
                       .faults = c.faults},
                      Punches(c.records, 1001));
    const Download d = DownloadFrom(terminal, FastOptions(c.transport, c.client_key));
    EXPECT_EQ(terminal.sim.RecordCount(), static_cast<size_t>(c.records)) << "never cleared";
    if (c.failure != nullptr) {
      EXPECT_FALSE(d.ok);
      EXPECT_NE(d.failure.find(c.failure), std::string::npos) << d.failure;
      continue;
    }
    ASSERT_TRUE(d.ok) << d.failure;
    ASSERT_EQ(d.records.size(), static_cast<size_t>(c.records));
    const auto log = terminal.sim.Log();
    for (size_t i = 0; i < log.size(); ++i) {
      ASSERT_EQ(d.records[i].time, log[i].time) << i;
      ASSERT_EQ(d.badges[i], log[i].user_id) << i;
    }
  }
}

// Every event layout, both queue modes, events slipped in before an answer or several in one
// write: each punch reaches the handler once.
TEST(T4NetworkClientTest, RealTimePunchesArriveOnceThroughPumpEvents) {
  struct Case {
    T4TransportKind transport;
    size_t layout;
    size_t event_length;  // 0: the layout's own
    bool resend = true;
    sim::T4SimFaults faults = {};
  } cases[] = {
      {T4TransportKind::kTcp, 40, 0},
      {T4TransportKind::kUdp, 16, 0, false},
      {T4TransportKind::kTcp, 8, 14},
      {T4TransportKind::kUdp, 40, 32},
      {T4TransportKind::kTcp, 40, 37},
      {T4TransportKind::kTcp, 40, 52},
      {T4TransportKind::kTcp, 40, 0, true, {.coalesce_events = true}},
      {T4TransportKind::kTcp, 40, 0, true, {.events_before_answer = true}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.layout << "-byte layout, events of " << c.event_length);
    Terminal terminal({.record_size = c.layout,
                       .event_length = c.event_length,
                       .resend_events = c.resend,
                       .faults = c.faults});
    test::TestLog log;
    T4NetDevice device(FastOptions(c.transport), log);
    ASSERT_TRUE(device.Connect_Net("127.0.0.1", terminal.sim.Port()));
    std::vector<std::string> badges;
    core::StopSignal both;
    device.SetAttTransactionHandler([&](const AttTransaction& t) {
      badges.push_back(t.enroll_number);
      if (badges.size() == 2) both.Request();
    });
    ASSERT_TRUE(device.RegEvent(1, kAllEvents));
    ASSERT_TRUE(terminal.sim.Punch(Record(42, 480)));
    ASSERT_TRUE(terminal.sim.Punch(Record(43, 481)));
    core::DateTime now;
    ASSERT_TRUE(device.GetDeviceTime(1, now));  // events held back come before this answer
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (!both.Requested() && std::chrono::steady_clock::now() < deadline) {
      ASSERT_NE(device.PumpEvents(deadline, {&both}), PumpResult::kSessionLost);
    }
    // A while longer: an event sent again must not come twice.
    ASSERT_TRUE(device.GetDeviceTime(1, now));
    device.PumpEvents(std::chrono::steady_clock::now() + 200ms, {});
    EXPECT_EQ(badges, (std::vector<std::string>{"42", "43"}));
  }
}

// What the terminal reports beside its log: the kind of ids, its clock, its users; and records no
// punch can be made of, each skipped with the reason or passed on raw for the clock to judge.
TEST(T4NetworkClientTest, TimeUsersAndRecordsNoPunchCanBeMadeOf) {
  for (size_t layout : {40, 8}) {
    SCOPED_TRACE(layout);
    Terminal terminal({.record_size = layout, .users = 10, .bad_records = true});
    test::TestLog log;
    T4NetDevice device(FastOptions(T4TransportKind::kTcp), log);
    ASSERT_TRUE(device.Connect_Net("127.0.0.1", terminal.sim.Port()));
    EXPECT_EQ(device.IsTFTMachine(1), layout == 40);

    const auto leap_day = *core::DateTime::FromParts(2024, 2, 29, 8, 30, 0);
    core::DateTime read_back;
    ASSERT_TRUE(device.SetDeviceTime2(1, leap_day));
    ASSERT_TRUE(device.GetDeviceTime(1, read_back));
    EXPECT_LE(core::SecondsBetween(leap_day, read_back), 1);

    T4User user;
    ASSERT_TRUE(device.GetUser(1, "1001", user));
    EXPECT_EQ(user.name, "User 1");
    EXPECT_FALSE(device.GetUser(1, "999", user));
    int code = 1;
    device.GetLastError(code);
    EXPECT_EQ(code, 0) << "no such user";
    EXPECT_FALSE(device.SetUser(1, user));
    device.GetLastError(code);
    EXPECT_EQ(code, kNotSupported);

    int count = 0;
    ASSERT_TRUE(device.GetDeviceStatus(1, kAttendanceRecordCount, count));
    ASSERT_TRUE(device.ReadGeneralLogData(1));
    std::vector<std::string> handed_out;
    std::string badge;
    int verify = 0, state = 0, year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    while (device.SSR_GetGeneralLogData(1, badge, verify, state, year, month, day, hour, minute,
                                        second, code)) {
      handed_out.push_back(badge + "/" + std::to_string(state));
    }
    EXPECT_EQ(log.Count("a record with an impossible time skipped"), 2);  // 30 February, 2100
    EXPECT_EQ(handed_out.size(), static_cast<size_t>(count) - 2);
    EXPECT_NE(std::find(handed_out.begin(), handed_out.end(), "1001/255"), handed_out.end());
    if (layout == 40) {
      EXPECT_NE(std::find(handed_out.begin(), handed_out.end(), "0/0"), handed_out.end());
      EXPECT_NE(std::find(handed_out.begin(), handed_out.end(), "12AB/0"), handed_out.end());
    } else {
      EXPECT_NE(std::find(handed_out.begin(), handed_out.end(), "uid 9999 (no such user)/0"),
                handed_out.end());
    }
  }
}

// A terminal that stops answering ends each operation within the tries of its time-out, says
// which command went unanswered, and the session counts as lost.
TEST(T4NetworkClientTest, SilenceEndsInATimeoutThatNamesTheCommand) {
  Terminal terminal({.faults = {.no_reply_command = net::cmd::kGetFreeSizes, .no_reply_times = -1}},
                    Punches(5, 1));
  test::TestLog log;
  T4NetDevice device(FastOptions(T4TransportKind::kUdp), log);
  ASSERT_TRUE(device.Connect_Net("127.0.0.1", terminal.sim.Port()));
  const auto start = std::chrono::steady_clock::now();
  int count = 0;
  EXPECT_FALSE(device.GetDeviceStatus(1, kAttendanceRecordCount, count));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s) << "three tries of 300 ms";
  EXPECT_NE(device.LastFailure().find("no answer to command GET_FREE_SIZES"), std::string::npos)
      << device.LastFailure();
  EXPECT_EQ(device.PumpEvents(std::chrono::steady_clock::now() + 1s, {}), PumpResult::kSessionLost);

  // With the usual time-outs (9 s), End cuts the wait short.
  core::StopSignal end;
  T4NetDevice patient(net::T4NetOptions{}, log);
  patient.SetStopSignal(&end);
  ASSERT_TRUE(patient.Connect_Net("127.0.0.1", terminal.sim.Port()));
  std::thread ender([&end] {
    std::this_thread::sleep_for(200ms);  // End comes while the terminal is being asked
    end.Request();
  });
  const auto asked = std::chrono::steady_clock::now();
  EXPECT_FALSE(patient.GetDeviceStatus(1, kAttendanceRecordCount, count));
  EXPECT_LT(std::chrono::steady_clock::now() - asked, 2s);
  EXPECT_NE(patient.LastFailure().find("stopped"), std::string::npos) << patient.LastFailure();
  ender.join();
}

// The installer's one-shot download, as run from a shell.
TEST(T4NetworkClientTest, DownloadCommandCountsAndWritesTcdLinesWithoutClearing) {
  auto terminal = std::make_unique<Terminal>(sim::T4SimConfig{.record_size = 8, .users = 50},
                                             Punches(30, 1001));
  const std::string address = terminal->Address();
  clockcomm::test::TempDir dir;
  const auto tcd = dir.path() / "t4.tcd";
  const auto run = clockcomm::test::RunClockcomm(
      dir.path(), "t4 download " + address + " --udp --output '" + tcd.string() + "'");
  EXPECT_EQ(run.exit_code, 0) << run.err;
  EXPECT_NE(run.out.find("Downloaded 30 records from " + address + " (the terminal counts 30)"),
            std::string::npos)
      << run.out;
  const std::string lines = core::ReadWholeFile(tcd);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 30);
  EXPECT_NE(lines.find("\"1001\""), std::string::npos) << "badges through the user table";
  EXPECT_EQ(terminal->sim.RecordCount(), 30u);

  terminal.reset();
  const auto gone = clockcomm::test::RunClockcomm(dir.path(), "t4 download " + address);
  EXPECT_EQ(gone.exit_code, 1);
  EXPECT_NE(gone.err.find("cannot connect to " + address), std::string::npos) << gone.err;
}

// The T4 host over three simulated terminals, two of one company.
class T4NetworkHost : public testing::Test {
 protected:
  T4NetworkHost() {
    db::Open(site.registry_path)
        ->Execute(
            "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
            "[Pay Period Type]) VALUES ('Beta', 'Back', 'beta', '2009-10-18', 'weekly')");
    std::filesystem::create_directories(site.dir.path() / "beta");
    db::CreateCompanySchema(
        *db::Open(site.dir.path() / "beta" / "Company.db", db::OpenMode::kCreate));
    companies.Initialize(site.registry_path);
    std::filesystem::create_directory(program);
    // The debug lines tell the test when a clock's poll (and its clear) has ended.
    std::ofstream(program / "ClockAssignments.txt")
        << "Front, debuglog=true\nBack, debuglog=true\n";
    rules.emplace(program, log);
    assignments.emplace(program, log);
    writer.emplace(companies, *rules, *assignments, program, log, time);
    db::CreateProductSchema(*OpenProduct());
  }
  std::unique_ptr<db::Database> OpenProduct() const {
    return db::Open(site.dir.path() / db::kProductDatabaseFile, db::OpenMode::kCreate);
  }
  void AddClock(const std::string& name, const Terminal& terminal) {
    T4ClockList(*OpenProduct()).Add({0, name, terminal.Address(), 1});
  }
  int64_t Rows(const char* company_dir) {
    return db::Open(site.dir.path() / company_dir / "Company.db")
        ->Query("SELECT COUNT(*) FROM [Clock Data Table]")
        .Field(0)
        .AsInt();
  }
  // A host whose stations check counts every `cycle`.
  std::unique_ptr<T4Host> MakeHost(std::chrono::milliseconds cycle) {
    auto connect = [this](const T4ClockEntry& e) -> std::unique_ptr<IT4Connection> {
      return std::make_unique<T4EthernetConnection>(
          std::make_unique<T4NetDevice>(FastOptions(T4TransportKind::kTcp), log), e.address,
          e.device_number, e.name, log);
    };
    return std::make_unique<T4Host>(
        [this] { return OpenProduct(); }, connect, companies, *writer, *assignments,
        T4StationSettings{.cycle_interval = cycle, .first_retry = 20ms, .max_retry = 100ms}, time,
        log);
  }
  struct Running {
    std::unique_ptr<T4Host> host;
    core::StopSignal stop;
    std::future<void> run;
    void Stop() {
      stop.Request();
      run.get();
    }
    ~Running() {  // a failed assertion leaves early: the host still ends
      stop.Request();
      if (run.valid()) run.wait();
    }
  };
  std::unique_ptr<Running> Start(std::chrono::milliseconds cycle) {
    auto running = std::make_unique<Running>();
    running->host = MakeHost(cycle);
    running->run = std::async(std::launch::async, [r = running.get()] { r->host->Run(r->stop); });
    return running;
  }
  // Blocks until the clock has ended `times` polls in all: its log was read, stored and cleared.
  bool PollsEnded(const std::string& clock, int times) {
    return log.WaitFor(clock + " debug: Poll of " + clock + " ended", times);
  }

  records::test_support::TransferFixture site;
  test::TestLog log;
  core::SystemClock time;
  records::CompanyFactory companies{log, site.dir.path()};
  std::filesystem::path program = site.dir.path() / "program";
  std::optional<PunchTypeRules> rules;
  std::optional<ClockAssignments> assignments;
  std::optional<T4PacketWriter> writer;
};

TEST_F(T4NetworkHost, EveryPunchOnceThroughRealTimeRestartsAndATerminalThatVanishes) {
  Terminal front1(sim::T4SimConfig{}, Punches(120, 100));
  Terminal front2(sim::T4SimConfig{}, Punches(80, 200));
  auto back = std::make_unique<Terminal>(sim::T4SimConfig{}, Punches(50, 300));
  AddClock("Front", front1);
  AddClock("Front", front2);
  AddClock("Back", *back);
  const uint16_t back_port = back->sim.Port();

  // A host whose cycle never comes round again: the logs are read and cleared at connect, the
  // real-time punches that follow stay in the terminal's log.
  auto first = Start(1h);
  ASSERT_TRUE(PollsEnded("Front", 2) && PollsEnded("Back", 1));
  EXPECT_EQ(front1.sim.RecordCount() + front2.sim.RecordCount() + back->sim.RecordCount(), 0u);
  EXPECT_EQ(first->host->PunchesStored(), 250);
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(front1.sim.Punch(Record(400 + i, 9 * 60)));
  ASSERT_TRUE(first->host->WaitForPunchesStored(255, std::chrono::steady_clock::now() + 20s));
  first->Stop();
  EXPECT_EQ(front1.sim.RecordCount(), 5u) << "stored in real time, not yet cleared";

  // Punched while no host runs; the next host reads them, and the five above again, once.
  for (int i = 0; i < 10; ++i) front2.sim.Punch(Record(500 + i, 10 * 60));
  auto second = Start(100ms);
  ASSERT_TRUE(PollsEnded("Front", 4));
  EXPECT_EQ(front1.sim.RecordCount() + front2.sim.RecordCount(), 0u);
  EXPECT_EQ(second->host->PunchesStored(), 10);
  EXPECT_EQ(Rows("acme"), 215);

  // The Back terminal goes away and comes back at its address with what was punched meanwhile.
  std::vector<T4Record> kept = back->sim.Log();
  back.reset();
  ASSERT_TRUE(log.WaitFor("T4 Clock Offline"));
  auto again = Punches(7, 600, 11 * 60);
  kept.insert(kept.end(), again.begin(), again.end());
  Terminal returned({}, kept, back_port);
  ASSERT_TRUE(log.WaitFor("T4 Clock Online"));
  ASSERT_TRUE(PollsEnded("Back", 3));
  EXPECT_EQ(returned.sim.RecordCount(), 0u);
  second->Stop();
  EXPECT_EQ(second->host->PunchesStored(), 17);
  EXPECT_EQ(Rows("beta"), 57);
  EXPECT_EQ(Rows("acme"), 215);
}

}  // namespace
}  // namespace clockcomm::t4
