// The terminals of a site as the API shows them: one object per terminal of every family, from
// what `clockcomm status` gathers, with each one's health.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "shell/event_log.h"
#include "shell/site_status.h"
#include "terminal/call_controller.h"
#include "terminal/terminal_type.h"

namespace clockcomm::web {

// What a terminal's health is judged by, beside its status.
struct HealthRules {
  terminal::TerminalType site_type = terminal::TerminalType::kZonTranz;
  // How long a terminal without a call time may be silent; nothing: no offline alarm for it.
  std::optional<int> offline_after_minutes = shell::kDefaultOfflineAfterMinutes;
  // Bad input of the lines' calls by upper-case clock name; a clock not in it: unknown (null).
  std::map<std::string, terminal::InputCounters> bad_input;
  // Punches still held by the terminal, by upper-case clock name; a clock not in it: unknown.
  std::map<std::string, long> punches_waiting;
  // Clocks connected right now, by upper-case name: heard from now, whatever the event log says.
  std::set<std::string> connected;
};

// {"name", "known_as", "company", "family", "call_time", "last_contact", "last_event",
// "last_failed", "overdue", "offline", "expected_interval_minutes", "bad_input",
// "punches_waiting", "punches_today", "punches_last_24h"}. Text is turned from the program's
// single-byte text into UTF-8; what is unknown is null.
nlohmann::json TerminalJson(const shell::SiteStatus& status, const shell::TerminalStatus& terminal,
                            const HealthRules& rules);
// {"time": ..., "terminals": [TerminalJson ...]}.
nlohmann::json TerminalsJson(const shell::SiteStatus& status, const HealthRules& rules);
// [{"time", "type", "description"}] of event-log rows.
nlohmann::json CallsJson(const std::vector<shell::EventLogEntry>& entries);

}  // namespace clockcomm::web
