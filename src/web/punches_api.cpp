#include "web/punches_api.h"

#include <cmath>
#include <filesystem>
#include <limits>

#include "core/text.h"
#include "db/location.h"
#include "db/open.h"
#include "records/company_factory.h"
#include "records/employee_hours.h"
#include "records/employee_table.h"
#include "records/stored_punches.h"
#include "records/terminal_data.h"
#include "web/api_reply.h"
#include "web/punch_csv.h"
#include "web/query_params.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;

nlohmann::json Text(std::string_view text) { return core::Utf8FromAnsi(text); }

template <typename T, typename F>
nlohmann::json OrNull(const std::optional<T>& value, F show) {
  return value ? nlohmann::json(show(*value)) : nlohmann::json(nullptr);
}

nlohmann::json PayPeriodJson(records::Company company, const core::DateTime& now) {
  nlohmann::json period = {
      {"type", Text(company.PayPeriodType())}, {"start", nullptr}, {"end", nullptr}};
  if (!records::Company::IsKnownPayPeriodType(core::ToLower(company.PayPeriodType()))) {
    return period;  // the registry holds a type no period can be worked out for
  }
  company.ResyncPayPeriod(now);
  period["start"] = company.PayPeriodStartDateTime().ToString();
  period["end"] = company.PayPeriodEndDateTime().ToString();
  return period;
}

nlohmann::json PunchJson(const records::StoredPunch& p) {
  const auto date = [](const core::Date& d) { return d.ToString(); };
  const auto time = [](const core::TimeOfDay& t) { return t.ToString(); };
  const auto same = [](auto v) { return v; };
  return {{"id", p.id},
          {"sequence", OrNull(p.sequence, same)},
          {"badge", p.badge},
          {"punch_type", Text(p.punch_type)},
          {"department", OrNull(p.department, same)},
          {"job", Text(p.job)},
          {"level4", Text(p.level4)},
          {"level5", Text(p.level5)},
          {"date_in", OrNull(p.date_in, date)},
          {"time_in", OrNull(p.time_in, time)},
          {"date_out", OrNull(p.date_out, date)},
          {"time_out", OrNull(p.time_out, time)},
          {"amount", OrNull(p.amount, same)},
          {"amount_column",
           p.amount_column.empty() ? nlohmann::json(nullptr) : nlohmann::json(p.amount_column)}};
}

double Hundredths(double hours) { return std::round(hours * 100) / 100; }

records::CompanyFactory LoadRegistry(const shell::MyPaths& paths) {
  core::NullLogSink quiet;  // reading the registry is no event
  records::CompanyFactory factory(quiet, paths.DataDirectory());
  factory.Initialize(paths.CompanyRegistryDatabase());
  return factory;
}

}  // namespace

void PunchesApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/companies", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) Companies(res);
  });
  server.Get("/api/v1/employees", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) Employees(req, res);
  });
  server.Get("/api/v1/punches", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) Punches(req, res);
  });
  server.Get("/api/v1/employee-hours", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) EmployeeHours(req, res);
  });
}

std::optional<PunchesApi::OpenCompany> PunchesApi::Open(const std::string& name, Response& res) {
  const records::Company company = LoadRegistry(paths_).GetCompany(name);
  if (company.IsEmpty()) {
    ReplyError(res, 404, "No company named \"" + core::Utf8FromAnsi(name) + "\".");
    return std::nullopt;
  }
  const std::string location = company.ClockwynDatabaseFilename();
  if (!db::IsServerLocation(location) && !std::filesystem::exists(location)) {
    ReplyError(res, 404,
               "The database of company \"" + core::Utf8FromAnsi(company.Name()) +
                   "\" is not there yet: " + core::Utf8FromAnsi(location));
    return std::nullopt;
  }
  return OpenCompany{company, db::Open(location)};
}

void PunchesApi::Companies(Response& res) {
  const core::DateTime now = clock_.Now();
  nlohmann::json companies = nlohmann::json::array();
  for (const records::Company& c : LoadRegistry(paths_).GetCompanyList()) {
    companies.push_back(
        {{"name", Text(c.Name())},
         {"clock", Text(c.ClockName())},
         {"directory", Text(c.DatabaseDirectory())},
         {"database", Text(db::ShownLocation(c.ClockwynDatabaseFilename()))},
         {"pay_period", PayPeriodJson(c, now)},
         {"clock_table_updated", c.ClockDataTableLastUpdated() == core::DateTime()
                                     ? nlohmann::json(nullptr)
                                     : nlohmann::json(c.ClockDataTableLastUpdated().ToString())}});
  }
  ReplyJson(res, 200, {{"companies", std::move(companies)}});
}

void PunchesApi::Employees(const Request& req, Response& res) {
  QueryParams params(req);
  params.Require("company");
  const auto name = params.Text("company");
  const Paging paging = params.Page();
  if (params.Refused(res)) return;
  auto company = Open(*name, res);
  if (!company) return;
  records::EmployeeTable table(*company->db);
  nlohmann::json list = nlohmann::json::array();
  for (const records::Employee& e : table.List(paging.Offset(), paging.page_size)) {
    list.push_back({{"badge", e.card},
                    {"name", Text(e.name)},
                    {"home_department", e.home_department ? nlohmann::json(*e.home_department)
                                                          : nlohmann::json(nullptr)},
                    {"default_job", Text(e.default_job)},
                    {"active", e.active}});
  }
  ReplyJson(res, 200,
            {{"company", Text(company->company.Name())},
             {"employees", std::move(list)},
             {"total", table.Count()},
             {"page", paging.page},
             {"page_size", paging.page_size}});
}

void PunchesApi::Punches(const Request& req, Response& res) {
  QueryParams params(req);
  params.Require("company");
  const auto name = params.Text("company");
  records::PunchFilter filter{.badge = params.Int("badge", 0, std::numeric_limits<int32_t>::max()),
                              .from = params.Date("from"),
                              .to = params.Date("to")};
  const Paging paging = params.Page();
  const std::string format = req.has_param("format") ? req.get_param_value("format") : "json";
  if (params.Refused(res)) return;
  if (filter.from && filter.to && *filter.to < *filter.from) {
    ReplyError(res, 400, "Query parameter \"to\" is before \"from\".");
    return;
  }
  if (format != "json" && format != "csv") {
    ReplyError(
        res, 400,
        "Query parameter \"format\" is \"" + Printable(format) + "\": expected json or csv.");
    return;
  }
  auto company = Open(*name, res);
  if (!company) return;

  if (format == "json") {
    records::StoredPunches punches(*company->db);
    nlohmann::json list = nlohmann::json::array();
    for (const auto& p : punches.Find(filter, paging.Offset(), paging.page_size)) {
      list.push_back(PunchJson(p));
    }
    ReplyJson(res, 200,
              {{"company", Text(company->company.Name())},
               {"punches", std::move(list)},
               {"total", punches.Count(filter)},
               {"page", paging.page},
               {"page_size", paging.page_size}});
    return;
  }

  // Every row, read kCsvBatchRows at a time after the last ID sent, the header before the first.
  struct State {
    std::unique_ptr<db::Database> db;
    records::PunchFilter filter;
    std::string header;
    bool last = false;
  };
  auto state = std::make_shared<State>(State{std::move(company->db), filter, kPunchCsvHeader});
  const auto next = [state] {
    std::string piece = std::exchange(state->header, std::string());
    if (state->last) return piece;
    const auto batch = records::StoredPunches(*state->db).Find(state->filter, 0, kCsvBatchRows);
    for (const auto& p : batch) piece += PunchCsvLine(p);
    if (!batch.empty()) state->filter.after_id = batch.back().id;
    state->last = static_cast<int64_t>(batch.size()) < kCsvBatchRows;
    return piece;
  };
  ReplyStream(res, "text/csv; charset=windows-1252", "punches.csv", next, log_,
              "Console punches export");
}

void PunchesApi::EmployeeHours(const Request& req, Response& res) {
  QueryParams params(req);
  params.Require("badge");
  const auto badge = params.Int("badge", 0, std::numeric_limits<int32_t>::max());
  const auto name = params.Text("company");
  if (params.Refused(res)) return;
  const core::DateTime now = clock_.Now();

  records::HoursAnswer answer;
  nlohmann::json company_name = nullptr;
  if (name) {  // one company's employee
    auto company = Open(*name, res);
    if (!company) return;
    records::EmployeeHours hours;
    hours.Load(*company->db, company->company, static_cast<int>(*badge), now);
    answer = {.valid = hours.IsValid(),
              .invalid_reason = hours.InvalidReason(),
              .name = hours.Name(),
              .today_hours = hours.TodayHours(),
              .period_hours = hours.PeriodHours()};
    company_name = Text(company->company.Name());
  } else {  // what a terminal's request, which names no company, is answered
    records::CompanyFactory registry = LoadRegistry(paths_);
    answer = records::TerminalData(registry, log_).Hours(static_cast<int>(*badge), now);
  }
  nlohmann::json body = {{"badge", *badge}, {"company", company_name}, {"valid", answer.valid}};
  if (answer.valid) {
    body["name"] = Text(answer.name);
    body["today_hours"] = Hundredths(answer.today_hours);
    body["period_hours"] = Hundredths(answer.period_hours);
  } else {
    body["reason"] = Text(answer.invalid_reason);
  }
  ReplyJson(res, 200, body);
}

}  // namespace clockcomm::web
