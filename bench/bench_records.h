// What the record benchmarks share: a scratch folder, the punches of a large site, a TCD file of
// them, and a rate counter.
#pragma once

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "db/open.h"
#include "db/schema.h"
#include "records/tcd_file_writer.h"
#include "records/tcd_record.h"

namespace clockcomm::bench {
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

inline records::TcdRecord Punch(int i) {
  static const char* kTypes[] = {"I", "O", "LO", "LI", "T"};
  return records::TcdRecord(
      "999", i, 1000 + i % 250, i % 4 ? std::optional<int64_t>(i % 50) : std::nullopt,
      i % 3 ? "job" : "", "", "", kTypes[i % 5],
      core::Date::FromYmd(2009, 10, 20)->AddDays(i / 1000),
      core::TimeOfDay::FromSeconds(i * 37 % 86400), std::nullopt, std::nullopt,
      i % 5 == 4 ? std::optional<float>(12.5f) : std::nullopt, "1");
}

inline void WriteFile(const fs::path& file, int n) {
  records::TcdFileWriter writer(file, false);
  for (int i = 1; i <= n; ++i) writer.WriteRecord(Punch(i));
  writer.CloseWriter();
}

inline double Rate(benchmark::State& state, std::chrono::steady_clock::duration elapsed,
                   double items) {
  const double per_second = items / std::chrono::duration<double>(elapsed).count();
  state.counters["per_s"] = per_second;
  return per_second;
}

// A registry in dir with company "A" of clock "C" in folder "a", its database the file
// a/Company.db or, when given, company_database (which must have the company's tables).
inline void MakeCompany(const fs::path& dir, const std::string& company_database = "") {
  auto registry = db::Open(dir / "COMPANY3.db", db::OpenMode::kCreate);
  db::CreateCompanyRegistrySchema(*registry);
  registry->Execute(
      "INSERT INTO Company ([Company], [Clock Name], [Directory], [Database]) "
      "VALUES ('A', 'C', 'a', ?)",
      {company_database});
  fs::create_directory(dir / "a");
  if (company_database.empty()) {
    db::CreateCompanySchema(*db::Open(dir / "a" / "Company.db", db::OpenMode::kCreate));
  }
}

}  // namespace clockcomm::bench
