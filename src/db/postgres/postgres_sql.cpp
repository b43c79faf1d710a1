#include "db/postgres/postgres_sql.h"

#include <algorithm>

#include "core/text.h"

namespace clockcomm::db {

bool IsPostgresLocation(std::string_view location) {
  const auto starts = [&](std::string_view scheme) {
    return location.size() > scheme.size() &&
           core::EqualsIgnoreCase(location.substr(0, scheme.size()), scheme);
  };
  return starts("postgresql://") || starts("postgres://");
}

std::string TranslateToPostgres(std::string_view sql, int* parameters) {
  std::string out;
  out.reserve(sql.size() + 16);
  int count = 0;
  size_t i = 0;
  // Copies sql[i, end) unchanged and moves past it.
  const auto copy_to = [&](size_t end) {
    end = std::min(end, sql.size());
    out.append(sql.substr(i, end - i));
    i = end;
  };
  while (i < sql.size()) {
    const char c = sql[i];
    const char next = i + 1 < sql.size() ? sql[i + 1] : '\0';
    if (c == '\'' || c == '"') {  // a literal or a quoted name; a doubled quote stays inside
      size_t end = i + 1;
      while (end < sql.size() && (sql[end] != c || (end + 1 < sql.size() && sql[end + 1] == c))) {
        end += sql[end] == c ? 2 : 1;
      }
      copy_to(end + 1);
    } else if (c == '-' && next == '-') {
      copy_to(sql.find('\n', i));
    } else if (c == '/' && next == '*') {
      const size_t close = sql.find("*/", i + 2);
      copy_to(close == std::string_view::npos ? close : close + 2);
    } else if (c == '[') {
      const size_t close = sql.find(']', i + 1);
      if (close == std::string_view::npos) {  // unbalanced: the server reports it
        copy_to(close);
        break;
      }
      out += '"';
      for (char n : sql.substr(i + 1, close - i - 1)) out += n == '"' ? "\"\"" : std::string(1, n);
      out += '"';
      i = close + 1;
    } else if (c == '?') {
      out += '$' + std::to_string(++count);
      ++i;
    } else {
      out += c;
      ++i;
    }
  }
  if (parameters) *parameters = count;
  return out;
}

}  // namespace clockcomm::db
