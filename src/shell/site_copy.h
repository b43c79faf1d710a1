// Moving a site from its SQLite files onto a PostgreSQL server: the event log, the company
// registry and every company's database are copied with their row IDs, checked table by table,
// and only when every table is whole does the site switch to the server.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>

namespace clockcomm::shell {

// Copies the site of the program folder home into the server database url: the event log and
// the registry into url as given (its default schema), each company into a schema of its own
// (company_<name>). Prints a report table by table on out, with progress for big tables. When
// every table is on the server, sets each company's [Database] in the server's registry and
// [Databases] EventLog= and Registry= in home's registry.ini; returns false (and switches nothing)
// when a table is incomplete. Copying again adds only what is missing. The SQLite files are only
// read (the registry is brought to the current shape first, as every command does). Throws
// core::Error (a missing file, an unusable URL) and db::DatabaseError (the server) before anything
// is switched.
bool CopySiteToServer(const std::filesystem::path& home, const std::string& url, std::ostream& out);

}  // namespace clockcomm::shell
