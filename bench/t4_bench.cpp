// The T4 duplicate filter: lookups per second against 10,000 badges of 100 punches each, beside
// the floor of such a lookup here (a hash find and a binary search over a sorted vector of the
// same size, with no bookkeeping). And a poll's bulk read: 100,000 records of an in-process
// terminal into the daily file and the company database, beside the floor of storing them (one
// prepared insert per row in one transaction, the lines appended and synced once).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <unordered_map>

#include "bench_site.h"
#include "t4/duplicate_checker.h"
#include "t4/fake_t4_device.h"
#include "t4/t4_clock.h"
#include "t4/t4_packet_writer.h"

namespace clockcomm {
namespace {

constexpr int kBadges = 10'000;
constexpr int kPunchesPerBadge = 100;
const core::DateTime kStart(*core::Date::FromYmd(2024, 2, 1), core::TimeOfDay());

// A punch time of badge b: punches an hour apart, badges a second apart.
core::DateTime PunchTime(int badge, int punch) {
  return kStart.AddSeconds(int64_t{punch} * 3600 + badge % 60);
}

void BM_DuplicateCheckerLookup(benchmark::State& state) {
  t4::DuplicateChecker checker;
  for (int p = 0; p < kPunchesPerBadge; ++p) {
    for (int b = 0; b < kBadges; ++b) checker.FindDuplicate(b, PunchTime(b, p));
  }
  std::mt19937 random(7);
  std::uniform_int_distribution<int> badge(0, kBadges - 1), punch(0, kPunchesPerBadge - 1);
  int64_t duplicates = 0;
  for (auto _ : state) {
    // A punch the bulk read hands back again: found, and nothing is stored.
    const int b = badge(random);
    duplicates += checker.FindDuplicate(b, PunchTime(b, punch(random)).AddSeconds(5));
  }
  if (duplicates != state.iterations()) state.SkipWithError("a re-read punch was not found");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DuplicateCheckerLookup)->MinTime(1.0);

void BM_LimitHashAndBinarySearch(benchmark::State& state) {
  std::unordered_map<long, std::vector<int64_t>> times;
  for (int b = 0; b < kBadges; ++b) {
    for (int p = 0; p < kPunchesPerBadge; ++p) times[b].push_back(PunchTime(b, p).Seconds());
  }
  std::mt19937 random(7);
  std::uniform_int_distribution<int> badge(0, kBadges - 1), punch(0, kPunchesPerBadge - 1);
  for (auto _ : state) {
    const int b = badge(random);
    const auto& list = times.find(b)->second;
    benchmark::DoNotOptimize(
        std::lower_bound(list.begin(), list.end(), PunchTime(b, punch(random)).Seconds()));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LimitHashAndBinarySearch)->MinTime(1.0);

constexpr int kLogRecords = 100'000;

// The terminal's log: 10,000 badges punching ten times a day, an hour apart.
std::vector<t4::AttTransaction> TerminalLog(const core::Date& day) {
  std::vector<t4::AttTransaction> log;
  for (int i = 0; i < kLogRecords; ++i) {
    t4::AttTransaction t;
    t.enroll_number = std::to_string(1000 + i % 10'000);
    t.year = day.Year(), t.month = day.Month(), t.day = day.Day();
    t.hour = 6 + i / 10'000, t.minute = (i / 60) % 60, t.second = i % 60;
    log.push_back(t);
  }
  return log;
}

struct StoringListener : t4::IT4Listener {
  explicit StoringListener(t4::T4PacketWriter& w) : writer(w) {}
  void ReceivedPunch(t4::T4Clock& clock) override { writer.WritePacket(clock.CurrentPunch()); }
  void ReceivedPunches(t4::T4Clock&, const std::vector<t4::T4Punch>& punches) override {
    stored += writer.WritePackets(punches).written;
  }
  void AutoPolled(t4::T4Clock&) override {}
  t4::T4PacketWriter& writer;
  int64_t stored = 0;
};

void BM_T4BulkReadIntoStores(benchmark::State& state) {
  int64_t records = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto site = std::make_unique<bench::Site>();
    core::ManualClock device_time;
    auto device = std::make_unique<t4::test::FakeT4Device>(device_time);
    t4::test::FakeT4Device& terminal = *device;
    terminal.log = TerminalLog(site->clock.Now().GetDate());
    t4::PunchTypeRules rules;
    t4::ClockAssignments assignments;
    t4::T4PacketWriter writer(*site->companies, rules, assignments, site->home, *site->logs,
                              site->clock);
    StoringListener listener(writer);
    t4::T4Clock clock(
        1, "DEMODATA",
        std::make_unique<t4::T4EthernetConnection>(std::move(device), "10.0.0.1", 1, "DEMODATA",
                                                   *site->logs),
        [] { return false; }, site->clock, *site->logs);
    clock.SetListener(&listener);
    clock.SetDebugLog([] { return false; });  // a clock's debug log is off unless asked for
    state.ResumeTiming();

    clock.Connect();
    clock.DownloadPunches();  // nothing came in real time: the counts differ and the log is read

    state.PauseTiming();
    if (listener.stored != kLogRecords || site->Rows() != kLogRecords || !terminal.log.empty()) {
      state.SkipWithError("the log was not stored whole and cleared");
    }
    records += listener.stored;
    site.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(records);
}
BENCHMARK(BM_T4BulkReadIntoStores)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

// The floor: the same number of rows through one prepared insert in one transaction, and their
// lines appended to a file and synced once.
void BM_LimitInsertAndAppend(benchmark::State& state) {
  char dir_template[] = "/tmp/clockcomm-bench-XXXXXX";
  const std::filesystem::path dir = mkdtemp(dir_template);
  const std::string line =
      "\"1\",\"0\",\"1042\",\"\",\"\",\"\",\"\",\"I\",\"2024/02/"
      "01\",\"06:00\",\"\",\"\",\"\",\"\"\r\n";
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(dir / "limit.db");
    std::filesystem::remove(dir / "limit.TCD");
    sqlite3* db = nullptr;
    sqlite3_open((dir / "limit.db").c_str(), &db);
    sqlite3_exec(db,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; CREATE TABLE t (ID INTEGER "
                 "PRIMARY KEY, Punch INTEGER, [Card ID] INTEGER, [Punch Type] TEXT, [Date In] "
                 "TEXT, [Time In] TEXT)",
                 nullptr, nullptr, nullptr);
    state.ResumeTiming();
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db,
                       "INSERT INTO t (Punch, [Card ID], [Punch Type], [Date In], [Time In]) "
                       "VALUES (?, ?, 'I', '2024-02-01', '06:00:00')",
                       -1, &insert, nullptr);
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    std::string text;
    for (int i = 0; i < kLogRecords; ++i) {
      sqlite3_bind_int(insert, 1, 1);
      sqlite3_bind_int(insert, 2, 1000 + i % 10'000);
      sqlite3_step(insert);
      sqlite3_reset(insert);
      text += line;
    }
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_finalize(insert);
    const int fd = ::open((dir / "limit.TCD").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0640);
    benchmark::DoNotOptimize(::write(fd, text.data(), text.size()));
    ::fsync(fd);
    ::close(fd);
    state.PauseTiming();
    sqlite3_close(db);
    state.ResumeTiming();
  }
  std::filesystem::remove_all(dir);
  state.SetItemsProcessed(state.iterations() * kLogRecords);
}
BENCHMARK(BM_LimitInsertAndAppend)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace clockcomm

BENCHMARK_MAIN();
