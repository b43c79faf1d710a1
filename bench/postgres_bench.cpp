// Transferring a 100,000-line TCD file into a company database on PostgreSQL, beside a plain COPY
// of the same rows, their text ready, into the same table on the same server. The server is the
// tests' own: made in a temporary folder, on 127.0.0.1, durable commits (fsync on).
#include <benchmark/benchmark.h>
#include <libpq-fe.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_limit.h"
#include "bench_records.h"
#include "core/clock.h"
#include "core/log_sink.h"
#include "db/location.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/clock_file_transfer.h"
#include "records/company_factory.h"
#include "test_support/postgres_test_server.h"

namespace {

using namespace clockcomm;
using bench::BenchDir;
using bench::Punch;
using bench::Rate;
namespace fs = std::filesystem;

constexpr int kRows = 100000;

// A company database in a schema of its own, emptied: the location that names it.
std::string FreshCompanyDatabase() {
  const std::string url = test::PostgresTestServer::Get().Url();
  auto db = db::Open(url);
  db->Execute("DROP SCHEMA IF EXISTS bench_company CASCADE");
  db->Execute("CREATE SCHEMA bench_company");
  const std::string location = db::LocationInSchema(url, "bench_company");
  db::CreateCompanySchema(*db::Open(location));
  return location;
}

// The rows as COPY's text, the columns a transfer fills.
std::string CopyText(int n) {
  std::string text;
  for (int i = 1; i <= n; ++i) {
    const records::TcdRecord p = Punch(i);
    text += std::to_string(i) + '\t' + std::to_string(p.SequenceNumber()) + '\t' +
            std::to_string(p.BadgeId()) + '\t' +
            (p.Department() ? std::to_string(*p.Department()) : "\\N") + '\t' + p.JobNumber() +
            '\t' + p.PunchType() + '\t' + p.DateIn()->Format(core::kFormatIsoDate) + '\t' +
            p.TimeIn()->Format(core::kFormatHourMinuteSecond) + '\t' +
            (p.Amount() ? std::to_string(*p.Amount()) : "\\N") + '\n';
  }
  return text;
}

void Exec(PGconn* conn, const char* sql, ExecStatusType want) {
  PGresult* r = PQexec(conn, sql);
  const bool ok = PQresultStatus(r) == want;
  PQclear(r);
  if (!ok) throw std::runtime_error(std::string(sql) + ": " + PQerrorMessage(conn));
}

bench::Limit copy_limit;

// The limit: one COPY in one transaction, pieces of 256 KiB, straight through libpq.
void BM_PostgresCopyLimit(benchmark::State& state) {
  const std::string text = CopyText(kRows);
  std::chrono::steady_clock::duration elapsed{};
  for (auto _ : state) {
    state.PauseTiming();
    PGconn* conn = PQconnectdb(FreshCompanyDatabase().c_str());
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    Exec(conn, "BEGIN", PGRES_COMMAND_OK);
    Exec(conn,
         "COPY \"clock data table\" (id, punch, \"card id\", department, jobnumber, "
         "\"punch type\", \"date in\", \"time in\", quantity) FROM STDIN",
         PGRES_COPY_IN);
    constexpr size_t kPiece = 256 * 1024;
    for (size_t at = 0; at < text.size(); at += kPiece) {
      PQputCopyData(conn, text.data() + at, static_cast<int>(std::min(kPiece, text.size() - at)));
    }
    PQputCopyEnd(conn, nullptr);
    PGresult* r = PQgetResult(conn);
    if (PQresultStatus(r) != PGRES_COMMAND_OK) state.SkipWithError(PQerrorMessage(conn));
    PQclear(r);
    while ((r = PQgetResult(conn))) PQclear(r);
    Exec(conn, "COMMIT", PGRES_COMMAND_OK);
    elapsed += std::chrono::steady_clock::now() - start;
    PQfinish(conn);
  }
  copy_limit.Record(Rate(state, elapsed, static_cast<double>(state.iterations()) * kRows));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kRows);
}
BENCHMARK(BM_PostgresCopyLimit)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// The transfer as the program runs it: read, key, assign, look up, write in batches of 20,000.
void BM_PostgresTransferFile(benchmark::State& state) {
  core::NullLogSink log;
  core::SystemClock clock;
  std::vector<std::unique_ptr<BenchDir>> dirs;
  std::chrono::steady_clock::duration elapsed{};
  for (auto _ : state) {
    state.PauseTiming();
    dirs.push_back(std::make_unique<BenchDir>());
    const BenchDir& dir = *dirs.back();
    bench::MakeCompany(dir.path(), FreshCompanyDatabase());
    bench::WriteFile(dir.path() / "t.TCD", kRows);
    records::CompanyFactory factory(log, dir.path());
    factory.Initialize(dir.path() / "COMPANY3.db");
    records::ClockFileTransfer transfer({dir.path(), dir.path() / "COMPANY3.db"}, log, clock);
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    const auto result = transfer.Transfer(factory.GetCompany("A"), dir.path() / "t.TCD");
    elapsed += std::chrono::steady_clock::now() - start;
    if (result.inserted != kRows) state.SkipWithError("rows missing");
  }
  copy_limit.Report(state, Rate(state, elapsed, static_cast<double>(state.iterations()) * kRows));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kRows);
}
BENCHMARK(BM_PostgresTransferFile)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
