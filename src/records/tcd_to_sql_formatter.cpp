#include "records/tcd_to_sql_formatter.h"

#include <cmath>
#include <optional>
#include <vector>

#include "core/errors.h"
#include "core/text.h"
#include "records/amount_column.h"
#include "records/tcd_record_static.h"

namespace clockcomm::records {
namespace {

// The thirteen fields, checked and converted once for both forms.
struct InsertFields {
  int64_t sequence = 0;
  int64_t card = 0;
  std::optional<int64_t> department;
  std::string job, level4, level5, punch_type;
  std::optional<core::Date> date_in, date_out;
  std::optional<core::TimeOfDay> time_in, time_out;
  std::optional<double> amount;
  std::string amount_text;
};

std::optional<core::Date> DateField(const std::string& text, const char* name) {
  if (text.empty()) return std::nullopt;
  auto d = TcdRecordStatic::ParseDateField(text);
  if (!d) throw core::FormatException(std::string(name) + " '" + text + "' is not a date.");
  return d;
}

std::optional<core::TimeOfDay> TimeField(const std::string& text, const char* name) {
  if (text.empty()) return std::nullopt;
  auto t = TcdRecordStatic::ParseTimeField(text);
  if (!t) throw core::FormatException(std::string(name) + " '" + text + "' is not a time.");
  return t;
}

InsertFields ReadFields(std::string_view line) {
  auto raw = core::Split(line, ',');
  if (raw.size() != TcdToSqlFormatter::kFieldCount) {
    throw core::FormatException("Invalid number of fields found. Requires " +
                                std::to_string(TcdToSqlFormatter::kFieldCount) + ".");
  }
  std::vector<std::string> f;
  for (const auto& field : raw) f.push_back(core::Trim(core::ReplaceAll(field, "\"", "")));
  InsertFields in;
  in.sequence = static_cast<int64_t>(core::LeadingNumber(f[0]));
  in.card =
      static_cast<int64_t>(core::LeadingNumber(TcdRecordStatic::ConvertLettersToNumbers(f[1])));
  if (!f[2].empty()) {
    auto dept = core::ParseNumber(TcdRecordStatic::ConvertLettersToNumbers(f[2]));
    if (!dept) throw core::FormatException("Department '" + f[2] + "' is not a number.");
    in.department = static_cast<int64_t>(std::nearbyint(*dept));
  }
  in.job = f[3];
  in.level4 = f[4];
  in.level5 = f[5];
  in.punch_type = f[6];
  in.date_in = DateField(f[7], "Date In");
  in.time_in = TimeField(f[8], "Time In");
  in.date_out = DateField(f[9], "Date Out");
  in.time_out = TimeField(f[10], "Time Out");
  if (!f[11].empty()) {
    in.amount = core::ParseNumber(f[11]);
    if (!in.amount) throw core::FormatException("Amount '" + f[11] + "' is not a number.");
    in.amount_text = core::NumberText(*in.amount);
  }
  return in;
}

std::string ColumnList(const InsertFields& in) {
  std::string sql = "INSERT INTO [Clock Data Table] (Punch, [Card ID],";
  if (in.department) sql += " Department,";
  sql += "JobNumber, Level4, Level5, [Punch Type]";
  if (in.date_in) sql += ",[Date In]";
  if (in.time_in) sql += ",[Time In]";
  if (in.date_out) sql += ",[Date Out]";
  if (in.time_out) sql += ",[Time Out]";
  if (in.amount) {
    sql += ",";
    sql += AmountColumnBySearch(in.punch_type);
  }
  return sql;
}

}  // namespace

std::string TcdToSqlFormatter::Format(std::string_view line) const {
  const InsertFields in = ReadFields(line);
  std::string sql = ColumnList(in) + ") VALUES (";
  sql += std::to_string(in.sequence) + "," + std::to_string(in.card);
  if (in.department) sql += ", " + std::to_string(*in.department);
  sql +=
      ",\"" + in.job + "\",\"" + in.level4 + "\",\"" + in.level5 + "\",\"" + in.punch_type + "\"";
  if (in.date_in) sql += ",#" + in.date_in->Format(core::kFormatSqlDate) + "#";
  if (in.time_in) sql += ",#" + in.time_in->Format("hh:nn") + "#";
  if (in.date_out) sql += ",#" + in.date_out->Format(core::kFormatSqlDate) + "#";
  if (in.time_out) sql += ",#" + in.time_out->Format("hh:nn") + "#";
  if (in.amount) sql += "," + in.amount_text;
  sql += ");";
  return sql;
}

SqlStatement TcdToSqlFormatter::ToStatement(std::string_view line) const {
  const InsertFields in = ReadFields(line);
  SqlStatement st;
  st.sql = ColumnList(in) + ") VALUES (?, ?";
  st.params = {in.sequence, in.card};
  if (in.department) st.params.emplace_back(*in.department);
  for (const auto* text : {&in.job, &in.level4, &in.level5, &in.punch_type}) {
    st.params.emplace_back(*text);
  }
  if (in.date_in) st.params.emplace_back(*in.date_in);
  // Times to the minute, as the text form writes them.
  if (in.time_in) st.params.emplace_back(in.time_in->WithoutSeconds());
  if (in.date_out) st.params.emplace_back(*in.date_out);
  if (in.time_out) st.params.emplace_back(in.time_out->WithoutSeconds());
  if (in.amount) st.params.emplace_back(*in.amount);
  for (size_t i = 2; i < st.params.size(); ++i) st.sql += ", ?";
  st.sql += ")";
  return st;
}

}  // namespace clockcomm::records
