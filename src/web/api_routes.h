// The JSON API under /api/v1: logging in and out, the operators, and the areas of what the
// console shows and does, each behind the gate (session, CSRF token, role); JSON for every
// refusal and failure.
#pragma once

#include <httplib.h>

#include <vector>

#include "core/log_sink.h"
#include "web/api_gate.h"
#include "web/login_limiter.h"
#include "web/operator_store.h"
#include "web/session_store.h"

namespace clockcomm::web {

struct ApiServices {
  OperatorStore& operators;
  SessionStore& sessions;
  LoginLimiter& limiter;
  core::LogSink& log;  // logins, logouts and refused logins go to the event log
  std::vector<ApiArea*> areas;
};

class ApiRoutes {
 public:
  explicit ApiRoutes(ApiServices services)
      : s_(std::move(services)), gate_(s_.operators, s_.sessions) {}

  // Adds the endpoints of every area, the JSON 404 and the JSON answer to a handler's failure.
  void Register(httplib::Server& server);

 private:
  void Login(const httplib::Request& req, httplib::Response& res);
  void Logout(const httplib::Request& req, httplib::Response& res);
  void CurrentSession(const httplib::Request& req, httplib::Response& res);
  void Operators(const httplib::Request& req, httplib::Response& res);

  ApiServices s_;
  ApiGate gate_;
};

}  // namespace clockcomm::web
