#include "web/terminals_api.h"

#include "web/api_reply.h"
#include "web/terminal_json.h"

namespace clockcomm::web {

void TerminalsApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/terminals",
             [this, &gate](const httplib::Request& req, httplib::Response& res) {
               if (!gate.Allow(req, res, Role::kViewer)) return;
               ReplyJson(res, 200, TerminalsJson(site_status_()));
             });
}

}  // namespace clockcomm::web
