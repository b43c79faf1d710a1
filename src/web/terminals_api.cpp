#include "web/terminals_api.h"

#include <algorithm>

#include "core/text.h"
#include "web/api_reply.h"

namespace clockcomm::web {

void TerminalsApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/terminals",
             [this, &gate](const httplib::Request& req, httplib::Response& res) {
               if (!gate.Allow(req, res, Role::kViewer)) return;
               res.status = 200;
               res.set_content(Current()->body, "application/json; charset=utf-8");
             });
  server.Get(R"(/api/v1/terminals/([^/]+))",
             [this, &gate](const httplib::Request& req, httplib::Response& res) {
               if (gate.Allow(req, res, Role::kViewer)) One(req, res);
             });
}

std::shared_ptr<const TerminalsApi::Board> TerminalsApi::Current() {
  std::lock_guard lock(mutex_);
  const auto now = clock_.Steady();
  if (board_ && now - board_->taken < kTerminalsFresh) return board_;
  auto board = std::make_shared<Board>();
  board->status = source_.gather();
  board->rules = source_.rules();
  board->body = TerminalsJson(board->status, board->rules)
                    .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  board->taken = now;
  board_ = board;
  return board_;
}

void TerminalsApi::One(const httplib::Request& req, httplib::Response& res) {
  const std::string wanted = core::ToUpper(req.matches[1].str());
  const auto board = Current();
  const auto& terminals = board->status.terminals;
  const auto it = std::find_if(terminals.begin(), terminals.end(), [&](const auto& t) {
    return core::ToUpper(core::Utf8FromAnsi(t.name)) == wanted;
  });
  if (it == terminals.end()) {
    ReplyError(res, 404,
               "No terminal of the site is named \"" + Printable(req.matches[1].str()) + "\".");
    return;
  }
  nlohmann::json body = TerminalJson(board->status, *it, board->rules);
  body["recent_calls"] = CallsJson(source_.calls(it->name, kRecentCalls));
  ReplyJson(res, 200, body);
}

}  // namespace clockcomm::web
