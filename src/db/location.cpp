#include "db/location.h"

#include "db/postgres/postgres_sql.h"

namespace clockcomm::db {

bool IsServerLocation(std::string_view location) { return IsPostgresLocation(location); }

std::string ShownLocation(std::string_view location) {
  if (!IsServerLocation(location)) return std::string(location);
  std::string shown(location);
  const size_t authority = shown.find("://") + 3;
  const size_t end = shown.find_first_of("/?", authority);
  const size_t at = shown.rfind('@', end == std::string::npos ? shown.size() : end);
  if (at != std::string::npos && at > authority) {
    const size_t colon = shown.find(':', authority);
    if (colon < at) shown.replace(colon + 1, at - colon - 1, "***");
  }
  // A password given as a query parameter: ?password=... or &password=...
  for (size_t p = shown.find("password=", authority); p != std::string::npos;
       p = shown.find("password=", p + 1)) {
    if (shown[p - 1] != '?' && shown[p - 1] != '&') continue;
    const size_t value = p + 9;
    const size_t stop = shown.find('&', value);
    shown.replace(value, (stop == std::string::npos ? shown.size() : stop) - value, "***");
  }
  return shown;
}

std::string LocationInSchema(std::string_view url, std::string_view schema) {
  // libpq reads options= as the server's command line: -c search_path=<schema>.
  std::string located(url);
  located += url.find('?') == std::string_view::npos ? '?' : '&';
  located += "options=-csearch_path%3D";
  located += schema;
  return located;
}

}  // namespace clockcomm::db
