#include "db/table_copy.h"

#include <algorithm>

#include "db/location.h"
#include "db/postgres/postgres_sql.h"

namespace clockcomm::db {
namespace {

// Rows read from the source at a time (each batch is one transaction on the target).
constexpr int64_t kBatchRows = 5000;
// Rows per INSERT statement: fewer round trips to a server, far below its parameter limit.
constexpr size_t kRowsPerInsert = 100;

std::string Join(const std::vector<std::string>& items, const std::string& separator) {
  std::string out;
  for (const auto& item : items) out += (out.empty() ? "" : separator) + item;
  return out;
}

std::string Bracketed(const std::string& column) { return "[" + column + "]"; }

std::string Unbracketed(const std::string& name) {
  if (name.size() > 2 && name.front() == '[' && name.back() == ']') {
    return name.substr(1, name.size() - 2);
  }
  return name;
}

bool SameName(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

// The target's names of the source's columns, bracketed: a server keeps a name declared without
// quotes in lower case, SQLite as declared.
std::vector<std::string> TargetColumns(Database& from, Database& to, const std::string& table,
                                       const std::vector<std::string>& source_columns) {
  const auto target = to.Query("SELECT * FROM " + table + " WHERE 1 = 0").Columns();
  std::vector<std::string> columns;
  for (const auto& c : source_columns) {
    const auto found = std::find_if(target.begin(), target.end(),
                                    [&](const std::string& t) { return SameName(t, c); });
    if (found == target.end()) {
      throw DatabaseError(0, "Cannot copy " + table + " of " + from.Name() + " into " + to.Name() +
                                 ": the server's table has no column " + c);
    }
    columns.push_back(Bracketed(*found));
  }
  return columns;
}

int64_t CountRows(Database& db, const std::string& table) {
  return db.Query("SELECT COUNT(*) FROM " + table).Field(0).AsInt();
}

// Inserts rows (each in columns order), skipping those whose key the target holds.
int64_t InsertRows(Database& to, const std::string& table, const std::vector<std::string>& columns,
                   const std::vector<std::vector<Value>>& rows, size_t begin, size_t end) {
  const std::string placeholders =
      "(" + Join(std::vector<std::string>(columns.size(), "?"), ", ") + ")";
  int64_t written = 0;
  for (size_t first = begin; first < end; first += kRowsPerInsert) {
    const size_t last = std::min(end, first + kRowsPerInsert);
    std::string sql = "INSERT INTO " + table + " (" + Join(columns, ", ") + ") VALUES ";
    Params params;
    for (size_t r = first; r < last; ++r) {
      sql += (r == first ? "" : ", ") + placeholders;
      params.insert(params.end(), rows[r].begin(), rows[r].end());
    }
    written += to.Execute(sql + " ON CONFLICT DO NOTHING", params);
  }
  return written;
}

// A table without a key: the whole contents compared, and replaced when allowed.
void CopyUnkeyed(Database& from, Database& to, const KeyedTable& keyed, bool replace,
                 TableCopyResult& result) {
  const std::string select = "SELECT * FROM " + keyed.table;
  auto source = from.Query(select);
  auto target = to.Query(select);
  auto texts = [](const Recordset& rs) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& row : rs.Rows()) {
      auto& out = rows.emplace_back();
      for (const auto& v : row) out.push_back(v.IsNull() ? std::string("\x01null") : v.AsText());
    }
    std::sort(rows.begin(), rows.end());
    return rows;
  };
  if (texts(source) == texts(target)) return;
  if (!replace) {
    result.kept_target = true;
    return;
  }
  const auto columns = TargetColumns(from, to, keyed.table, source.Columns());
  Transaction t(to);
  to.Execute("DELETE FROM " + keyed.table);
  if (!columns.empty()) {
    result.copied = InsertRows(to, keyed.table, columns, source.Rows(), 0, source.RecordCount());
  }
  t.Commit();
}

// An identity numbers from its own counter, which explicit keys do not move.
void MoveIdentityPast(Database& to, const KeyedTable& keyed) {
  if (!IsServerLocation(to.Name()) || keyed.key.size() != 1) return;
  auto seq = to.Query("SELECT pg_get_serial_sequence(?, ?)",
                      {"\"" + StoredName(keyed.table) + "\"", StoredName(keyed.key[0])});
  if (seq.Field(0).IsNull()) return;
  const Value largest = to.Query("SELECT MAX(" + keyed.key[0] + ") FROM " + keyed.table).Field(0);
  if (largest.IsNull()) return;
  to.Query("SELECT setval(?::regclass, ?)", {seq.Field(0).AsText(), largest.AsInt()});
}

}  // namespace

TableCopyResult CopyTable(Database& from, Database& to, const KeyedTable& keyed,
                          bool replace_unkeyed, const CopyProgress& progress) {
  TableCopyResult result{.table = keyed.table};
  result.source_rows = CountRows(from, keyed.table);
  if (keyed.key.empty()) {
    CopyUnkeyed(from, to, keyed, replace_unkeyed, result);
    result.target_rows = CountRows(to, keyed.table);
    return result;
  }

  // Read in key order, each batch after the last key of the one before.
  const std::string key_list = Join(keyed.key, ", ");
  const std::string after = " WHERE (" + key_list + ") > (" +
                            Join(std::vector<std::string>(keyed.key.size(), "?"), ", ") + ")";
  const std::string order = " ORDER BY " + key_list + " LIMIT " + std::to_string(kBatchRows);
  Params last_key;
  int64_t done = 0;
  for (;;) {
    auto batch = from.Query(
        "SELECT * FROM " + keyed.table + (last_key.empty() ? "" : after) + order, last_key);
    if (batch.RecordCount() == 0) break;
    const auto columns = TargetColumns(from, to, keyed.table, batch.Columns());
    std::vector<size_t> key_index;
    for (const auto& k : keyed.key) {
      const auto& names = batch.Columns();
      const auto found = std::find_if(names.begin(), names.end(), [&](const std::string& c) {
        return SameName(c, Unbracketed(k));
      });
      if (found == names.end()) {
        throw DatabaseError(
            0, "Cannot copy " + keyed.table + " of " + from.Name() + ": it has no column " + k);
      }
      key_index.push_back(static_cast<size_t>(found - names.begin()));
    }
    Transaction t(to);
    result.copied += InsertRows(to, keyed.table, columns, batch.Rows(), 0, batch.RecordCount());
    t.Commit();
    done += static_cast<int64_t>(batch.RecordCount());
    if (progress) progress(done, result.source_rows);
    last_key.clear();
    for (size_t i : key_index) last_key.push_back(batch.Rows().back()[i]);
    if (batch.RecordCount() < static_cast<size_t>(kBatchRows)) break;
  }
  MoveIdentityPast(to, keyed);
  result.target_rows = CountRows(to, keyed.table);
  return result;
}

}  // namespace clockcomm::db
