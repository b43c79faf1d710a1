// The terminals of a site as the API shows them: one object per terminal of every family, from
// what `clockcomm status` gathers.
#pragma once

#include <nlohmann/json.hpp>

#include "shell/site_status.h"

namespace clockcomm::web {

// {"time": ..., "terminals": [{"name", "known_as", "company", "call_time", "last_contact",
// "last_event", "last_failed", "overdue", "punches_today", "punches_last_24h"}, ...]}. Text is
// turned from the program's single-byte text into UTF-8; what is unknown is null.
nlohmann::json TerminalsJson(const shell::SiteStatus& status);

}  // namespace clockcomm::web
