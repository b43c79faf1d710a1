#include "web/console_server.h"

#include "db/open.h"
#include "db/schema.h"

namespace clockcomm::web {
namespace {

std::unique_ptr<db::Database> OpenProductDatabase(const shell::MyStatic& config) {
  auto db = db::Open(config.Paths().ClockwynDatabase());
  db::CreateProductSchema(*db);  // an older product database gains [Operators]
  return db;
}

}  // namespace

ConsoleServer::ConsoleServer(const shell::MyStatic& config, core::Clock& clock, core::LogSink& log)
    : product_db_(OpenProductDatabase(config)),
      operators_(*product_db_, hasher_, clock),
      sessions_(clock),
      limiter_(clock),
      // The service state is not asked for: the terminal list does not show it.
      routes_({operators_, sessions_, limiter_, log,
               [&config, &clock] { return shell::GatherSiteStatus(config, clock, {}); }}),
      server_(routes_) {}

}  // namespace clockcomm::web
