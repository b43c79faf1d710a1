#include "web/lines_api.h"

#include <memory>

#include "core/text.h"
#include "web/api_reply.h"
#include "web/api_request.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;

nlohmann::json CountersJson(const terminal::InputCounters& c) {
  return {{"bad_block_check", c.bad_block_check},
          {"bad_length", c.bad_length},
          {"timeouts", c.timeouts},
          {"unknown_packets", c.unknown_packets}};
}

nlohmann::json LineJson(const LineView& line) {
  const terminal::CallSnapshot& s = line.snapshot;
  return {{"id", line.id},
          {"name", core::Utf8FromAnsi(line.name)},
          {"kind", line.kind},
          {"mode", line.mode},
          {"state", line.state},
          {"in_call", s.in_call},
          {"clock", s.in_call && !s.clock_name.empty()
                        ? nlohmann::json(core::Utf8FromAnsi(s.clock_name))
                        : nlohmann::json(nullptr)},
          {"calls", s.calls},
          {"good_calls", s.good_calls},
          {"punches", s.punches},
          {"bad_input", CountersJson(s.bad_input)},
          {"status", core::Utf8FromAnsi(s.status)}};
}

// The poll's locations: absent, null or [] is every selected one; otherwise ids of the poll list.
std::optional<std::vector<int64_t>> PollIds(const Request& req, Response& res) {
  std::vector<int64_t> ids;
  if (req.body.empty()) return ids;
  const auto body = JsonBody(req, res);
  if (!body) return std::nullopt;
  const auto it = body->find("locations");
  if (it == body->end() || it->is_null()) return ids;
  if (!it->is_array()) {
    ReplyError(res, 400, "\"locations\" must be a list of poll-list ids.");
    return std::nullopt;
  }
  for (const auto& id : *it) {
    if (!id.is_number_integer() || id.get<int64_t>() < 1) {
      ReplyError(res, 400,
                 "\"locations\" must be a list of poll-list ids; " +
                     Printable(id.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)) +
                     " is not one.");
      return std::nullopt;
    }
    ids.push_back(id.get<int64_t>());
  }
  return ids;
}

std::string SseEvent(const char* event, const nlohmann::json& data, uint64_t id = 0) {
  std::string text;
  if (id != 0) text += "id: " + std::to_string(id) + "\n";
  text += std::string("event: ") + event + "\n";
  text += "data: " + data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n\n";
  return text;
}

}  // namespace

void LinesApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/lines", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) List(res);
  });
  for (const std::string button : {"host", "poll", "end"}) {
    server.Post("/api/v1/lines/" + button,
                [this, &gate, button](const Request& req, Response& res) {
                  Press(req, res, gate, button);
                });
  }
  server.Get("/api/v1/screen",
             [this, &gate](const Request& req, Response& res) { Screen(req, res, gate); });
}

void LinesApi::List(Response& res) {
  nlohmann::json lines = nlohmann::json::array();
  if (desk_ != nullptr) {
    for (const LineView& line : desk_->Lines()) lines.push_back(LineJson(line));
  }
  ReplyJson(res, 200, {{"lines", std::move(lines)}, {"controllable", desk_ != nullptr}});
}

void LinesApi::Press(const Request& req, Response& res, ApiGate& gate, const std::string& button) {
  const auto session = gate.Allow(req, res, Role::kOperator);
  if (!session) return;
  std::vector<int64_t> ids;
  if (button == "poll") {
    auto given = PollIds(req, res);
    if (!given) return;
    ids = std::move(*given);
  }
  if (desk_ == nullptr) {
    ReplyError(res, 409,
               "This server runs no lines (its terminal type is served by another command); "
               "the buttons work where `clockcomm serve` runs the lines.");
    return;
  }
  const DeskReply reply = button == "host"   ? desk_->Host()
                          : button == "poll" ? desk_->Poll(ids)
                                             : desk_->End();
  if (reply.outcome != DeskReply::Outcome::kDone) {
    ReplyError(res, reply.outcome == DeskReply::Outcome::kUnknownLocation ? 404 : 409,
               reply.message);
    return;
  }
  std::string what = button == "host" ? "Host" : button == "end" ? "End" : "Poll now";
  if (button == "poll") {
    std::string list;
    for (const int64_t id : ids) list += (list.empty() ? "" : ", ") + std::to_string(id);
    what += ids.empty() ? " (every selected location)" : " (locations " + list + ")";
  }
  log_.Event("Operator command", what + " by " + session->who.name);
  List(res);
}

void LinesApi::Screen(const Request& req, Response& res, ApiGate& gate) {
  const auto session = gate.Allow(req, res, Role::kViewer);
  if (!session) return;
  if (++streams_ > kMaxScreenStreams) {
    --streams_;
    ReplyError(res, 503,
               "Too many live screens are open (" + std::to_string(kMaxScreenStreams) +
                   "); close one and try again.");
    return;
  }
  // A reconnecting browser says the last line it has; a new screen gets the whole backlog.
  uint64_t after = 0;
  if (const auto last = core::ParseInt(req.get_header_value("Last-Event-ID")); last && *last > 0) {
    after = static_cast<uint64_t>(*last);
    // A number this server never gave (it was restarted since): the whole backlog.
    if (after > screen_.LastSeq()) after = 0;
  }
  struct Cursor {
    uint64_t after;
    uint64_t status_version = UINT64_MAX;  // the first wait sends the status as it is
    std::chrono::steady_clock::time_point last_write = std::chrono::steady_clock::now();
  };
  auto cursor = std::make_shared<Cursor>(Cursor{after});
  res.set_header("X-Accel-Buffering", "no");
  res.set_chunked_content_provider(
      "text/event-stream",
      [this, cursor, &gate, session = *session](size_t, httplib::DataSink& sink) {
        const auto now = std::chrono::steady_clock::now();
        const auto heartbeat = cursor->last_write + kScreenHeartbeat;
        // Back within a second when nothing happens, so that a closed client is noticed.
        const ScreenNews news = screen_.WaitAfter(cursor->after, cursor->status_version,
                                                  std::min(heartbeat, now + kScreenClientCheck));
        // A logout (or an expired session) ends the screen too, within a wake.
        if (news.stopped || !gate.StillOpen(session)) {
          sink.done();
          return true;
        }
        std::string text;
        for (const ScreenLine& line : news.lines) {
          text += SseEvent("line",
                           {{"seq", line.seq},
                            {"line", core::Utf8FromAnsi(line.text)},
                            {"time", line.time.ToString()}},
                           line.seq);
          cursor->after = line.seq;
        }
        if (news.status_changed) {
          text += SseEvent("status", {{"status", core::Utf8FromAnsi(news.status)}});
          cursor->status_version = news.status_version;
        }
        if (text.empty() && std::chrono::steady_clock::now() >= heartbeat) text = ": heartbeat\n\n";
        if (text.empty()) return true;
        cursor->last_write = std::chrono::steady_clock::now();
        return sink.write(text.data(), text.size());
      },
      [this](bool) { --streams_; });
}

}  // namespace clockcomm::web
