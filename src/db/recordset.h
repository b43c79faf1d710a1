// The rows of one query, read forward: Eof, MoveNext, fields by name or position.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "db/value.h"

namespace clockcomm::db {

class Recordset {
 public:
  Recordset(std::vector<std::string> columns, std::vector<std::vector<Value>> rows)
      : columns_(std::move(columns)), rows_(std::move(rows)) {}

  bool Eof() const { return position_ >= rows_.size(); }
  void MoveNext() {
    if (!Eof()) ++position_;
  }
  size_t RecordCount() const { return rows_.size(); }
  size_t FieldCount() const { return columns_.size(); }
  const std::vector<std::string>& Columns() const { return columns_; }

  // The field of the current row. Names match without regard to case, with or without brackets.
  // Throws ItemNotFoundException for an unknown name, InvalidOperationException at Eof.
  const Value& Field(std::string_view name) const;
  const Value& Field(size_t index) const;
  // Whole rows, for callers that want to loop with range-for.
  const std::vector<std::vector<Value>>& Rows() const { return rows_; }

 private:
  std::vector<std::string> columns_;
  std::vector<std::vector<Value>> rows_;
  size_t position_ = 0;
};

}  // namespace clockcomm::db
