#include "records/employee_hours.h"

#include <algorithm>
#include <vector>

#include "core/text.h"

namespace clockcomm::records {
namespace {

struct Mark {
  core::DateTime at;
  bool starts_work;  // an in-type punch opens a stretch of work, an out-type punch closes it
};

// Punch types that open a stretch of work; every other timed punch closes one.
bool OpensWork(const std::string& type) {
  return type == "I" || type == "LI" || type == "BI" || type == "PI" || type == "SW";
}

std::optional<core::DateTime> At(const db::Recordset& rs, const char* date, const char* time) {
  auto d = rs.Field(date).AsDate();
  if (!d) return std::nullopt;
  return core::DateTime(*d, rs.Field(time).AsTime().value_or(core::TimeOfDay()));
}

// Seconds of [a, b) that fall inside [from, to).
int64_t Overlap(const core::DateTime& a, const core::DateTime& b, const core::DateTime& from,
                const core::DateTime& to) {
  const auto start = std::max(a, from);
  const auto end = std::min(b, to);
  return end > start ? core::SecondsBetween(start, end) : 0;
}

}  // namespace

void EmployeeHours::Load(db::Database& company_db, records::Company company, int badge,
                         const core::DateTime& now) {
  valid_ = false;
  today_hours_ = period_hours_ = 0;
  auto employee = company_db.Query(
      "SELECT [Employee Name], Active FROM [Employee Table] WHERE [Card ID] = ?", {badge});
  if (employee.Eof()) {
    invalid_reason_ = "Badge " + std::to_string(badge) + " not found";
    return;
  }
  if (!employee.Field("Active").AsBool()) {
    invalid_reason_ = "Badge " + std::to_string(badge) + " is not active";
    return;
  }
  name_ = employee.Field("Employee Name").AsText();

  std::vector<Mark> marks;
  auto rows = company_db.Query(
      "SELECT [Punch Type], [Date In], [Time In], [Date Out], [Time Out] "
      "FROM [Clock Data Table] WHERE [Card ID] = ?",
      {badge});
  for (; !rows.Eof(); rows.MoveNext()) {
    const std::string type = core::ToUpper(core::Trim(rows.Field("Punch Type").AsText()));
    auto in = At(rows, "Date In", "Time In");
    auto out = At(rows, "Date Out", "Time Out");
    if (type == "C") {  // a complete pair carries both ends
      if (in && out) {
        marks.push_back({*in, true});
        marks.push_back({*out, false});
      }
      continue;
    }
    if (in) marks.push_back({*in, OpensWork(type)});
    if (out) marks.push_back({*out, OpensWork(type)});
  }
  std::stable_sort(marks.begin(), marks.end(),
                   [](const Mark& a, const Mark& b) { return a.at < b.at; });

  const core::DateTime today_start(now.GetDate(), core::TimeOfDay());
  company.ResyncPayPeriod(now);
  const core::DateTime period_start = company.PayPeriodStartDateTime();
  int64_t today_seconds = 0, period_seconds = 0;
  std::optional<core::DateTime> open;
  auto close_at = [&](const core::DateTime& end) {
    today_seconds += Overlap(*open, end, today_start, now);
    period_seconds += Overlap(*open, end, period_start, now);
    open.reset();
  };
  for (const Mark& m : marks) {
    if (m.at > now) break;
    if (m.starts_work) {
      if (!open) open = m.at;  // a second in without an out keeps the first
    } else if (open) {
      close_at(m.at);
    }
  }
  if (open) close_at(now);  // still at work: counted up to the request
  today_hours_ = static_cast<double>(today_seconds) / 3600.0;
  period_hours_ = static_cast<double>(period_seconds) / 3600.0;
  valid_ = true;
  invalid_reason_.clear();
}

}  // namespace clockcomm::records
