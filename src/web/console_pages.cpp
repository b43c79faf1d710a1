#include "web/console_pages.h"

#include <regex>
#include <string>

#include "web/console_files.h"

namespace clockcomm::web {
namespace {

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

void Serve(httplib::Server& server, const std::string& path, const EmbeddedFile& file) {
  // The route is a regular expression: the name's dots and other signs are taken literally.
  const std::string pattern =
      std::regex_replace(path, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
  const std::string type(ContentTypeOf(file.name));
  server.Get(pattern, [file, type](const httplib::Request&, httplib::Response& res) {
    res.set_header("Content-Security-Policy", kConsoleContentSecurityPolicy);
    res.set_header("X-Frame-Options", "DENY");
    res.set_header("Referrer-Policy", "no-referrer");
    res.set_content(file.bytes.data(), file.bytes.size(), type.c_str());
  });
}

}  // namespace

std::string_view ContentTypeOf(std::string_view file_name) {
  static constexpr std::pair<std::string_view, std::string_view> kTypes[] = {
      {".html", "text/html; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"},
      {".svg", "image/svg+xml"},
      {".png", "image/png"},
      {".ico", "image/x-icon"}};
  for (const auto& [end, type] : kTypes) {
    if (EndsWith(file_name, end)) return type;
  }
  return "application/octet-stream";
}

void ConsolePages::Register(httplib::Server& server, ApiGate&) {
  for (const EmbeddedFile& file : ConsoleFiles()) {
    Serve(server, "/" + std::string(file.name), file);
    if (file.name == "index.html") Serve(server, "/", file);
  }
}

}  // namespace clockcomm::web
