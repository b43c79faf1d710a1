// A data directory with a registry, one company and its database, for the transfer and intake
// tests, and the helpers the record tests share.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/log_sink.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/clock_file_transfer.h"
#include "records/company_factory.h"
#include "test_support/temp_dir.h"

namespace clockcomm::records::test_support {

inline core::Date D(int y, int m, int d) { return *core::Date::FromYmd(y, m, d); }
inline core::TimeOfDay T(int h, int n, int s = 0) { return *core::TimeOfDay::FromHms(h, n, s); }

// Each row a query gives as its fields' text joined by '|', NULL as '-'.
inline std::vector<std::string> RowsText(db::Database& db, const std::string& sql) {
  std::vector<std::string> rows;
  for (auto rs = db.Query(sql); !rs.Eof(); rs.MoveNext()) {
    std::string row;
    for (size_t i = 0; i < rs.FieldCount(); ++i) {
      row += (i == 0 ? "" : "|") + (rs.Field(i).IsNull() ? "-" : rs.Field(i).AsText());
    }
    rows.push_back(row);
  }
  return rows;
}

class RecordingLog : public core::LogSink {
 public:
  void Event(std::string_view type, std::string_view d) override {
    events.push_back(std::string(type) + ": " + std::string(d));
  }
  void Debug(std::string_view, std::string_view) override {}
  void Screen(std::string_view m) override { screen.emplace_back(m); }
  std::vector<std::string> events, screen;
};

class TransferFixture {
 public:
  // company_database: empty for acme/Company.db, else the location the registry names for it.
  explicit TransferFixture(const std::string& company_database = "") {
    registry_path = dir.path() / "COMPANY3.db";
    auto registry = db::Open(registry_path, db::OpenMode::kCreate);
    db::CreateCompanyRegistrySchema(*registry);
    registry->Execute(
        "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
        "[Pay Period Type], [Database]) VALUES ('Acme', 'Front', 'acme', '2009-10-18', 'weekly', "
        "?)",
        {company_database});
    std::filesystem::create_directory(dir.path() / "acme");
    company_db_path = company_database.empty() ? dir.path() / "acme" / "Company.db"
                                               : std::filesystem::path(company_database);
    db::CreateCompanySchema(*db::Open(company_db_path, db::OpenMode::kCreate));
  }

  Company LoadCompany() {
    CompanyFactory factory(log, dir.path());
    factory.Initialize(registry_path);
    return factory.GetCompany("Acme");
  }
  std::unique_ptr<db::Database> OpenCompanyDb() { return db::Open(company_db_path); }
  // Transfers a clock file of the company, logging to log.
  TransferResult Transfer(const std::filesystem::path& file, const TransferOptions& options = {}) {
    return ClockFileTransfer({dir.path(), registry_path}, log, clock)
        .Transfer(LoadCompany(), file, options);
  }
  // The given columns of [Clock Data Table], in punch order.
  std::vector<std::string> Rows(const std::string& columns) {
    return RowsText(*OpenCompanyDb(),
                    "SELECT " + columns + " FROM [Clock Data Table] ORDER BY Punch");
  }
  int64_t RowCount() {
    return OpenCompanyDb()->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt();
  }

  test::TempDir dir;
  std::filesystem::path registry_path;
  std::filesystem::path company_db_path;
  RecordingLog log;
  core::ManualClock clock{core::DateTime(D(2009, 10, 21), T(9, 0))};
};

}  // namespace clockcomm::records::test_support
