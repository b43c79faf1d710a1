#include "shell/my_static.h"

#include <cstdlib>

#include "core/errors.h"
#include "db/location.h"
#include "db/schema.h"
#include "records/parameter_override.h"
#include "shell/port_map.h"

namespace clockcomm::shell {
namespace fs = std::filesystem;
namespace {

constexpr const char* kHomeVariable = "CLOCKCOMM_HOME";
constexpr const char* kDefaultDataFolder = "data/";
constexpr const char* kDebugLogFolder = "Debug Logs";

// A relative directory is taken under base.
fs::path Under(const fs::path& base, const fs::path& dir) {
  return dir.is_absolute() ? dir : base / dir;
}

}  // namespace

fs::path ResolveProgramFolder(const std::string& home_option) {
  fs::path folder;
  if (!home_option.empty()) {
    folder = home_option;
  } else if (const char* env = std::getenv(kHomeVariable); env != nullptr && *env != '\0') {
    folder = env;
  } else {
    folder = fs::current_path();
  }
  return fs::path(WithTrailingSeparator(fs::absolute(folder).lexically_normal().string()));
}

MyPaths::MyPaths(fs::path program_directory, fs::path data_directory, DatabaseLocations databases)
    : program_directory_(std::move(program_directory)),
      data_directory_(std::move(data_directory)),
      databases_(std::move(databases)) {}

fs::path MyPaths::Located(const std::string& location) const {
  return db::IsServerLocation(location) ? fs::path(location) : Under(data_directory_, location);
}

fs::path MyPaths::ClockwynDatabase() const { return data_directory_ / db::kProductDatabaseFile; }
fs::path MyPaths::CompanyRegistryDatabase() const {
  if (!databases_.registry.empty()) return Located(databases_.registry);
  return data_directory_ / db::kCompanyRegistryFile;
}
fs::path MyPaths::EventLogDatabase() const {
  if (!databases_.event_log.empty()) return Located(databases_.event_log);
  return data_directory_ / db::kEventLogFile;
}
fs::path MyPaths::DebugLogDirectory() const { return data_directory_ / kDebugLogFolder; }
fs::path MyPaths::SettingsOverrideFile() const {
  return program_directory_ / records::kSettingsOverrideFile;
}
fs::path MyPaths::CompanyDirectory(const fs::path& company_directory) const {
  return Under(data_directory_, company_directory);
}
fs::path MyPaths::CompanyDatabase(const fs::path& company_directory) const {
  return CompanyDirectory(company_directory) / db::kCompanyDatabaseFile;
}

std::unique_ptr<MyStatic> MyStatic::Load(const fs::path& program_folder) {
  shell::InstallInformation install(program_folder);
  install.Load();
  CommSettings settings = ReadCommSettings(install.WorkingDirectory());
  auto config = std::make_unique<MyStatic>(std::move(install), std::move(settings));
  const fs::path override_file = config->Paths().SettingsOverrideFile();
  try {
    config->overrides_.Load(override_file);
  } catch (const core::SystemError& e) {
    // The loops read the file again and fail there; here it is reported and the defaults shown.
    config->warnings_.push_back(override_file.string() + " cannot be read (" + e.what() +
                                "); every override is shown at its default");
  }
  const auto& more = config->overrides_.Warnings();
  config->warnings_.insert(config->warnings_.end(), more.begin(), more.end());
  return config;
}

MyStatic::MyStatic(shell::InstallInformation install, CommSettings settings)
    : install_(std::move(install)), settings_(std::move(settings)) {
  warnings_ = install_.Warnings();
  for (std::string& warning : PortWarnings(install_)) warnings_.push_back(std::move(warning));
}

void ReportConfigurationWarnings(const std::vector<std::string>& warnings, core::LogSink& log,
                                 std::ostream& err) {
  for (const std::string& warning : warnings) {
    log.Event(kConfigurationWarningEvent, warning);
    log.Debug("", warning);
    err << "clockcomm: warning: " << warning << "\n";
  }
}

MyPaths MyStatic::Paths() const {
  // Missing registry values fall back to the folder we were started in and its "data/".
  fs::path program = install_.ProgramDirectory().empty()
                         ? fs::path(install_.WorkingDirectory())
                         : Under(install_.WorkingDirectory(), install_.ProgramDirectory());
  fs::path data = install_.DataDirectory().empty() ? program / kDefaultDataFolder
                                                   : Under(program, install_.DataDirectory());
  DatabaseLocations databases{
      install_.Value(DatabaseLocations::kSection, DatabaseLocations::kEventLog),
      install_.Value(DatabaseLocations::kSection, DatabaseLocations::kRegistry)};
  return MyPaths(std::move(program), std::move(data), std::move(databases));
}

}  // namespace clockcomm::shell
