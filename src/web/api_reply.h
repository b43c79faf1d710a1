// The small pieces every API handler shares: JSON bodies, error replies, the session cookie.
#pragma once

#include <httplib.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "core/log_sink.h"

namespace clockcomm::web {

inline constexpr const char* kSessionCookie = "clockcomm_session";
inline constexpr const char* kCsrfHeader = "X-CSRF-Token";
// A body larger than this is refused before it is read to the end.
inline constexpr size_t kMaxRequestBody = 64 * 1024;

// Sets the status and a JSON body. Text that is not UTF-8 is replaced, never thrown on.
void ReplyJson(httplib::Response& res, int status, const nlohmann::json& body);
// {"error": message}.
void ReplyError(httplib::Response& res, int status, const std::string& message);

// A download sent piece by piece: next() gives each piece, an empty one at the end. The first is
// read here, before the answer begins, so that a source that cannot be read is still a 500 in
// JSON; a later failure can only cut the answer short, and goes to the log as "what: error".
void ReplyStream(httplib::Response& res, const char* content_type, const std::string& file_name,
                 std::function<std::string()> next, core::LogSink& log, const std::string& what);

// The value of cookie `name` in the request's Cookie headers, or nothing.
std::optional<std::string> CookieValue(const httplib::Request& req, std::string_view name);
// The Set-Cookie value that gives the browser the session (HttpOnly, SameSite=Strict, Path=/).
std::string SessionCookie(const std::string& session_id);
// The Set-Cookie value that makes the browser forget it.
std::string ExpiredSessionCookie();

// Printable ASCII of text, at most `limit` characters, for the event log: a name that failed to
// log in is whatever a client sent.
std::string Printable(std::string_view text, size_t limit = 64);

}  // namespace clockcomm::web
