// Where the program is installed and where its data lives, and the communications settings: one
// loaded configuration, reached through thin accessors. Nothing here is global; the composition
// root in src/app loads one MyStatic and hands it (or its parts) to whoever needs them.
#pragma once

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "core/log_sink.h"
#include "records/parameter_override.h"
#include "shell/comm_settings.h"
#include "shell/install_information.h"

namespace clockcomm::shell {

// The program folder: the --home option when given, else $CLOCKCOMM_HOME, else the current
// directory.
std::filesystem::path ResolveProgramFolder(const std::string& home_option);

// Where the event log and the company registry live when registry.ini's [Databases] names them
// (EventLog=, Registry=): a postgresql:// URL or a SQLite file. Empty: the file in the data folder.
struct DatabaseLocations {
  static constexpr const char* kSection = "Databases";
  static constexpr const char* kEventLog = "EventLog";
  static constexpr const char* kRegistry = "Registry";
  std::string event_log;
  std::string registry;
};

// Paths of the stores under the data directory, and the database locations.
class MyPaths {
 public:
  MyPaths(std::filesystem::path program_directory, std::filesystem::path data_directory,
          DatabaseLocations databases = {});

  const std::filesystem::path& ProgramDirectory() const { return program_directory_; }
  const std::filesystem::path& DataDirectory() const { return data_directory_; }
  std::filesystem::path ClockwynDatabase() const;  // <data>/Clockwyn.db (PollT ...)
  // [Databases] Registry=, else <data>/COMPANY3.db
  std::filesystem::path CompanyRegistryDatabase() const;
  // [Databases] EventLog=, else <data>/TCLOG.db
  std::filesystem::path EventLogDatabase() const;
  std::filesystem::path DebugLogDirectory() const;     // <data>/Debug Logs
  std::filesystem::path SettingsOverrideFile() const;  // <program>/SettingsOverride.txt
  // The database of a company whose directory is given (relative directories are taken under
  // the data directory).
  std::filesystem::path CompanyDatabase(const std::filesystem::path& company_directory) const;
  std::filesystem::path CompanyDirectory(const std::filesystem::path& company_directory) const;

 private:
  // A server URL as it is; a relative file under the data directory.
  std::filesystem::path Located(const std::string& location) const;

  std::filesystem::path program_directory_;
  std::filesystem::path data_directory_;
  DatabaseLocations databases_;
};

// The communications settings as the loops read them.
class MySettings {
 public:
  explicit MySettings(const CommSettings& settings) : settings_(settings) {}
  comm::ConnectionType ConnectionType() const { return settings_.connection_type; }
  terminal::TerminalType TerminalType() const { return settings_.terminal_type; }
  int CommPort() const { return settings_.comm_port; }
  int TerminalCount() const { return settings_.terminal_count; }
  int AutoStartMode() const { return settings_.auto_start_mode; }
  const CommSettings& All() const { return settings_; }

 private:
  const CommSettings& settings_;
};

// The one loaded configuration: installation information, communications settings, the site's
// overrides and paths.
class MyStatic {
 public:
  // Reads registry.ini, clockcomm.dta and SettingsOverride.txt of the program folder (defaults
  // where missing). Lines of registry.ini and SettingsOverride.txt that cannot be used become
  // warnings, as does an override file that cannot be read; clockcomm.dta must be whole.
  static std::unique_ptr<MyStatic> Load(const std::filesystem::path& program_folder);
  // The overrides stay at their defaults.
  MyStatic(shell::InstallInformation install, CommSettings settings);

  const shell::InstallInformation& InstallInformation() const { return install_; }
  const CommSettings& Comm() const { return settings_; }
  MySettings Settings() const { return MySettings(settings_); }
  MyPaths Paths() const;
  // SettingsOverride.txt as it was when the configuration was loaded.
  const records::ParameterOverride& Overrides() const { return overrides_; }
  // Every line of the configuration files that was left out or whose value was refused, each
  // naming its file and line: registry.ini, its [Ports], then SettingsOverride.txt.
  const std::vector<std::string>& Warnings() const { return warnings_; }

 private:
  shell::InstallInformation install_;
  CommSettings settings_;
  records::ParameterOverride overrides_;
  std::vector<std::string> warnings_;
};

inline constexpr const char* kConfigurationWarningEvent = "Configuration warning";

// Writes each warning to the event log (as a "Configuration warning" event), to the general debug
// log, and to err as "clockcomm: warning: <text>".
void ReportConfigurationWarnings(const std::vector<std::string>& warnings, core::LogSink& log,
                                 std::ostream& err);

}  // namespace clockcomm::shell
