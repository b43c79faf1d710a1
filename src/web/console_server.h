// The web console of one program folder: its operators, sessions, login limits, API routes and
// HTTP server wired together, for `clockcomm serve` and for the tests.
#pragma once

#include <memory>
#include <vector>

#include "core/clock.h"
#include "core/log_sink.h"
#include "db/database.h"
#include "shell/my_static.h"
#include "web/api_routes.h"
#include "web/line_desk.h"
#include "web/login_limiter.h"
#include "web/operator_store.h"
#include "web/password_hasher.h"
#include "web/screen_feed.h"
#include "web/session_store.h"
#include "web/web_server.h"

namespace clockcomm::web {

class ConsoleServer {
 public:
  // Opens the product database of config (and brings it to the newest schema). lines: what the
  // console drives of the process's lines; null when it runs none.
  ConsoleServer(const shell::MyStatic& config, core::Clock& clock, core::LogSink& log,
                LineDesk* lines = nullptr);

  void Bind(const ListenAddress& address) { server_.Bind(address); }
  int Port() const { return server_.Port(); }
  void Run() { server_.Run(); }
  // The live screens end first: their streams would hold the server's threads.
  void Stop() {
    screen_.Stop();
    server_.Stop();
  }
  OperatorStore& Operators() { return operators_; }
  // Where the lines' screen lines go for the live screens.
  ScreenFeed& Screen() { return screen_; }

 private:
  // The areas of the API, each with the site's services it reads and drives.
  std::vector<std::unique_ptr<ApiArea>> MakeAreas();

  const shell::MyStatic& config_;
  core::Clock& clock_;
  core::LogSink& log_;
  LineDesk* lines_;
  ScreenFeed screen_;
  std::unique_ptr<db::Database> product_db_;
  PasswordHasher hasher_;
  OperatorStore operators_;
  SessionStore sessions_;
  LoginLimiter limiter_;
  std::vector<std::unique_ptr<ApiArea>> areas_;
  ApiRoutes routes_;
  WebServer server_;
};

}  // namespace clockcomm::web
