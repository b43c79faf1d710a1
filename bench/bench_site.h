// A program folder with one company, for the benchmarks of whole calls and polls.
#pragma once

#include <sys/resource.h>

#include <filesystem>
#include <memory>

#include "core/clock.h"
#include "db/open.h"
#include "records/company_factory.h"
#include "records/company_registration.h"
#include "shell/line_runner.h"
#include "shell/logs.h"
#include "shell/program_folder.h"
#include "terminal/call_controller.h"

namespace clockcomm::bench {

namespace fs = std::filesystem;

class NullScreen : public terminal::ScreenSink {
 public:
  void Line(std::string_view) override {}
  void Status(std::string_view) override {}
  void AppendStatus(std::string_view) override {}
};

// A program folder with one company for the terminal's clock.
struct Site {
  Site() {
    char tmpl[] = "/tmp/clockcomm-bench-XXXXXX";
    home = mkdtemp(tmpl);
    shell::InitializeProgramFolder(home, false);
    config = shell::MyStatic::Load(home);
    paths = std::make_unique<shell::MyPaths>(config->Paths());
    records::NewCompany company;
    company.name = "Bench";
    company.clock_name = "DEMODATA";
    company.directory = "bench";
    company.start = clock.Now().GetDate();
    records::RegisterCompany({paths->CompanyRegistryDatabase(), paths->DataDirectory(),
                              paths->CompanyDirectory("bench"), paths->CompanyDatabase("bench")},
                             company);
    logs = std::make_unique<shell::Logs>(*paths, clock);
    controller = std::make_unique<terminal::CallController>(clock, *logs, screen);
    companies = std::make_unique<records::CompanyFactory>(*logs, paths->DataDirectory());
    companies->Initialize(paths->CompanyRegistryDatabase());
    services = std::make_unique<shell::LineServices>(
        shell::LineServices{*paths, records::ParameterOverride(), companies.get(), nullptr});
  }
  ~Site() {
    std::error_code ec;
    fs::remove_all(home, ec);
  }
  int64_t Rows() {
    auto db = db::Open(paths->CompanyDatabase("bench"));
    return db->Query("SELECT COUNT(*) FROM [Clock Data Table]").Field(0).AsInt();
  }

  fs::path home;
  core::SystemClock clock;
  NullScreen screen;
  std::unique_ptr<shell::MyStatic> config;
  std::unique_ptr<shell::MyPaths> paths;
  std::unique_ptr<shell::Logs> logs;
  std::unique_ptr<terminal::CallController> controller;
  std::unique_ptr<records::CompanyFactory> companies;
  std::unique_ptr<shell::LineServices> services;
};

// CPU seconds this process has used, user and system.
inline double ProcessCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

}  // namespace clockcomm::bench
