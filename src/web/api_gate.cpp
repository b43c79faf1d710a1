#include "web/api_gate.h"

#include "web/api_reply.h"
#include "web/api_request.h"

namespace clockcomm::web {

std::optional<Session> ApiGate::Allow(const httplib::Request& req, httplib::Response& res,
                                      Role needed) {
  const auto id = CookieValue(req, kSessionCookie);
  std::optional<Session> session;
  if (id) session = sessions_.Find(*id);
  if (!session) {
    ReplyError(res, 401, "Log in first (POST /api/v1/session).");
    return std::nullopt;
  }
  // Read again on every request: a removed operator or a new password ends the session at once,
  // and a role takes effect at once.
  const auto now = operators_.Find(session->who.name);
  if (!now || now->password_hash != session->who.password_hash) {
    sessions_.Remove(session->id);
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

}  // namespace clockcomm::web
