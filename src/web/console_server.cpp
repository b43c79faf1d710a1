#include "web/console_server.h"

#include "db/open.h"
#include "db/schema.h"
#include "web/console_pages.h"
#include "web/event_log_api.h"
#include "web/lines_api.h"
#include "web/poll_list_api.h"
#include "web/punches_api.h"
#include "web/rule_files_api.h"
#include "web/settings_api.h"
#include "web/terminals_api.h"

namespace clockcomm::web {
namespace {

std::unique_ptr<db::Database> OpenProductDatabase(const shell::MyStatic& config) {
  auto db = db::Open(config.Paths().ClockwynDatabase());
  db::CreateProductSchema(*db);  // an older product database gains [Operators]
  return db;
}

std::vector<ApiArea*> Pointers(const std::vector<std::unique_ptr<ApiArea>>& areas) {
  std::vector<ApiArea*> pointers;
  for (const auto& area : areas) pointers.push_back(area.get());
  return pointers;
}

}  // namespace

ConsoleServer::ConsoleServer(const shell::MyStatic& config, core::Clock& clock, core::LogSink& log,
                             LineDesk* lines)
    : config_(config),
      clock_(clock),
      log_(log),
      lines_(lines),
      screen_(clock),
      product_db_(OpenProductDatabase(config)),
      operators_(*product_db_, hasher_, clock),
      sessions_(clock),
      limiter_(clock),
      areas_(MakeAreas()),
      routes_({operators_, sessions_, limiter_, log, Pointers(areas_)}),
      server_(routes_) {
  std::string warning;
  shell::OfflineAfterMinutes(config.InstallInformation(), &warning);
  if (!warning.empty()) log.Event("Configuration warning", warning);
}

std::vector<std::unique_ptr<ApiArea>> ConsoleServer::MakeAreas() {
  std::vector<std::unique_ptr<ApiArea>> areas;
  areas.push_back(std::make_unique<PollListApi>(OpenProductDatabase(config_), log_));
  areas.push_back(std::make_unique<SettingsApi>(config_.Paths().ProgramDirectory(), log_));
  areas.push_back(std::make_unique<RuleFilesApi>(config_.Paths().ProgramDirectory(), log_));
  areas.push_back(std::make_unique<EventLogApi>(config_.Paths(), clock_, log_));
  areas.push_back(std::make_unique<PunchesApi>(config_.Paths(), clock_, log_));
  // The service state is not asked for: the terminal list does not show it.
  TerminalsSource terminals{
      [this] { return shell::GatherSiteStatus(config_, clock_, {}); },
      [this] {
        HealthRules rules;
        rules.site_type = config_.Comm().terminal_type;
        rules.offline_after_minutes =
            shell::OfflineAfterMinutes(config_.InstallInformation(), nullptr);
        if (lines_ != nullptr) {
          rules.bad_input = lines_->BadInputByClock();
          rules.punches_waiting = lines_->PunchesWaitingByClock();
          rules.connected = lines_->ConnectedClocks();
        }
        return rules;
      },
      [this](const std::string& name, int limit) {
        return shell::EventLog::Open(config_.Paths().EventLogDatabase())->LastOfClock(name, limit);
      }};
  areas.push_back(std::make_unique<TerminalsApi>(std::move(terminals), clock_));
  areas.push_back(std::make_unique<LinesApi>(lines_, screen_, log_));
  areas.push_back(std::make_unique<ConsolePages>());
  return areas;
}

}  // namespace clockcomm::web
