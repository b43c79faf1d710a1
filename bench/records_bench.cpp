// Punch record throughput: parsing TCD lines, writing and reading a TCD file, and transferring a
// 10,000-record file into a SQLite company database. Temporary files go under $TMPDIR.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/log_sink.h"
#include "db/schema.h"
#include "db/open.h"
#include "records/clock_file_transfer.h"
#include "records/company_factory.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_file_writer.h"
#include "records/tcd_record_static.h"

namespace {

using namespace clockcomm;
namespace fs = std::filesystem;

class BenchDir {
 public:
  BenchDir() {
    std::string tmpl = (fs::temp_directory_path() / "clockcomm-bench-XXXXXX").string();
    path_ = mkdtemp(tmpl.data());
  }
  ~BenchDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

records::TcdRecord Punch(int i) {
  static const char* kTypes[] = {"I", "O", "LO", "LI", "T"};
  return records::TcdRecord(
      "999", i, 1000 + i % 250, i % 4 ? std::optional<int64_t>(i % 50) : std::nullopt,
      i % 3 ? "job" : "", "", "", kTypes[i % 5],
      core::Date::FromYmd(2009, 10, 20)->AddDays(i / 1000),
      core::TimeOfDay::FromSeconds(i * 37 % 86400), std::nullopt, std::nullopt,
      i % 5 == 4 ? std::optional<float>(12.5f) : std::nullopt, "1");
}

void WriteFile(const fs::path& file, int n) {
  records::TcdFileWriter writer(file, false);
  for (int i = 1; i <= n; ++i) writer.WriteRecord(Punch(i));
  writer.CloseWriter();
}

void BM_ParseTcdLine(benchmark::State& state) {
  std::vector<std::string> lines;
  for (int i = 0; i < 64; ++i) {
    lines.push_back(Punch(i).ToTcdString(state.range(0)));
  }
  lines.push_back("999,1,2,3,job,,,I,091020,1224,,,,1");
  lines.push_back("999,1,2,3,job,,,C,1/2/2008,8:30am,1/2/2008,9pm,,1");
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(records::TcdRecordStatic::Parse(lines[i++ % lines.size()]));
  }
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

// range(0): rows; range(1): 1 = one transaction per row, 0 = one for the whole file.
void BM_TransferFile(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  core::NullLogSink log;
  core::SystemClock clock;
  // Kept to the end so that removing them is not timed.
  std::vector<std::unique_ptr<BenchDir>> dirs;
  for (auto _ : state) {
    state.PauseTiming();
    dirs.push_back(std::make_unique<BenchDir>());
    const BenchDir& dir = *dirs.back();
    {
      auto registry =
          db::Open(dir.path() / "COMPANY3.db", db::OpenMode::kCreate);
      db::CreateCompanyRegistrySchema(*registry);
      registry->Execute(
          "INSERT INTO Company ([Company], [Clock Name], [Directory]) VALUES ('A', 'C', 'a')");
      fs::create_directory(dir.path() / "a");
      auto company_db = db::Open(dir.path() / "a" / "Company.db",
                                                 db::OpenMode::kCreate);
      db::CreateCompanySchema(*company_db);
    }
    WriteFile(dir.path() / "t.TCD", n);
    records::CompanyFactory factory(log, dir.path());
    factory.Initialize(dir.path() / "COMPANY3.db");
    records::ClockFileTransfer transfer({dir.path(), dir.path() / "COMPANY3.db"}, log, clock);
    records::TransferOptions options;
    options.use_transactions = state.range(1) == 1;
    state.ResumeTiming();
    const auto result = transfer.Transfer(factory.GetCompany("A"), dir.path() / "t.TCD", options);
    if (result.inserted != n) state.SkipWithError("rows missing");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}
BENCHMARK(BM_TransferFile)
    ->Args({10000, 1})
    ->Args({10000, 0})
    ->ArgNames({"rows", "per_row_tx"})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
