// Punch record throughput: parsing TCD lines beside a byte loop that splits and converts the same
// lines, writing and reading a TCD file, and transferring a 100,000-record file into a SQLite
// company database beside a one-transaction prepared insert of the same rows into a scratch file;
// the peak memory of `clockcomm transfer` on a 1,000,000-line file. Temporary files go under
// $TMPDIR.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench_limit.h"
#include "bench_records.h"
#include "core/clock.h"
#include "core/log_sink.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/clock_file_transfer.h"
#include "records/company_factory.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_file_writer.h"
#include "records/tcd_record_static.h"

namespace {

using namespace clockcomm;
using bench::BenchDir;
using bench::Punch;
using bench::Rate;
using bench::WriteFile;
namespace fs = std::filesystem;

std::vector<std::string> ParseLines(bool quoted) {
  std::vector<std::string> lines;
  for (int i = 0; i < 64; ++i) lines.push_back(Punch(i).ToTcdString(quoted ? 1 : 0));
  lines.push_back("999,1,2,3,job,,,I,091020,1224,,,,1");
  lines.push_back("999,1,2,3,job,,,C,1/2/2008,8:30am,1/2/2008,9pm,,1");
  return lines;
}

bench::Limit parse_limit[2];

// The limit of parsing: one pass over each byte that drops quotes, cuts at commas and accumulates
// the digits of every field into a number, with nothing else done.
void BM_SplitConvertLimit(benchmark::State& state) {
  const auto lines = ParseLines(state.range(0) == 1);
  size_t i = 0;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    const std::string& line = lines[i++ % lines.size()];
    int64_t fields[16] = {};
    unsigned field = 0;
    for (char c : line) {
      if (c == ',') {
        field = (field + 1) & 15;
      } else if (c >= '0' && c <= '9') {
        fields[field] = fields[field] * 10 + (c - '0');
      }
    }
    benchmark::DoNotOptimize(fields);
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  parse_limit[state.range(0)].Record(Rate(state, elapsed, static_cast<double>(state.iterations())));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_SplitConvertLimit)->Arg(0)->Arg(1)->ArgName("quoted");

void BM_ParseTcdLine(benchmark::State& state) {
  const auto lines = ParseLines(state.range(0) == 1);
  size_t i = 0;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    benchmark::DoNotOptimize(records::TcdRecordStatic::Parse(lines[i++ % lines.size()]));
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  parse_limit[state.range(0)].Report(state,
                                     Rate(state, elapsed, static_cast<double>(state.iterations())));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_ParseTcdLine)->Arg(0)->Arg(1)->ArgName("quoted");

void BM_WriteTcdFile(benchmark::State& state) {
  BenchDir dir;
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) WriteFile(dir.path() / "w.TCD", n);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}
BENCHMARK(BM_WriteTcdFile)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_ReadTcdFile(benchmark::State& state) {
  BenchDir dir;
  const int n = static_cast<int>(state.range(0));
  WriteFile(dir.path() / "r.TCD", n);
  for (auto _ : state) {
    records::TcdFileReader reader(dir.path() / "r.TCD");
    int count = 0;
    while (reader.Read()) ++count;
    if (count != n) state.SkipWithError("short read");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}
BENCHMARK(BM_ReadTcdFile)->Arg(10000)->Unit(benchmark::kMillisecond);

bench::Limit insert_limit;

void Check(int rc, sqlite3* db) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db));
}

// The limit of a transfer: the same rows, their values ready, put into a scratch file of the
// company schema (WAL, synchronous FULL, as the company database) by one prepared INSERT in one
// transaction.
void BM_InsertLimit(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<records::TcdRecord> punches;
  for (int i = 1; i <= n; ++i) punches.push_back(Punch(i));
  std::vector<std::unique_ptr<BenchDir>> dirs;
  std::chrono::steady_clock::duration elapsed{};
  for (auto _ : state) {
    state.PauseTiming();
    dirs.push_back(std::make_unique<BenchDir>());
    const fs::path file = dirs.back()->path() / "limit.db";
    db::CreateCompanySchema(*db::Open(file, db::OpenMode::kCreate));
    sqlite3* db = nullptr;
    Check(sqlite3_open(file.c_str(), &db), db);
    Check(sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL", nullptr, nullptr,
                       nullptr),
          db);
    sqlite3_stmt* insert = nullptr;
    Check(sqlite3_prepare_v2(db,
                             "INSERT INTO [Clock Data Table] (Punch, [Card ID], Department, "
                             "JobNumber, Level4, Level5, [Punch Type], [Date In], [Time In], "
                             "[Date Out], [Time Out], Quantity) VALUES (?,?,?,?,?,?,?,?,?,?,?,?)",
                             -1, &insert, nullptr),
          db);
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    Check(sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), db);
    for (const auto& p : punches) {
      sqlite3_bind_int(insert, 1, p.SequenceNumber());
      sqlite3_bind_int(insert, 2, p.BadgeId());
      if (p.Department()) {
        sqlite3_bind_int(insert, 3, *p.Department());
      } else {
        sqlite3_bind_null(insert, 3);
      }
      sqlite3_bind_text(insert, 4, p.JobNumber().data(), static_cast<int>(p.JobNumber().size()),
                        SQLITE_STATIC);
      sqlite3_bind_text(insert, 5, "", 0, SQLITE_STATIC);
      sqlite3_bind_text(insert, 6, "", 0, SQLITE_STATIC);
      sqlite3_bind_text(insert, 7, p.PunchType().data(), static_cast<int>(p.PunchType().size()),
                        SQLITE_STATIC);
      sqlite3_bind_text(insert, 8, "2009-10-20", 10, SQLITE_STATIC);
      sqlite3_bind_text(insert, 9, "08:30:00", 8, SQLITE_STATIC);
      sqlite3_bind_null(insert, 10);
      sqlite3_bind_null(insert, 11);
      if (p.Amount()) {
        sqlite3_bind_double(insert, 12, *p.Amount());
      } else {
        sqlite3_bind_null(insert, 12);
      }
      Check(sqlite3_step(insert), db);
      sqlite3_reset(insert);
    }
    Check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db);
    elapsed += std::chrono::steady_clock::now() - start;
    state.PauseTiming();
    sqlite3_finalize(insert);
    sqlite3_close(db);
    state.ResumeTiming();
  }
  insert_limit.Record(
      Rate(state, elapsed, static_cast<double>(state.iterations()) * static_cast<double>(n)));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}
BENCHMARK(BM_InsertLimit)
    ->Arg(100000)
    ->ArgName("rows")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

// range(0): rows; range(1): 1 = the default (durable batches), 0 = one transaction for the file.
void BM_TransferFile(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  core::NullLogSink log;
  core::SystemClock clock;
  // Kept to the end so that removing them is not timed.
  std::vector<std::unique_ptr<BenchDir>> dirs;
  std::chrono::steady_clock::duration elapsed{};
  for (auto _ : state) {
    state.PauseTiming();
    dirs.push_back(std::make_unique<BenchDir>());
    const BenchDir& dir = *dirs.back();
    bench::MakeCompany(dir.path());
    WriteFile(dir.path() / "t.TCD", n);
    records::CompanyFactory factory(log, dir.path());
    factory.Initialize(dir.path() / "COMPANY3.db");
    records::ClockFileTransfer transfer({dir.path(), dir.path() / "COMPANY3.db"}, log, clock);
    records::TransferOptions options;
    options.use_transactions = state.range(1) == 1;
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    const auto result = transfer.Transfer(factory.GetCompany("A"), dir.path() / "t.TCD", options);
    elapsed += std::chrono::steady_clock::now() - start;
    if (result.inserted != n) state.SkipWithError("rows missing");
  }
  insert_limit.Report(
      state,
      Rate(state, elapsed, static_cast<double>(state.iterations()) * static_cast<double>(n)));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}
BENCHMARK(BM_TransferFile)
    ->Args({100000, 1})
    ->Args({100000, 0})
    ->ArgNames({"rows", "default_mode"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

// The program itself, as an operator runs it: its peak resident memory must not grow with the
// file (the file is 43 MB).
void BM_TransferPeakMemory(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    BenchDir dir;
    const std::string program = CLOCKCOMM_BINARY_DIR "/clockcomm";
    const std::string home = "'" + dir.path().string() + "'";
    if (std::system((program + " --home " + home + " init >/dev/null && " + program + " --home " +
                     home + " company add Big --clock BIG --dir big >/dev/null")
                        .c_str()) != 0) {
      state.SkipWithError("site setup failed");
      return;
    }
    const fs::path file = dir.path() / "data" / "big.TCD";
    WriteFile(file, n);
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
      const int null = open("/dev/null", O_WRONLY);
      dup2(null, 1);
      execl(program.c_str(), program.c_str(), "--home", dir.path().c_str(), "transfer", "--clock",
            "BIG", file.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("transfer failed");
    state.counters["peak_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
    state.counters["file_MB"] = static_cast<double>(fs::file_size(file)) / 1e6;
    state.counters["rows_per_s"] = n / elapsed.count();
  }
}
BENCHMARK(BM_TransferPeakMemory)
    ->Arg(1000000)
    ->ArgName("lines")
    ->Unit(benchmark::kSecond)
    ->Iterations(1)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
