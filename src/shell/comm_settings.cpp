#include "shell/comm_settings.h"

#include <fmt/format.h>

#include <cmath>

#include "core/date_time.h"
#include "core/durable_file.h"
#include "core/text.h"

namespace clockcomm::shell {
namespace fs = std::filesystem;
namespace {

[[noreturn]] void Refuse(std::string_view key, std::string_view value, std::string_view expected) {
  throw core::ArgumentException(
      fmt::format("Invalid value \"{}\" for {}: expected {}", value, key, expected),
      std::string(key));
}

int IntIn(std::string_view key, std::string_view value, int low, int high) {
  std::optional<int> n = core::ParseInt(value);
  if (!n || *n < low || *n > high) {
    Refuse(key, value,
           high == INT32_MAX ? fmt::format("a whole number of at least {}", low)
                             : fmt::format("a whole number from {} to {}", low, high));
  }
  return *n;
}

// A time of day as "HH:nn", or "NONE".
std::string TimeOrNone(std::string_view key, std::string_view value) {
  std::string_view text = core::TrimView(value);
  if (text.empty() || core::EqualsIgnoreCase(text, kNoTime)) return kNoTime;
  // A text with a date in it is not a time of day.
  std::optional<core::DateTime> parsed = core::ParseDateTime(text);
  if (!parsed || parsed->GetDate() != core::Date())
    Refuse(key, value, "a time such as 08:30 or NONE");
  return parsed->GetTime().Format(core::kFormatHourMinute);
}

// Strings are written in double quotes, so one cannot hold a double quote or a line break.
std::string PlainText(std::string_view key, std::string_view value) {
  if (value.find_first_of("\"\r\n") != std::string_view::npos) {
    Refuse(key, value, "text without double quotes or line breaks");
  }
  return std::string(value);
}

bool Boolean(std::string_view key, std::string_view value) {
  std::string v = core::ToLower(core::Trim(value));
  if (v == "true" || v == "#true#" || v == "1" || v == "yes" || v == "on") return true;
  if (v == "false" || v == "#false#" || v == "0" || v == "no" || v == "off") return false;
  Refuse(key, value, "true or false");
}

void RequireTerminalCount(int count) {
  if (count < 1 || count > 96)
    throw core::ArgumentException(kTerminalCountMessage, "terminal_count");
}

std::string Quoted(const std::string& s) { return "\"" + s + "\""; }

// Splits one line of comma-separated fields; a field in double quotes may hold commas.
std::vector<std::string> SplitFields(std::string_view line) {
  std::vector<std::string> fields;
  std::string field;
  bool quoted = false;
  for (char c : line) {
    if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      fields.push_back(core::Trim(field));
      field.clear();
    } else {
      field += c;
    }
  }
  fields.push_back(quoted ? field : core::Trim(field));
  return fields;
}

}  // namespace

void ApplySetting(CommSettings& s, std::string_view key, std::string_view value) {
  if (key == "comm_port") {
    s.comm_port = IntIn(key, value, 1, kMaxCommPort);
  } else if (key == "connection_type") {
    for (int type = 1; type <= 3; ++type) {
      const auto named = *comm::ConnectionTypeFromNumber(type);
      if (core::EqualsIgnoreCase(core::TrimView(value), comm::ConnectionTypeName(named))) {
        s.connection_type = named;
        return;
      }
    }
    s.connection_type = *comm::ConnectionTypeFromNumber(IntIn(key, value, 1, 3));
  } else if (key == "auto_start_mode") {
    s.auto_start_mode = IntIn(key, value, 1, 3);  // 1 none, 2 host, 3 poll
  } else if (key == "begin_time") {
    s.begin_time = TimeOrNone(key, value);
  } else if (key == "end_time") {
    s.end_time = TimeOrNone(key, value);
  } else if (key == "modem_init") {
    s.modem_init = PlainText(key, value);
  } else if (key == "export_format") {
    for (const char* format : kExportFormats) {
      if (core::EqualsIgnoreCase(core::TrimView(value), format)) {
        s.export_format = format;
        return;
      }
    }
    Refuse(
        key, value,
        "one of \"" + core::Join({kExportFormats.begin(), kExportFormats.end()}, "\", \"") + "\"");
  } else if (key == "response_wait") {
    s.response_wait = IntIn(key, value, 0, INT32_MAX);
  } else if (key == "second_pause") {
    s.second_pause = IntIn(key, value, 0, INT32_MAX);
  } else if (key == "program_folder") {
    s.program_folder = PlainText(key, value);
  } else if (key == "terminal_count") {
    std::optional<int> n = core::ParseInt(value);
    RequireTerminalCount(n.value_or(0));
    s.terminal_count = *n;
  } else if (key == "terminal_type") {
    const auto& names = terminal::kTerminalTypeNames;
    for (size_t i = 0; i < names.size(); ++i) {
      if (core::EqualsIgnoreCase(core::TrimView(value), names[i])) {
        s.terminal_type = *terminal::TerminalTypeFromNumber(static_cast<int>(i) + 1);
        return;
      }
    }
    s.terminal_type =
        *terminal::TerminalTypeFromNumber(IntIn(key, value, 1, static_cast<int>(names.size())));
  } else if (key == "lan_delay_ms") {
    std::optional<double> ms = core::ParseNumber(value);
    if (!ms || !std::isfinite(*ms) || *ms < 0) Refuse(key, value, "a number of milliseconds >= 0");
    s.lan_delay_ms = *ms;
  } else if (key == "auto_shutdown") {
    s.auto_shutdown = Boolean(key, value);
  } else {
    throw core::ArgumentException(
        fmt::format("Unknown setting \"{}\": the settings are {}", key,
                    core::Join({kSettingKeys.begin(), kSettingKeys.end()}, ", ")),
        std::string(key));
  }
}

std::string SettingText(const CommSettings& s, std::string_view key) {
  if (key == "comm_port") return std::to_string(s.comm_port);
  if (key == "connection_type") return std::to_string(static_cast<int>(s.connection_type));
  if (key == "auto_start_mode") return std::to_string(s.auto_start_mode);
  if (key == "begin_time") return s.begin_time;
  if (key == "end_time") return s.end_time;
  if (key == "modem_init") return s.modem_init;
  if (key == "export_format") return s.export_format;
  if (key == "response_wait") return std::to_string(s.response_wait);
  if (key == "second_pause") return std::to_string(s.second_pause);
  if (key == "program_folder") return s.program_folder;
  if (key == "terminal_count") return std::to_string(s.terminal_count);
  if (key == "terminal_type") return std::to_string(static_cast<int>(s.terminal_type));
  if (key == "lan_delay_ms") return core::NumberText(s.lan_delay_ms);
  if (key == "auto_shutdown") return s.auto_shutdown ? "true" : "false";
  throw core::ArgumentException(fmt::format("Unknown setting \"{}\"", key), std::string(key));
}

void ValidateCommSettings(const CommSettings& s) {
  RequireTerminalCount(s.terminal_count);
  // Every other field must survive the same checks as `settings set`.
  for (const char* key : kSettingKeys) {
    CommSettings copy = s;
    ApplySetting(copy, key, SettingText(s, key));
  }
}

std::string DescribeCommSettings(const CommSettings& s) {
  std::string text = "Communications set for: Comm Port " + std::to_string(s.comm_port) + ", " +
                     std::string(comm::ConnectionTypeName(s.connection_type));
  if (s.begin_time != kNoTime) {
    text += ", starting at " + s.begin_time + ", ending at " + s.end_time + ".";
  }
  return text;
}

fs::path ParameterFilePath(const fs::path& program_folder) {
  return program_folder / kParameterFile;
}

ParameterFileError::ParameterFileError(const core::SystemError& cause, const fs::path& file)
    : core::Error("System Error " + std::to_string(cause.Number()) + ": " + cause.Description() +
                  "\nCould not open parameter file " + file.string() +
                  "\nCheck FILES setting in CONFIG.SYS") {}

std::string FormatCommSettings(const CommSettings& s) {
  std::vector<std::string> fields = {std::to_string(s.comm_port),
                                     std::to_string(static_cast<int>(s.connection_type)),
                                     std::to_string(s.auto_start_mode),
                                     Quoted(s.begin_time),
                                     Quoted(s.end_time),
                                     Quoted(s.modem_init),
                                     Quoted(s.export_format),
                                     std::to_string(s.response_wait),
                                     std::to_string(s.second_pause),
                                     Quoted(s.program_folder),
                                     std::to_string(s.terminal_count),
                                     std::to_string(static_cast<int>(s.terminal_type)),
                                     core::NumberText(s.lan_delay_ms),
                                     s.auto_shutdown ? "#TRUE#" : "#FALSE#"};
  return core::Join(fields, ",") + "\r\n";
}

CommSettings ParseCommSettings(std::string_view text, const std::string& file_name) {
  std::string_view line = text.substr(0, text.find_first_of("\r\n"));
  std::vector<std::string> fields = SplitFields(line);
  if (fields.size() != kSettingKeys.size()) {
    throw core::FormatException(fmt::format("{}: expected {} fields, found {}", file_name,
                                            kSettingKeys.size(), fields.size()));
  }
  CommSettings s;
  for (size_t i = 0; i < fields.size(); ++i) {
    try {
      if (i == 5 && fields[i].empty()) continue;  // an empty modem string means the default
      ApplySetting(s, kSettingKeys[i], fields[i]);
    } catch (const core::ArgumentException& e) {
      throw core::FormatException(
          fmt::format("{}: field {} ({}): {}", file_name, i + 1, kSettingKeys[i], e.what()));
    }
  }
  return s;
}

CommSettings ReadCommSettings(const fs::path& program_folder) {
  const fs::path file = ParameterFilePath(program_folder);
  std::error_code ec;
  if (!fs::exists(file, ec)) {
    CommSettings defaults;
    defaults.program_folder = program_folder.string();
    if (!defaults.program_folder.empty() && defaults.program_folder.back() != '/') {
      defaults.program_folder += '/';
    }
    return defaults;
  }
  return ParseCommSettings(core::ReadWholeFile(file), file.string());
}

void WriteCommSettings(const fs::path& program_folder, CommSettings settings) {
  ValidateCommSettings(settings);
  if (settings.modem_init.empty()) settings.modem_init = kDefaultModemInit;
  const fs::path file = ParameterFilePath(program_folder);
  try {
    core::WriteFileAtomically(file, FormatCommSettings(settings));
  } catch (const core::SystemError& e) {
    throw ParameterFileError(e, file);
  }
}

}  // namespace clockcomm::shell
