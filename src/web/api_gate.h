// What every endpoint but the login asks first: a live session (else 401), the session's CSRF
// token in the X-CSRF-Token header on a change (else 403), and the least role the endpoint needs
// (else 403).
#pragma once

#include <httplib.h>

#include <optional>

#include "web/operator_role.h"
#include "web/operator_store.h"
#include "web/session_store.h"

namespace clockcomm::web {

class ApiGate {
 public:
  ApiGate(OperatorStore& operators, SessionStore& sessions)
      : operators_(operators), sessions_(sessions) {}

  // The request's session when it may go on; otherwise nothing, with the refusal in res.
  std::optional<Session> Allow(const httplib::Request& req, httplib::Response& res, Role needed);
  // Whether a session let in earlier is still open (not logged out or expired), for answers that
  // last, such as the live screen.
  bool StillOpen(const Session& session) { return sessions_.Live(session.id); }

 private:
  OperatorStore& operators_;
  SessionStore& sessions_;
};

// One part of the API (terminals, lines, poll list ...): its endpoints, each behind the gate.
class ApiArea {
 public:
  virtual ~ApiArea() = default;
  virtual void Register(httplib::Server& server, ApiGate& gate) = 0;
};

}  // namespace clockcomm::web
