// A bulk insert on the server: the rows stream as one COPY ... FROM STDIN in text form, sent in
// large pieces, so a batch of thousands costs a few round trips instead of one per row.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "db/database.h"

namespace clockcomm::db {

class PostgresDatabase;

class PostgresCopy : public BulkInsert {
 public:
  // Starts the COPY; table and columns as the SQL that made them writes them.
  PostgresCopy(PostgresDatabase& db, std::string_view table,
               const std::vector<std::string>& columns);
  // Unfinished: the COPY is abandoned, which fails the server's transaction.
  ~PostgresCopy() override;

  void BindNull(int index) override;
  void BindInt(int index, int64_t value) override;
  void BindReal(int index, double value) override;
  void BindText(int index, std::string_view value) override;
  void AddRow() override;
  void Finish() override;

 private:
  struct Field {
    bool null = true;
    std::string text;
  };
  Field& At(int index);
  void Send();

  PostgresDatabase& db_;
  std::string sql_;
  std::vector<Field> row_;
  std::string buffer_;
  bool open_ = false;
};

}  // namespace clockcomm::db
