#include "web/api_reply.h"

#include <memory>
#include <utility>

namespace clockcomm::web {

void ReplyJson(httplib::Response& res, int status, const nlohmann::json& body) {
  res.status = status;
  res.set_content(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
                  "application/json; charset=utf-8");
}

void ReplyStream(httplib::Response& res, const char* content_type, const std::string& file_name,
                 std::function<std::string()> next, core::LogSink& log, const std::string& what) {
  auto piece = std::make_shared<std::string>(next());
  res.set_header("Content-Disposition", "attachment; filename=\"" + file_name + "\"");
  res.set_chunked_content_provider(
      content_type, [piece, next = std::move(next), &log, what](size_t, httplib::DataSink& sink) {
        try {
          if (piece->empty()) {
            sink.done();
            return true;
          }
          const std::string out = std::exchange(*piece, next());
          return sink.write(out.data(), out.size());
        } catch (const std::exception& e) {  // the answer has begun: all that is left is to end it
          log.Event("System error", what + ": " + e.what());
          return false;
        }
      });
}

void ReplyError(httplib::Response& res, int status, const std::string& message) {
  ReplyJson(res, status, {{"error", message}});
}

std::optional<std::string> CookieValue(const httplib::Request& req, std::string_view name) {
  const size_t headers = req.get_header_value_count("Cookie");
  for (size_t i = 0; i < headers; ++i) {
    const std::string header = req.get_header_value("Cookie", i);
    size_t pos = 0;
    while (pos < header.size()) {
      size_t end = header.find(';', pos);
      if (end == std::string::npos) end = header.size();
      std::string_view pair(header.data() + pos, end - pos);
      while (!pair.empty() && pair.front() == ' ') pair.remove_prefix(1);
      const size_t eq = pair.find('=');
      if (eq != std::string_view::npos && pair.substr(0, eq) == name) {
        return std::string(pair.substr(eq + 1));
      }
      pos = end + 1;
    }
  }
  return std::nullopt;
}

std::string SessionCookie(const std::string& session_id) {
  return std::string(kSessionCookie) + "=" + session_id + "; HttpOnly; SameSite=Strict; Path=/";
}

std::string ExpiredSessionCookie() {
  return std::string(kSessionCookie) + "=; HttpOnly; SameSite=Strict; Path=/; Max-Age=0";
}

std::string Printable(std::string_view text, size_t limit) {
  std::string out;
  for (const char c : text.substr(0, limit)) out += (c >= 0x20 && c < 0x7f) ? c : '?';
  if (text.size() > limit) out += "...";
  return out;
}

}  // namespace clockcomm::web
