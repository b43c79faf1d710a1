#include "web/api_routes.h"

#include <exception>

#include "web/api_reply.h"
#include "web/terminal_json.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;

bool ChangesState(const Request& req) {
  return req.method == "POST" || req.method == "PUT" || req.method == "PATCH" ||
         req.method == "DELETE";
}

bool IsJson(const Request& req) {
  const std::string type = req.get_header_value("Content-Type");
  return type.rfind("application/json", 0) == 0;
}

// The JSON object of the body, or nothing with the 4xx already in res.
std::optional<nlohmann::json> JsonBody(const Request& req, Response& res) {
  if (!IsJson(req)) {
    ReplyError(res, 415, "The body must be JSON, sent as Content-Type: application/json.");
    return std::nullopt;
  }
  auto body = nlohmann::json::parse(req.body, nullptr, false);
  if (body.is_discarded()) {
    ReplyError(res, 400, "The body is not valid JSON.");
    return std::nullopt;
  }
  if (!body.is_object()) {
    ReplyError(res, 400, "The body must be a JSON object.");
    return std::nullopt;
  }
  return body;
}

// The text field `name` of body, or nothing with the 400 in res.
std::optional<std::string> TextField(const nlohmann::json& body, const char* name, Response& res) {
  const auto it = body.find(name);
  if (it == body.end() || !it->is_string()) {
    ReplyError(res, 400, std::string("\"") + name + "\" must be given as a string.");
    return std::nullopt;
  }
  return it->get<std::string>();
}

nlohmann::json SessionJson(const Session& session) {
  return {{"name", session.who.name},
          {"role", RoleName(session.who.role)},
          {"csrf_token", session.csrf_token}};
}

}  // namespace

void ApiRoutes::Register(httplib::Server& server) {
  server.Post("/api/v1/session", [this](const Request& req, Response& res) { Login(req, res); });
  server.Delete("/api/v1/session", [this](const Request& req, Response& res) { Logout(req, res); });
  server.Get("/api/v1/session",
             [this](const Request& req, Response& res) { CurrentSession(req, res); });
  server.Get("/api/v1/terminals",
             [this](const Request& req, Response& res) { Terminals(req, res); });
  server.Get("/api/v1/operators",
             [this](const Request& req, Response& res) { Operators(req, res); });
  server.set_error_handler([](const Request& req, Response& res) {
    if (!res.body.empty()) return;  // a handler's own refusal
    if (res.status == 404) {
      ReplyError(res, 404, "No such endpoint: " + req.method + " " + Printable(req.path, 200));
    } else {
      ReplyError(res, res.status,
                 "The request was refused (HTTP " + std::to_string(res.status) + ").");
    }
  });
  server.set_exception_handler([this](const Request& req, Response& res, std::exception_ptr ep) {
    std::string what = "unknown error";
    try {
      std::rethrow_exception(ep);
    } catch (const std::exception& e) {
      what = e.what();
    } catch (...) {
    }
    s_.log.Event("System error", "Console " + req.method + " " + Printable(req.path) + ": " + what);
    // The reason may name files and databases: it goes to the event log, not to the client.
    ReplyError(res, 500, "The server failed; the event log says why.");
  });
  server.set_post_routing_handler([](const Request&, Response& res) {
    res.set_header("Cache-Control", "no-store");
    res.set_header("X-Content-Type-Options", "nosniff");
  });
}

std::optional<Session> ApiRoutes::Allow(const Request& req, Response& res, Role needed) {
  const auto id = CookieValue(req, kSessionCookie);
  std::optional<Session> session;
  if (id) session = s_.sessions.Find(*id);
  if (!session) {
    ReplyError(res, 401, "Log in first (POST /api/v1/session).");
    return std::nullopt;
  }
  // Read again on every request: a removed operator or a new password ends the session at once,
  // and a role takes effect at once.
  const auto now = s_.operators.Find(session->who.name);
  if (!now || now->password_hash != session->who.password_hash) {
    s_.sessions.Remove(session->id);
    ReplyError(res, 401,
               "The session has ended (the operator was removed or given a new "
               "password); log in again.");
    return std::nullopt;
  }
  session->who.role = now->role;
  if (ChangesState(req) && !SameSecret(req.get_header_value(kCsrfHeader), session->csrf_token)) {
    ReplyError(
        res, 403,
        std::string("The ") + kCsrfHeader + " header is missing or does not match the session.");
    return std::nullopt;
  }
  if (!Allows(session->who.role, needed)) {
    ReplyError(res, 403,
               "This needs the role " + RoleName(needed) + "; " + session->who.name + " is " +
                   RoleName(session->who.role) + ".");
    return std::nullopt;
  }
  return session;
}

void ApiRoutes::Login(const Request& req, Response& res) {
  const auto body = JsonBody(req, res);
  if (!body) return;
  const auto name = TextField(*body, "name", res);
  if (!name) return;
  const auto password = TextField(*body, "password", res);
  if (!password) return;

  const std::string address_key = "address " + req.remote_addr;
  // Longer names are no operator's; a bounded key keeps the limiter's memory bounded.
  const std::string name_key = "name " + name->substr(0, kMaxOperatorName + 1);
  auto wait = s_.limiter.RetryAfter(address_key);
  if (auto by_name = s_.limiter.RetryAfter(name_key); by_name && (!wait || *by_name > *wait)) {
    wait = by_name;
  }
  if (wait) {
    res.set_header("Retry-After", std::to_string(wait->count()));
    ReplyError(res, 429,
               "Too many failed logins; try again in " + std::to_string(wait->count()) + " s.");
    return;
  }
  const auto who = s_.operators.Authenticate(*name, *password);
  if (!who) {
    s_.limiter.RecordFailure(address_key);
    s_.limiter.RecordFailure(name_key);
    s_.log.Event("Operator login refused", Printable(*name) + " from " + req.remote_addr);
    ReplyError(res, 401, "Wrong name or password.");
    return;
  }
  const Session session = s_.sessions.Create(*who);
  s_.log.Event("Operator login",
               who->name + " (" + RoleName(who->role) + ") from " + req.remote_addr);
  res.set_header("Set-Cookie", SessionCookie(session.id));
  ReplyJson(res, 200, SessionJson(session));
}

void ApiRoutes::Logout(const Request& req, Response& res) {
  const auto session = Allow(req, res, Role::kViewer);
  if (!session) return;
  s_.sessions.Remove(session->id);
  s_.log.Event("Operator logout", session->who.name + " from " + req.remote_addr);
  res.set_header("Set-Cookie", ExpiredSessionCookie());
  ReplyJson(res, 200, {{"name", session->who.name}, {"logged_out", true}});
}

void ApiRoutes::CurrentSession(const Request& req, Response& res) {
  if (const auto session = Allow(req, res, Role::kViewer))
    ReplyJson(res, 200, SessionJson(*session));
}

void ApiRoutes::Terminals(const Request& req, Response& res) {
  if (!Allow(req, res, Role::kViewer)) return;
  ReplyJson(res, 200, TerminalsJson(s_.site_status()));
}

void ApiRoutes::Operators(const Request& req, Response& res) {
  if (!Allow(req, res, Role::kAdministrator)) return;
  nlohmann::json list = nlohmann::json::array();
  for (const Operator& o : s_.operators.List()) {
    list.push_back({{"name", o.name}, {"role", RoleName(o.role)}});
  }
  ReplyJson(res, 200, {{"operators", std::move(list)}});
}

}  // namespace clockcomm::web
