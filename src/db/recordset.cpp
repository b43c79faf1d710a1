#include "db/recordset.h"

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::db {

const Value& Recordset::Field(std::string_view name) const {
  if (name.size() >= 2 && name.front() == '[' && name.back() == ']') {
    name = name.substr(1, name.size() - 2);
  }
  for (size_t i = 0; i < columns_.size(); ++i) {
    if (core::EqualsIgnoreCase(columns_[i], name)) return Field(i);
  }
  throw core::ItemNotFoundException("Field '" + std::string(name) + "' is not in the recordset.");
}

const Value& Recordset::Field(size_t index) const {
  if (Eof()) throw core::InvalidOperationException("No current record.");
  if (index >= columns_.size()) throw core::IndexOutOfRangeException();
  return rows_[position_][index];
}

}  // namespace clockcomm::db
