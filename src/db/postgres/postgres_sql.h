// How the program's SQL reaches PostgreSQL: which locations name a server, and the statement text
// as the server reads it.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::db {

// True for a location that names a PostgreSQL server (postgresql:// or postgres://).
bool IsPostgresLocation(std::string_view location);

// The SQL as PostgreSQL reads it: [Name] becomes "name" (lower case, as the server keeps a bare
// name, so that names match whatever their case, as in SQLite) and each ? becomes $1, $2... in
// order.
// String literals, quoted names and comments are copied unchanged. Sets *parameters to the count.
// In a CREATE TABLE the column types become those that hold the same values (INTEGER: BIGINT,
// REAL: DOUBLE PRECISION, INTEGER PRIMARY KEY: an identity), so one text creates a table on both.
std::string TranslateToPostgres(std::string_view sql, int* parameters);

// The name the server keeps for a table or column written [Name] or Name: lower case, bare.
std::string StoredName(std::string_view name);

// The first line of a server or libpq message, trimmed.
std::string FirstLineOf(std::string_view message);

}  // namespace clockcomm::db
