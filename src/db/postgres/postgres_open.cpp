#include <libpq-fe.h>

#include "core/text.h"
#include "db/postgres/postgres_database.h"

// Connecting: the URL checked, the connection made with the program's defaults, and a failure
// told in words an operator can act on, never with the password.
namespace clockcomm::db {
namespace {

// How long opening waits for the server to answer before it reports it unreachable.
constexpr const char* kConnectTimeoutSeconds = "10";
// Text is single-byte Windows-1252 throughout the program; the server converts it to and from the
// database's encoding, so what goes in comes back byte for byte.
constexpr const char* kClientEncoding = "WIN1252";

// The password written in a URL's user part, so that no message ever repeats it.
std::string PasswordIn(std::string_view url) {
  const size_t scheme = url.find("://");
  if (scheme == std::string_view::npos) return {};
  std::string_view rest = url.substr(scheme + 3);
  rest = rest.substr(0, rest.find_first_of("/?"));
  const size_t at = rest.rfind('@');
  if (at == std::string_view::npos) return {};
  const size_t colon = rest.substr(0, at).find(':');
  if (colon == std::string_view::npos) return {};
  return std::string(rest.substr(colon + 1, at - colon - 1));
}

std::string Scrub(std::string text, const std::string& password) {
  return password.empty() ? text : core::ReplaceAll(text, password, "***");
}

// Why a connection failed, in words an operator can act on.
std::string ConnectCause(const std::string& message, DatabaseError::Cause* cause) {
  const auto has = [&](std::string_view s) { return message.find(s) != std::string::npos; };
  if (has("password authentication failed") || has("no password supplied")) {
    return "the server refused the user name or password";
  }
  if (has("database \"") && has("does not exist")) return "there is no such database on the server";
  if (has("Connection refused")) {
    return "nothing accepts connections there (is the server running, and on this port?)";
  }
  if (has("timeout expired")) {
    return std::string("the server did not answer within ") + kConnectTimeoutSeconds + " seconds";
  }
  if (has("could not translate host name")) return "the host name is unknown";
  if (has("too many clients") || has("starting up") || has("shutting down")) {
    *cause = DatabaseError::Cause::kBusy;
    return "the server cannot take the connection now";
  }
  return "the connection failed";
}

void IgnoreNotice(void*, const char*) {}

}  // namespace

std::unique_ptr<PostgresDatabase> PostgresDatabase::Open(const std::string& url,
                                                         std::chrono::milliseconds busy_wait) {
  const std::string password = PasswordIn(url);
  char* parse_error = nullptr;
  PQconninfoOption* options = PQconninfoParse(url.c_str(), &parse_error);
  if (!options) {
    std::string detail = parse_error ? FirstLineOf(parse_error) : "out of memory";
    PQfreemem(parse_error);
    throw DatabaseError(0, "Cannot open database: the location is not a valid postgresql:// URL (" +
                               Scrub(detail, password) + ")");
  }
  PQconninfoFree(options);

  // Keywords before dbname are defaults the URL may override.
  const char* keys[] = {"connect_timeout", "client_encoding", "application_name", "dbname",
                        nullptr};
  const char* values[] = {kConnectTimeoutSeconds, kClientEncoding, "clockcomm", url.c_str(),
                          nullptr};
  PGconn* conn = PQconnectdbParams(keys, values, 1);
  if (!conn) throw DatabaseError(0, "Cannot open database: out of memory");
  const std::string host = PQhost(conn) ? PQhost(conn) : "";
  const std::string port = PQport(conn) ? PQport(conn) : "";
  const std::string dbname = PQdb(conn) ? PQdb(conn) : "";
  const std::string user = PQuser(conn) ? PQuser(conn) : "";
  std::string name = "postgresql://" + user + "@" + host + ":" + port + "/" + dbname;
  if (PQstatus(conn) != CONNECTION_OK) {
    const std::string detail = Scrub(FirstLineOf(PQerrorMessage(conn)), password);
    PQfinish(conn);
    auto cause = DatabaseError::Cause::kOther;
    const std::string why = ConnectCause(detail, &cause);
    throw DatabaseError(0,
                        "Cannot open database " + dbname + " on " + host + ":" + port +
                            " as user " + user + ": " + why + " (" + detail + ")",
                        cause);
  }
  // Notices ("drop cascades to ...") are the server talking to a person; no one reads stderr here.
  PQsetNoticeProcessor(conn, IgnoreNotice, nullptr);
  std::unique_ptr<PostgresDatabase> db(new PostgresDatabase(conn, std::move(name)));
  // A statement that waits for another session's lock longer than this fails as busy.
  db->Query("SELECT set_config('lock_timeout', ?, false)",
            {std::to_string(busy_wait.count()) + "ms"});
  return db;
}

}  // namespace clockcomm::db
