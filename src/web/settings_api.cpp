#include "web/settings_api.h"

#include "core/errors.h"
#include "core/text.h"
#include "shell/schedule/auto_start.h"
#include "web/api_reply.h"
#include "web/api_request.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;
using nlohmann::json;

json Choice(int value, std::string_view name) { return {{"value", value}, {"name", name}}; }

json Choices() {
  json connection = json::array();
  for (int n = 1; n <= 3; ++n) {
    connection.push_back(Choice(n, comm::ConnectionTypeName(*comm::ConnectionTypeFromNumber(n))));
  }
  json auto_start = json::array();
  for (int n = 1; n <= 3; ++n) {
    const std::string name = shell::AutoStartModeName(shell::AutoStartModeFromSetting(n));
    auto_start.push_back(Choice(n, name.empty() ? "None" : name));
  }
  json terminal = json::array();
  for (size_t i = 0; i < terminal::kTerminalTypeNames.size(); ++i) {
    terminal.push_back(Choice(static_cast<int>(i) + 1, terminal::kTerminalTypeNames[i]));
  }
  return {{"connection_type", std::move(connection)},
          {"auto_start_mode", std::move(auto_start)},
          {"export_format", shell::kExportFormats},
          {"terminal_type", std::move(terminal)}};
}

// A value of the body as the text `settings set` takes; nothing, with the 400 in res, for a
// value of another kind or a text that cannot be stored.
std::optional<std::string> SettingValue(const std::string& key, const json& value, Response& res) {
  if (value.is_string()) return AnsiText(value.get<std::string>(), "settings." + key, res);
  if (value.is_number_integer()) return value.dump();
  if (value.is_number_float()) return core::NumberText(value.get<double>());
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  if (value.is_null()) return "";
  ReplyError(res, 400,
             "\"settings." + Printable(key) + "\" must be a string, a number or true/false.");
  return std::nullopt;
}

// "terminal_count 1 -> 4, comm_port 1 -> 2", or "nothing changed".
std::string Changes(const shell::CommSettings& before, const shell::CommSettings& after) {
  std::vector<std::string> changes;
  for (const char* key : shell::kSettingKeys) {
    const std::string was = shell::SettingText(before, key);
    const std::string now = shell::SettingText(after, key);
    if (was != now) changes.push_back(std::string(key) + " " + was + " -> " + now);
  }
  return changes.empty() ? "nothing changed" : core::Join(changes, ", ");
}

// {"settings": {...}, "choices": {...}, "summary": "Communications set for: ..."}.
json SettingsJson(const shell::CommSettings& s) {
  json settings = {
      {"comm_port", s.comm_port},
      {"connection_type", static_cast<int>(s.connection_type)},
      {"auto_start_mode", s.auto_start_mode},
      {"begin_time", s.begin_time},
      {"end_time", s.end_time},
      {"modem_init", core::Utf8FromAnsi(s.modem_init)},
      {"export_format", s.export_format},
      {"response_wait", s.response_wait},
      {"second_pause", s.second_pause},
      {"program_folder", core::Utf8FromAnsi(s.program_folder)},
      {"terminal_count", s.terminal_count},
      {"terminal_type", static_cast<int>(s.terminal_type)},
      {"lan_delay_ms", s.lan_delay_ms},
      {"auto_shutdown", s.auto_shutdown},
  };
  return {{"settings", std::move(settings)},
          {"choices", Choices()},
          {"summary", shell::DescribeCommSettings(s)}};
}

}  // namespace

void SettingsApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/settings", [this, &gate](const Request& req, Response& res) {
    if (!gate.Allow(req, res, Role::kViewer)) return;
    std::lock_guard lock(mutex_);
    ReplyJson(res, 200, SettingsJson(shell::ReadCommSettings(program_folder_)));
  });
  server.Put("/api/v1/settings",
             [this, &gate](const Request& req, Response& res) { Change(req, res, gate); });
}

void SettingsApi::Change(const Request& req, Response& res, ApiGate& gate) {
  const auto session = gate.Allow(req, res, Role::kAdministrator);
  if (!session) return;
  const auto body = JsonBody(req, res);
  if (!body) return;
  const auto given = body->find("settings");
  if (given == body->end() || !given->is_object()) {
    return ReplyError(res, 400, "\"settings\" must be given as an object of settings by name.");
  }
  std::lock_guard lock(mutex_);
  const shell::CommSettings before = shell::ReadCommSettings(program_folder_);
  shell::CommSettings after = before;
  try {
    for (const auto& [key, value] : given->items()) {
      const auto text = SettingValue(key, value, res);
      if (!text) return;
      shell::ApplySetting(after, key, *text);
    }
    // The parameter file's own folder is where the program finds it, not a choice.
    if (after.program_folder != before.program_folder) {
      return ReplyError(res, 400,
                        "program_folder is the folder of the parameter file; it cannot be "
                        "changed here.");
    }
    shell::WriteCommSettings(program_folder_, after);
  } catch (const core::ArgumentException& e) {
    return ReplyJson(res, 400, {{"error", e.what()}, {"field", e.ParamName()}});
  }
  // As saved: an empty modem string has become the default.
  const shell::CommSettings saved = shell::ReadCommSettings(program_folder_);
  log_.Event("Settings changed", session->who.name + ": " + Changes(before, saved));
  ReplyJson(res, 200, SettingsJson(saved));
}

}  // namespace clockcomm::web
