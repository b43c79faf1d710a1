#include "db/postgres/postgres_copy.h"

#include <libpq-fe.h>

#include <charconv>

#include "db/postgres/postgres_database.h"
#include "db/postgres/postgres_sql.h"

namespace clockcomm::db {
namespace {

// Pieces of about this size go to the server at a time.
constexpr size_t kSendSize = 256 * 1024;

}  // namespace

PostgresCopy::PostgresCopy(PostgresDatabase& db, std::string_view table,
                           const std::vector<std::string>& columns)
    : db_(db), row_(columns.size()) {
  sql_ = "COPY " + std::string(table) + " (";
  for (size_t i = 0; i < columns.size(); ++i) sql_ += (i ? ", " : "") + columns[i];
  sql_ += ") FROM STDIN";
  PGresult* r = PQexec(db_.conn_, TranslateToPostgres(sql_, nullptr).c_str());
  if (PQresultStatus(r) != PGRES_COPY_IN) db_.Fail(r, "Cannot start \"" + sql_ + "\"");
  PQclear(r);
  open_ = true;
  buffer_.reserve(kSendSize + 4096);
}

PostgresCopy::~PostgresCopy() {
  if (!open_) return;
  PQputCopyEnd(db_.conn_, "abandoned by the program");
  while (PGresult* r = PQgetResult(db_.conn_)) PQclear(r);
}

PostgresCopy::Field& PostgresCopy::At(int index) {
  if (index < 1 || index > static_cast<int>(row_.size())) {
    throw DatabaseError(0, "Cannot bind column " + std::to_string(index) + " of \"" + sql_ +
                               "\" in " + db_.Name() + ": no such column");
  }
  return row_[index - 1];
}

void PostgresCopy::BindNull(int index) { At(index).null = true; }

void PostgresCopy::BindInt(int index, int64_t value) {
  char text[24];
  Field& f = At(index);
  f.text.assign(text, std::to_chars(text, text + sizeof text, value).ptr);
  f.null = false;
}

void PostgresCopy::BindReal(int index, double value) {
  char text[32];
  Field& f = At(index);
  f.text.assign(text, std::to_chars(text, text + sizeof text, value).ptr);
  f.null = false;
}

// COPY's text form: a backslash, tab, line feed or carriage return inside a value is escaped.
void PostgresCopy::BindText(int index, std::string_view value) {
  Field& f = At(index);
  f.text.clear();
  for (char c : value) {
    switch (c) {
      case '\\':
        f.text += "\\\\";
        break;
      case '\t':
        f.text += "\\t";
        break;
      case '\n':
        f.text += "\\n";
        break;
      case '\r':
        f.text += "\\r";
        break;
      case '\0':
        throw DatabaseError(0, "Cannot copy a value holding a NUL character into " + db_.Name() +
                                   ", which the server cannot store");
      default:
        f.text += c;
    }
  }
  f.null = false;
}

void PostgresCopy::AddRow() {
  for (size_t i = 0; i < row_.size(); ++i) {
    if (i) buffer_ += '\t';
    buffer_ += row_[i].null ? std::string_view("\\N") : std::string_view(row_[i].text);
    row_[i].null = true;
  }
  buffer_ += '\n';
  if (buffer_.size() >= kSendSize) Send();
}

void PostgresCopy::Send() {
  if (PQputCopyData(db_.conn_, buffer_.data(), static_cast<int>(buffer_.size())) != 1) {
    db_.Fail(nullptr, "Cannot send the rows of \"" + sql_ + "\"");
  }
  buffer_.clear();
}

void PostgresCopy::Finish() {
  if (!buffer_.empty()) Send();
  open_ = false;
  if (PQputCopyEnd(db_.conn_, nullptr) != 1) db_.Fail(nullptr, "Cannot end \"" + sql_ + "\"");
  PGresult* r = PQgetResult(db_.conn_);
  const bool ok = PQresultStatus(r) == PGRES_COMMAND_OK;
  while (PGresult* more = PQgetResult(db_.conn_)) PQclear(more);
  if (!ok) db_.Fail(r, "Cannot execute \"" + sql_ + "\"");
  PQclear(r);
}

}  // namespace clockcomm::db
