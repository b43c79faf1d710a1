#include "web/api_request.h"

#include "core/text.h"
#include "web/api_reply.h"

namespace clockcomm::web {

bool ChangesState(const httplib::Request& req) {
  return req.method == "POST" || req.method == "PUT" || req.method == "PATCH" ||
         req.method == "DELETE";
}

std::optional<nlohmann::json> JsonBody(const httplib::Request& req, httplib::Response& res) {
  if (req.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
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

std::optional<std::string> TextField(const nlohmann::json& body, const char* name,
                                     httplib::Response& res) {
  const auto it = body.find(name);
  if (it == body.end() || !it->is_string()) {
    ReplyError(res, 400, std::string("\"") + name + "\" must be given as a string.");
    return std::nullopt;
  }
  return it->get<std::string>();
}

std::optional<std::string> AnsiText(const std::string& utf8, std::string_view field,
                                    httplib::Response& res) {
  auto ansi = core::AnsiFromUtf8(utf8);
  if (!ansi) {
    ReplyError(res, 400,
               "\"" + std::string(field) +
                   "\" holds a character that cannot be stored (only the characters of "
                   "Windows-1252 can).");
  }
  return ansi;
}

std::optional<std::string> AnsiField(const nlohmann::json& body, const char* name,
                                     httplib::Response& res) {
  const auto text = TextField(body, name, res);
  if (!text) return std::nullopt;
  return AnsiText(*text, name, res);
}

}  // namespace clockcomm::web
