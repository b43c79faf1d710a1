#include "web/api_routes.h"

#include <exception>

#include "web/api_reply.h"
#include "web/api_request.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;

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
  server.Get("/api/v1/operators",
             [this](const Request& req, Response& res) { Operators(req, res); });
  for (ApiArea* area : s_.areas) area->Register(server, gate_);
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
  const auto session = gate_.Allow(req, res, Role::kViewer);
  if (!session) return;
  s_.sessions.Remove(session->id);
  s_.log.Event("Operator logout", session->who.name + " from " + req.remote_addr);
  res.set_header("Set-Cookie", ExpiredSessionCookie());
  ReplyJson(res, 200, {{"name", session->who.name}, {"logged_out", true}});
}

void ApiRoutes::CurrentSession(const Request& req, Response& res) {
  if (const auto session = gate_.Allow(req, res, Role::kViewer))
    ReplyJson(res, 200, SessionJson(*session));
}

void ApiRoutes::Operators(const Request& req, Response& res) {
  if (!gate_.Allow(req, res, Role::kAdministrator)) return;
  nlohmann::json list = nlohmann::json::array();
  for (const Operator& o : s_.operators.List()) {
    list.push_back({{"name", o.name}, {"role", RoleName(o.role)}});
  }
  ReplyJson(res, 200, {{"operators", std::move(list)}});
}

}  // namespace clockcomm::web
