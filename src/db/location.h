// Database locations as the program stores and shows them: a SQLite file path, or the URL of a
// database on a server.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::db {

// True for a location on a database server (postgresql:// or postgres://): it is no file, so
// nothing may test it for existence, make its folder or copy it as a file.
bool IsServerLocation(std::string_view location);

// The location as it may be printed or logged: a URL's password becomes *** (in the user part
// and in a password= parameter); a file path stays as it is.
std::string ShownLocation(std::string_view location);

// The server URL with every table of the session in schema (search_path), so that several
// companies share one server database, a schema each. schema must be a plain name (lower-case
// letters, digits, _); url must not set options= itself.
std::string LocationInSchema(std::string_view url, std::string_view schema);

}  // namespace clockcomm::db
