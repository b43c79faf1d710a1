#include "db/postgres/postgres_database.h"

#include <libpq-fe.h>

#include <charconv>
#include <cstdlib>
#include <vector>

#include "core/errors.h"
#include "core/text.h"
#include "db/postgres/postgres_copy.h"

namespace clockcomm::db {
namespace {

// Statements kept prepared per connection; beyond this the cache is emptied.
constexpr size_t kStatementCacheLimit = 64;
// Type OIDs (pg_type.h is a server header; these numbers are fixed for all versions).
constexpr Oid kBoolOid = 16, kInt8Oid = 20, kInt2Oid = 21, kInt4Oid = 23, kOidOid = 26;
constexpr Oid kFloat4Oid = 700, kFloat8Oid = 701, kNumericOid = 1700;

struct ResultDeleter {
  void operator()(PGresult* r) const { PQclear(r); }
};
using Result = std::unique_ptr<PGresult, ResultDeleter>;

DatabaseError::Cause CauseOf(std::string_view sqlstate) {
  // 40001 serialization failure, 40P01 deadlock, 55P03 lock not available: try again later.
  if (sqlstate == "40001" || sqlstate == "40P01" || sqlstate == "55P03" || sqlstate == "53300") {
    return DatabaseError::Cause::kBusy;
  }
  if (sqlstate == "53100") return DatabaseError::Cause::kFull;  // disk full
  if (sqlstate == "XX001" || sqlstate == "XX002") return DatabaseError::Cause::kDamaged;
  return DatabaseError::Cause::kOther;
}

Value ToValue(Oid type, const char* text, int length) {
  const char* end = text + length;
  switch (type) {
    case kInt2Oid:
    case kInt4Oid:
    case kInt8Oid:
    case kOidOid: {
      int64_t v = 0;
      if (std::from_chars(text, end, v).ec == std::errc()) return Value(v);
      break;
    }
    case kFloat4Oid:
    case kFloat8Oid:
    case kNumericOid: {
      double v = 0;
      if (std::from_chars(text, end, v).ec == std::errc()) return Value(v);
      break;
    }
    case kBoolOid:
      return Value(static_cast<int64_t>(length > 0 && text[0] == 't' ? 1 : 0));
    default:
      break;
  }
  return Value(std::string(text, length));
}

}  // namespace

// A statement of Prepare(): it keeps its SQL and values and runs through the database's cache,
// which prepares it once per kind of values.
class PostgresStatement : public Statement {
 public:
  PostgresStatement(PostgresDatabase& db, std::string_view sql) : db_(db), sql_(sql) {
    int count = 0;
    TranslateToPostgres(sql, &count);
    params_.resize(count);
    db_.Cached(sql_, params_);  // compiles it now, so a bad text fails here
  }
  void BindNull(int index) override { At(index) = Value(); }
  void BindInt(int index, int64_t value) override { At(index) = Value(value); }
  void BindReal(int index, double value) override { At(index) = Value(value); }
  void BindText(int index, std::string_view value) override { At(index) = Value(value); }
  int64_t Execute() override {
    Result r(db_.Run(sql_, params_));
    return std::atoll(PQcmdTuples(r.get()));
  }
  bool HasRow() override { return PQntuples(Result(db_.Run(sql_, params_)).get()) > 0; }

 private:
  Value& At(int index) {
    if (index < 1 || index > static_cast<int>(params_.size())) {
      throw DatabaseError(0, "Cannot bind parameter " + std::to_string(index) + " of \"" + sql_ +
                                 "\" in " + db_.Name() + ": no such parameter");
    }
    return params_[index - 1];
  }

  PostgresDatabase& db_;
  std::string sql_;
  Params params_;
};

PostgresDatabase::PostgresDatabase(pg_conn* conn, std::string name)
    : conn_(conn), name_(std::move(name)) {}

PostgresDatabase::~PostgresDatabase() {
  // Closing the connection discards an open transaction on the server.
  PQfinish(conn_);
}

void PostgresDatabase::Fail(pg_result* result, std::string_view what) {
  Result owned(result);
  const char* state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
  const char* primary = result ? PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY) : nullptr;
  std::string message = primary ? primary : FirstLineOf(PQerrorMessage(conn_));
  if (PQstatus(conn_) == CONNECTION_BAD) message = "the connection was lost: " + message;
  const std::string sqlstate = state ? state : "";
  if (!sqlstate.empty()) message += " (SQLSTATE " + sqlstate + ")";
  throw DatabaseError(0, std::string(what) + " in " + name_ + ": " + message, CauseOf(sqlstate));
}

pg_result* PostgresDatabase::Simple(const char* sql) {
  PGresult* r = PQexec(conn_, sql);
  const auto status = PQresultStatus(r);
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
    Fail(r, std::string("Cannot execute \"") + sql + "\"");
  }
  return r;
}

const PostgresDatabase::Prepared& PostgresDatabase::Cached(std::string_view sql,
                                                           const Params& params) {
  // The kinds of the values are part of the key: a statement is prepared with the types of its
  // values, so an integer comes back from "SELECT ?" as an integer.
  std::string key(sql);
  key += '\0';
  std::vector<Oid> types;
  for (const auto& p : params) {
    types.push_back(p.IsInteger() ? kInt8Oid : p.IsReal() ? kFloat8Oid : 0);
    key += p.IsInteger() ? 'i' : p.IsReal() ? 'r' : 'u';
  }
  if (auto it = statements_.find(key); it != statements_.end()) return it->second;

  int count = 0;
  const std::string translated = TranslateToPostgres(sql, &count);
  if (count != static_cast<int>(params.size())) {
    throw core::ArgumentException("Statement expects " + std::to_string(count) + " parameters, " +
                                      std::to_string(params.size()) + " given.",
                                  "params");
  }
  if (statements_.size() >= kStatementCacheLimit) {
    PQclear(Simple("DEALLOCATE ALL"));
    statements_.clear();
  }
  Prepared prepared{"clockcomm_" + std::to_string(++next_statement_), count};
  PGresult* r = PQprepare(conn_, prepared.name.c_str(), translated.c_str(), count, types.data());
  if (PQresultStatus(r) != PGRES_COMMAND_OK) {
    Fail(r, "Cannot prepare \"" + std::string(sql) + "\"");
  }
  PQclear(r);
  return statements_.emplace(std::move(key), std::move(prepared)).first->second;
}

pg_result* PostgresDatabase::Run(std::string_view sql, const Params& params) {
  const Prepared& prepared = Cached(sql, params);
  // Values go as text; integers and reals in forms that read back exactly.
  std::vector<std::string> numbers(params.size());
  std::vector<const char*> values(params.size(), nullptr);
  for (size_t i = 0; i < params.size(); ++i) {
    const auto& raw = params[i].Raw();
    if (auto* iv = std::get_if<int64_t>(&raw)) {
      numbers[i] = std::to_string(*iv);
      values[i] = numbers[i].c_str();
    } else if (auto* dv = std::get_if<double>(&raw)) {
      char buffer[32];
      const auto end = std::to_chars(buffer, buffer + sizeof buffer, *dv).ptr;
      numbers[i].assign(buffer, end);
      values[i] = numbers[i].c_str();
    } else if (auto* sv = std::get_if<std::string>(&raw)) {
      if (sv->find('\0') != std::string::npos) {
        throw DatabaseError(0, "Cannot execute \"" + std::string(sql) + "\" in " + name_ +
                                   ": parameter " + std::to_string(i + 1) +
                                   " holds a NUL character, which the server cannot store");
      }
      values[i] = sv->c_str();
    }
  }
  PGresult* r = PQexecPrepared(conn_, prepared.name.c_str(), prepared.parameters, values.data(),
                               nullptr, nullptr, 0);
  const auto status = PQresultStatus(r);
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
    Fail(r, "Cannot execute \"" + std::string(sql) + "\"");
  }
  return r;
}

std::unique_ptr<Statement> PostgresDatabase::Prepare(std::string_view sql) {
  return std::make_unique<PostgresStatement>(*this, sql);
}

int64_t PostgresDatabase::Execute(std::string_view sql, const Params& params) {
  Result r(Run(sql, params));
  return std::atoll(PQcmdTuples(r.get()));
}

Recordset PostgresDatabase::Query(std::string_view sql, const Params& params) {
  Result r(Run(sql, params));
  const int fields = PQnfields(r.get());
  const int tuples = PQntuples(r.get());
  std::vector<std::string> columns;
  for (int f = 0; f < fields; ++f) columns.emplace_back(PQfname(r.get(), f));
  std::vector<std::vector<Value>> rows(tuples);
  for (int t = 0; t < tuples; ++t) {
    rows[t].reserve(fields);
    for (int f = 0; f < fields; ++f) {
      if (PQgetisnull(r.get(), t, f)) {
        rows[t].emplace_back();
      } else {
        rows[t].push_back(
            ToValue(PQftype(r.get(), f), PQgetvalue(r.get(), t, f), PQgetlength(r.get(), t, f)));
      }
    }
  }
  return Recordset(std::move(columns), std::move(rows));
}

int64_t PostgresDatabase::LastInsertId() {
  // lastval() fails before the session's first sequence value; inside a transaction a savepoint
  // keeps that failure from aborting the caller's work.
  if (in_transaction_) PQclear(Simple("SAVEPOINT clockcomm_lastval"));
  Result r(PQexec(conn_, "SELECT lastval()"));
  if (PQresultStatus(r.get()) == PGRES_TUPLES_OK) {
    const int64_t id = std::atoll(PQgetvalue(r.get(), 0, 0));
    if (in_transaction_) PQclear(Simple("RELEASE SAVEPOINT clockcomm_lastval"));
    return id;
  }
  const char* state = PQresultErrorField(r.get(), PG_DIAG_SQLSTATE);
  if (!state || std::string_view(state) != "55000") Fail(r.release(), "Cannot read lastval()");
  if (in_transaction_) PQclear(Simple("ROLLBACK TO SAVEPOINT clockcomm_lastval"));
  return 0;
}

void PostgresDatabase::BeginTransaction() {
  if (in_transaction_) throw core::InvalidOperationException("A transaction is already open.");
  PQclear(Simple("BEGIN"));
  in_transaction_ = true;
}

void PostgresDatabase::Commit() {
  if (!in_transaction_) throw core::InvalidOperationException("No transaction is open.");
  in_transaction_ = false;  // a COMMIT ends the transaction on the server even when it fails
  Result r(Simple("COMMIT"));
  // After a failed statement the server answers COMMIT with ROLLBACK: nothing was kept.
  if (std::string_view(PQcmdStatus(r.get())) == "ROLLBACK") {
    throw DatabaseError(0, "Cannot commit in " + name_ +
                               ": a statement of the transaction failed, so the server rolled "
                               "all of it back");
  }
}

void PostgresDatabase::Rollback() {
  if (!in_transaction_) return;
  in_transaction_ = false;
  PQclear(Simple("ROLLBACK"));
}

// Every name is kept in lower case (see TranslateToPostgres); one asked for in any case is found.
bool PostgresDatabase::TableExists(std::string_view table) {
  return !Query(
              "SELECT 1 FROM information_schema.tables WHERE table_schema = current_schema() "
              "AND table_name IN (?, lower(?))",
              {table, table})
              .Eof();
}

bool PostgresDatabase::HasColumn(std::string_view table, std::string_view column) {
  return !Query(
              "SELECT 1 FROM information_schema.columns WHERE table_schema = current_schema() "
              "AND table_name IN (?, lower(?)) AND column_name IN (?, lower(?))",
              {table, table, column, column})
              .Eof();
}

std::unique_ptr<BulkInsert> PostgresDatabase::InsertMany(std::string_view table,
                                                         const std::vector<std::string>& columns) {
  return std::make_unique<PostgresCopy>(*this, table, columns);
}

void PostgresDatabase::LockForWriting(std::string_view table) {
  Execute("LOCK TABLE " + std::string(table) + " IN SHARE ROW EXCLUSIVE MODE");
}

int64_t PostgresDatabase::ReserveIds(std::string_view table, std::string_view id_column,
                                     int64_t count) {
  // The sequence is named by the table as SQL reads it and by the column as it is stored.
  const std::string sql_table = TranslateToPostgres(table, nullptr);
  const std::string column = StoredName(id_column);
  const std::string highest =
      "GREATEST((SELECT COALESCE(MAX(" + std::string(id_column) + "), 0) FROM " +
      std::string(table) +
      "), COALESCE(pg_sequence_last_value(pg_get_serial_sequence(?, ?)::regclass), 0))";
  const Value last = count > 0
                         ? Query("SELECT setval(pg_get_serial_sequence(?, ?), " + highest + " + ?)",
                                 {sql_table, column, sql_table, column, count})
                               .Field(0)
                         : Query("SELECT " + highest + " + 1", {sql_table, column}).Field(0);
  if (last.IsNull()) {
    throw DatabaseError(0, "Cannot reserve IDs of " + std::string(table) + " in " + name_ +
                               ": its column " + std::string(id_column) + " numbers no rows");
  }
  return count > 0 ? last.AsInt() - count + 1 : last.AsInt();
}

}  // namespace clockcomm::db
