// The console's pages at / (index.html) and /NAME for each embedded file, each with its
// Content-Type and a Content-Security-Policy that lets a page load only the console's own files.
// They need no session: every datum they show comes from the API, which asks for one.
#pragma once

#include <string_view>

#include "web/api_gate.h"

namespace clockcomm::web {

// Only the console's own scripts, styles and API; no inline script, no frames, no plug-ins.
inline constexpr const char* kConsoleContentSecurityPolicy =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self'; "
    "connect-src 'self'; object-src 'none'; base-uri 'none'; form-action 'self'; "
    "frame-ancestors 'none'";

// "text/html; charset=utf-8" for "index.html" and so on; application/octet-stream when unknown.
std::string_view ContentTypeOf(std::string_view file_name);

class ConsolePages : public ApiArea {
 public:
  void Register(httplib::Server& server, ApiGate& gate) override;
};

}  // namespace clockcomm::web
