// status: the administrator's one screen (and --json for monitoring); exit status 1 when
// something needs attention.
#include <iostream>
#include <memory>

#include "app/call_session.h"
#include "app/commands.h"
#include "app/service_manager.h"
#include "shell/my_static.h"
#include "shell/site_status.h"

namespace clockcomm::app {

void RegisterStatusCommand(CLI::App& app, const GlobalOptions& options) {
  auto json = std::make_shared<bool>(false);
  CLI::App* status = app.add_subcommand(
      "status",
      "The service, the line, each terminal's last contact and result, today's punches, waiting "
      "files and the last errors; exit status 1 when something needs attention");
  status->add_flag("--json", *json, "Print JSON, for scripts and monitoring");
  status->callback([&options, json] {
    const auto config = shell::MyStatic::Load(RequireHome(options));
    core::SystemClock clock;
    const shell::SiteStatus site =
        shell::GatherSiteStatus(*config, clock, QueryServiceState("clockcomm.service"));
    std::cout << (*json ? shell::FormatStatusJson(site) : shell::FormatStatusText(site));
    if (!site.attention.empty()) throw CLI::RuntimeError(1);
  });
}

}  // namespace clockcomm::app
