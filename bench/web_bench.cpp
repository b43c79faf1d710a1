// The console's API under load: requests per second of GET /api/v1/terminals on a site of 1,000
// terminals (10 companies' clocks and 990 poll-list locations, each with its last call in the
// event log, and punches in every company database), beside GET /api/v1/session on the same
// server with the same session check (the server's own limit: a connection, HTTP, routing, the
// cookie and the operator read again, a small JSON body). The server closes each connection after
// its answer, so every request here is a new connection, as a browser's would be. The list is
// answered from its last gathering for kTerminalsFresh; BM_TerminalsGathered1000 times a gathering.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "bench_limit.h"
#include "core/clock.h"
#include "db/open.h"
#include "records/company_registration.h"
#include "shell/logs.h"
#include "shell/program_folder.h"
#include "shell/site_status.h"
#include "web/console_server.h"
#include "web/terminal_json.h"

namespace clockcomm {
namespace {

constexpr int kTerminals = 1000;
constexpr int kCompanies = 10;
constexpr int kPunchesPerCompany = 500;
bench::Limit session_limit;  // requests per second

struct ConsoleSite {
  ConsoleSite() {
    char tmpl[] = "/tmp/clockcomm-bench-XXXXXX";
    home = mkdtemp(tmpl);
    shell::InitializeProgramFolder(home, false);
    config = shell::MyStatic::Load(home);
    const shell::MyPaths paths = config->Paths();
    const core::DateTime now = clock.Now();
    for (int c = 0; c < kCompanies; ++c) {
      const std::string dir = "co" + std::to_string(c);
      records::NewCompany company;
      company.name = "Company " + std::to_string(c);
      company.clock_name = "CLOCK" + std::to_string(c);
      company.directory = dir;
      company.start = now.GetDate();
      records::RegisterCompany({paths.CompanyRegistryDatabase(), paths.DataDirectory(),
                                paths.CompanyDirectory(dir), paths.CompanyDatabase(dir)},
                               company);
      auto db = db::Open(paths.CompanyDatabase(dir));
      db::Transaction t(*db);
      for (int p = 0; p < kPunchesPerCompany; ++p) {
        db->Execute(
            "INSERT INTO [Clock Data Table] ([Card ID], [Punch Type], [Date In], [Time In]) "
            "VALUES (?, 'I', ?, ?)",
            {p, now.GetDate().AddDays(-(p % 3)), now.GetTime()});
      }
      t.Commit();
    }
    auto product = db::Open(paths.ClockwynDatabase());
    auto events = db::Open(paths.EventLogDatabase());
    db::Transaction tp(*product), te(*events);
    for (int i = 0; i < kTerminals; ++i) {
      const std::string name =
          i < kCompanies ? "CLOCK" + std::to_string(i) : "LOC" + std::to_string(i);
      if (i >= kCompanies) {
        product->Execute("INSERT INTO PollT (LocationName, DialTime) VALUES (?, '06:00')", {name});
      }
      events->Execute(
          "INSERT INTO LogTable ([DateTime], ClockName, ClockNumber, EventType, EventDes) "
          "VALUES (?, ?, ?, 'End of call', '10 punches')",
          {now.AddDays(-(i % 2)), name, i});
    }
    tp.Commit();
    te.Commit();
    logs = std::make_unique<shell::Logs>(paths, clock);
    console = std::make_unique<web::ConsoleServer>(*config, clock, *logs);
    console->Operators().Add("bench", web::Role::kViewer, "bench-password");
    console->Bind({"127.0.0.1", 0});
    thread = std::thread([this] { console->Run(); });
  }
  ~ConsoleSite() {
    console->Stop();
    thread.join();
    std::error_code ec;
    std::filesystem::remove_all(home, ec);
  }
  // A client logged in as the bench operator.
  std::unique_ptr<httplib::Client> Client() {
    auto client = std::make_unique<httplib::Client>("127.0.0.1", console->Port());
    auto res = client->Post("/api/v1/session", R"({"name":"bench","password":"bench-password"})",
                            "application/json");
    if (!res || res->status != 200) return nullptr;
    const std::string cookie = res->get_header_value("Set-Cookie");
    client->set_default_headers({{"Cookie", cookie.substr(0, cookie.find(';'))}});
    return client;
  }

  std::filesystem::path home;
  core::SystemClock clock;
  std::unique_ptr<shell::MyStatic> config;
  std::unique_ptr<shell::Logs> logs;
  std::unique_ptr<web::ConsoleServer> console;
  std::thread thread;
};

ConsoleSite& Site() {
  static ConsoleSite site;
  return site;
}

// Requests per second of GET path; fails the benchmark on any answer but 200.
double Run(benchmark::State& state, const std::string& path, size_t* body_size) {
  auto client = Site().Client();
  if (!client) {
    state.SkipWithError("cannot log in");
    return 0;
  }
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    auto res = client->Get(path);
    if (!res || res->status != 200) {
      state.SkipWithError(("GET " + path + " failed").c_str());
      return 0;
    }
    *body_size = res->body.size();
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  const double per_second = static_cast<double>(state.iterations()) / took.count();
  state.counters["req_per_s"] = per_second;
  state.counters["body_bytes"] = static_cast<double>(*body_size);
  return per_second;
}

void BM_SessionLimit(benchmark::State& state) {
  size_t body = 0;
  session_limit.Record(Run(state, "/api/v1/session", &body));
}
BENCHMARK(BM_SessionLimit)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(2.0);

void BM_Terminals1000(benchmark::State& state) {
  size_t body = 0;
  const double per_second = Run(state, "/api/v1/terminals", &body);
  auto check = Site().Client()->Get("/api/v1/terminals");
  const auto terminals = nlohmann::json::parse(check->body).at("terminals").size();
  if (terminals != kTerminals) state.SkipWithError("not 1,000 terminals in the list");
  session_limit.Report(state, per_second);
}
BENCHMARK(BM_Terminals1000)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5.0);

// What one answer costs when the list is not fresh (every kTerminalsFresh): the site gathered
// from its databases and written as JSON, as the endpoint does, without HTTP.
void BM_TerminalsGathered1000(benchmark::State& state) {
  ConsoleSite& site = Site();
  size_t bytes = 0;
  for (auto _ : state) {
    const shell::SiteStatus status = shell::GatherSiteStatus(*site.config, site.clock, {});
    bytes = web::TerminalsJson(status, web::HealthRules{}).dump().size();
    benchmark::DoNotOptimize(bytes);
  }
  state.counters["body_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_TerminalsGathered1000)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

}  // namespace
}  // namespace clockcomm

BENCHMARK_MAIN();
