#include "web/terminal_json.h"

#include <algorithm>

#include "core/text.h"

namespace clockcomm::web {
namespace {

nlohmann::json Text(std::string_view text) { return core::Utf8FromAnsi(text); }

template <typename T>
nlohmann::json OrNull(const std::optional<T>& value) {
  return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

}  // namespace

nlohmann::json TerminalJson(const shell::SiteStatus& status, const shell::TerminalStatus& t,
                            const HealthRules& rules) {
  const auto punches =
      std::find_if(status.punches.begin(), status.punches.end(),
                   [&](const shell::CompanyPunches& p) { return p.company == t.company; });
  const bool counted = !t.company.empty() && punches != status.punches.end();
  // A terminal called at a time of day should be heard from daily; one that calls in, as often
  // as the site says.
  const std::optional<int> interval =
      t.call_time ? std::optional<int>(shell::kOverdueHours * 60) : rules.offline_after_minutes;
  const bool connected = rules.connected.contains(core::ToUpper(t.name));
  const auto last_contact = connected ? std::optional<core::DateTime>(status.now) : t.last_contact;
  const bool offline =
      interval &&
      (!last_contact || core::SecondsBetween(*last_contact, status.now) > int64_t{*interval} * 60);
  nlohmann::json bad_input(nullptr);
  if (const auto it = rules.bad_input.find(core::ToUpper(t.name)); it != rules.bad_input.end()) {
    bad_input = {{"bad_block_check", it->second.bad_block_check},
                 {"bad_length", it->second.bad_length},
                 {"timeouts", it->second.timeouts},
                 {"unknown_packets", it->second.unknown_packets}};
  }
  const auto waiting = rules.punches_waiting.find(core::ToUpper(t.name));
  return {
      {"name", Text(t.name)},
      {"known_as", Text(t.known_as)},
      {"company", t.company.empty() ? nlohmann::json(nullptr) : Text(t.company)},
      {"family", terminal::TerminalTypeName(t.terminal_type.value_or(rules.site_type))},
      {"call_time", t.call_time ? nlohmann::json(t.call_time->Format(core::kFormatHourMinute))
                                : nlohmann::json(nullptr)},
      {"connected", connected},
      {"last_contact",
       last_contact ? nlohmann::json(last_contact->ToString()) : nlohmann::json(nullptr)},
      {"last_event", t.last_contact ? Text(t.last_event) : nlohmann::json(nullptr)},
      {"last_failed", t.last_failed},
      {"overdue", t.overdue},
      {"offline", offline},
      {"expected_interval_minutes", OrNull(interval)},
      {"bad_input", std::move(bad_input)},
      {"punches_waiting", waiting != rules.punches_waiting.end() ? nlohmann::json(waiting->second)
                                                                 : nlohmann::json(nullptr)},
      {"punches_today", counted ? OrNull(punches->today) : nlohmann::json(nullptr)},
      {"punches_last_24h", counted ? OrNull(punches->last_24h) : nlohmann::json(nullptr)},
  };
}

nlohmann::json TerminalsJson(const shell::SiteStatus& status, const HealthRules& rules) {
  nlohmann::json terminals = nlohmann::json::array();
  for (const shell::TerminalStatus& t : status.terminals) {
    terminals.push_back(TerminalJson(status, t, rules));
  }
  return {{"time", status.now.ToString()}, {"terminals", std::move(terminals)}};
}

nlohmann::json CallsJson(const std::vector<shell::EventLogEntry>& entries) {
  nlohmann::json calls = nlohmann::json::array();
  for (const auto& e : entries) {
    calls.push_back({{"time", e.date_time.ToString()},
                     {"type", Text(e.event_type)},
                     {"description", Text(e.description)}});
  }
  return calls;
}

}  // namespace clockcomm::web
