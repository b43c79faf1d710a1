#include "records/stored_punches.h"

#include "records/amount_column.h"

namespace clockcomm::records {
namespace {

// The WHERE clause of a filter, its values appended to params.
std::string Where(const PunchFilter& filter, db::Params& params) {
  std::string where = " WHERE ID > ?";
  params.emplace_back(filter.after_id);
  if (filter.badge) {
    where += " AND [Card ID] = ?";
    params.emplace_back(*filter.badge);
  }
  if (filter.from) {
    where += " AND COALESCE([Date In], [Date Out]) >= ?";
    params.emplace_back(*filter.from);
  }
  if (filter.to) {
    where += " AND COALESCE([Date In], [Date Out]) <= ?";
    params.emplace_back(*filter.to);
  }
  return where;
}

// The amount of a row: in its punch type's column, else in whichever column holds one.
void ReadAmount(const db::Recordset& rs, StoredPunch& p) {
  const auto take = [&](const char* column) {
    p.amount = rs.Field(column).AsOptionalDouble();
    if (p.amount) p.amount_column = column;
    return p.amount.has_value();
  };
  if (take(AmountColumnForPunchType(p.punch_type))) return;
  for (const char* column : kAmountColumns) {
    if (take(column)) return;
  }
}

}  // namespace

int64_t StoredPunches::Count(const PunchFilter& filter) {
  db::Params params;
  const std::string where = Where(filter, params);
  return db_.Query("SELECT COUNT(*) FROM [Clock Data Table]" + where, params).Field(0).AsInt();
}

std::vector<StoredPunch> StoredPunches::Find(const PunchFilter& filter, int64_t offset,
                                             int64_t limit) {
  db::Params params;
  const std::string where = Where(filter, params);
  params.emplace_back(limit);
  params.emplace_back(offset);
  auto rs = db_.Query(
      "SELECT ID, Punch, [Card ID], Department, JobNumber, Level4, Level5, [Punch Type], "
      "[Date In], [Time In], [Date Out], [Time Out], Quantity, Tips, Advances, Other, Sick, "
      "Vacation, Personal, Bonus, Holiday FROM [Clock Data Table]" +
          where + " ORDER BY ID LIMIT ? OFFSET ?",
      params);
  std::vector<StoredPunch> punches;
  for (; !rs.Eof(); rs.MoveNext()) {
    StoredPunch p;
    p.id = rs.Field("ID").AsInt();
    p.sequence = rs.Field("Punch").AsOptionalInt();
    p.badge = rs.Field("Card ID").AsInt();
    p.punch_type = rs.Field("Punch Type").AsText();
    p.department = rs.Field("Department").AsOptionalInt();
    p.job = rs.Field("JobNumber").AsText();
    p.level4 = rs.Field("Level4").AsText();
    p.level5 = rs.Field("Level5").AsText();
    p.date_in = rs.Field("Date In").AsDate();
    p.time_in = rs.Field("Time In").AsTime();
    p.date_out = rs.Field("Date Out").AsDate();
    p.time_out = rs.Field("Time Out").AsTime();
    ReadAmount(rs, p);
    punches.push_back(std::move(p));
  }
  return punches;
}

}  // namespace clockcomm::records
