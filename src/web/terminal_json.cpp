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

nlohmann::json TerminalsJson(const shell::SiteStatus& status) {
  nlohmann::json terminals = nlohmann::json::array();
  for (const shell::TerminalStatus& t : status.terminals) {
    const auto punches =
        std::find_if(status.punches.begin(), status.punches.end(),
                     [&](const shell::CompanyPunches& p) { return p.company == t.company; });
    const bool counted = !t.company.empty() && punches != status.punches.end();
    terminals.push_back({
        {"name", Text(t.name)},
        {"known_as", Text(t.known_as)},
        {"company", t.company.empty() ? nlohmann::json(nullptr) : Text(t.company)},
        {"call_time", t.call_time ? nlohmann::json(t.call_time->Format(core::kFormatHourMinute))
                                  : nlohmann::json(nullptr)},
        {"last_contact",
         t.last_contact ? nlohmann::json(t.last_contact->ToString()) : nlohmann::json(nullptr)},
        {"last_event", t.last_contact ? Text(t.last_event) : nlohmann::json(nullptr)},
        {"last_failed", t.last_failed},
        {"overdue", t.overdue},
        {"punches_today", counted ? OrNull(punches->today) : nlohmann::json(nullptr)},
        {"punches_last_24h", counted ? OrNull(punches->last_24h) : nlohmann::json(nullptr)},
    });
  }
  return {{"time", status.now.ToString()}, {"terminals", std::move(terminals)}};
}

}  // namespace clockcomm::web
