// A data directory with a registry, one company and its database, for the transfer tests.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/log_sink.h"
#include "db/schema.h"
#include "db/open.h"
#include "records/company_factory.h"
#include "test_support/temp_dir.h"

namespace clockcomm::records::test_support {

class RecordingLog : public core::LogSink {
 public:
  void Event(std::string_view type, std::string_view d) override {
    events.push_back(std::string(type) + ": " + std::string(d));
  }
  void Debug(std::string_view, std::string_view) override {}
  void Screen(std::string_view m) override { screen.push_back(std::string(m)); }
  bool HasEvent(std::string_view part) const {
    for (const auto& e : events) {
      if (e.find(part) != std::string::npos) return true;
    }
    return false;
  }
  bool HasScreen(std::string_view part) const {
    for (const auto& e : screen) {
      if (e.find(part) != std::string::npos) return true;
    }
    return false;
  }
  std::vector<std::string> events;
  std::vector<std::string> screen;
};

class TransferFixture {
 public:
  TransferFixture() {
    registry_path = dir.path() / "COMPANY3.db";
    auto registry = db::Open(registry_path, db::OpenMode::kCreate);
    db::CreateCompanyRegistrySchema(*registry);
    registry->Execute(
        "INSERT INTO Company ([Company], [Clock Name], [Directory], [Current Start Date], "
        "[Pay Period Type]) VALUES ('Acme', 'Front', 'acme', '2009-10-18', 'weekly')");
    std::filesystem::create_directory(dir.path() / "acme");
    company_db_path = dir.path() / "acme" / "Company.db";
    auto company_db = db::Open(company_db_path, db::OpenMode::kCreate);
    db::CreateCompanySchema(*company_db);
  }

  Company LoadCompany() {
    CompanyFactory factory(log, dir.path());
    factory.Initialize(registry_path);
    return factory.GetCompany("Acme");
  }

  std::unique_ptr<db::Database> OpenCompanyDb() {
    return db::Open(company_db_path);
  }

  int64_t RowCount() {
    return OpenCompanyDb()->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt();
  }

  test::TempDir dir;
  std::filesystem::path registry_path;
  std::filesystem::path company_db_path;
  RecordingLog log;
  core::ManualClock clock{
      core::DateTime(*core::Date::FromYmd(2009, 10, 21), *core::TimeOfDay::FromHms(9, 0))};
};

}  // namespace clockcomm::records::test_support
