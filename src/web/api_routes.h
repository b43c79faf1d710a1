// The JSON API under /api/v1: logging in and out, and what the console shows. Every request but
// the login needs a live session (else 401); every change also needs the session's CSRF token in
// the X-CSRF-Token header (else 403); each endpoint names the least role it needs (else 403).
#pragma once

#include <httplib.h>

#include <functional>
#include <optional>

#include "core/log_sink.h"
#include "shell/site_status.h"
#include "web/login_limiter.h"
#include "web/operator_store.h"
#include "web/session_store.h"

namespace clockcomm::web {

struct ApiServices {
  OperatorStore& operators;
  SessionStore& sessions;
  LoginLimiter& limiter;
  core::LogSink& log;  // logins, logouts and refused logins go to the event log
  std::function<shell::SiteStatus()> site_status;
};

class ApiRoutes {
 public:
  explicit ApiRoutes(ApiServices services) : s_(std::move(services)) {}

  // Adds the endpoints, the JSON 404 and the JSON answer to a handler's failure.
  void Register(httplib::Server& server);

 private:
  void Login(const httplib::Request& req, httplib::Response& res);
  void Logout(const httplib::Request& req, httplib::Response& res);
  void CurrentSession(const httplib::Request& req, httplib::Response& res);
  void Terminals(const httplib::Request& req, httplib::Response& res);
  void Operators(const httplib::Request& req, httplib::Response& res);

  // The request's session when it may go on; otherwise the refusal is in res.
  std::optional<Session> Allow(const httplib::Request& req, httplib::Response& res, Role needed);

  ApiServices s_;
};

}  // namespace clockcomm::web
