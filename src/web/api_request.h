// Reading a request's JSON body and its fields, with the 4xx already written to the response
// when the request is not what an endpoint takes.
#pragma once

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace clockcomm::web {

// POST, PUT, PATCH and DELETE: the methods that need the CSRF token.
bool ChangesState(const httplib::Request& req);

// The JSON object of the body; otherwise nothing, with 415 (not JSON) or 400 in res.
std::optional<nlohmann::json> JsonBody(const httplib::Request& req, httplib::Response& res);

// The text field `name` of body; otherwise nothing, with the 400 in res.
std::optional<std::string> TextField(const nlohmann::json& body, const char* name,
                                     httplib::Response& res);

// Text received (UTF-8) as the single-byte text the site's files and databases hold; otherwise
// nothing, with a 400 naming the field in res.
std::optional<std::string> AnsiText(const std::string& utf8, std::string_view field,
                                    httplib::Response& res);
// The text field `name` of body as single-byte text; otherwise nothing, with the 400 in res.
std::optional<std::string> AnsiField(const nlohmann::json& body, const char* name,
                                     httplib::Response& res);

}  // namespace clockcomm::web
