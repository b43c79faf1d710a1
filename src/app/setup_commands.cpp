// init, settings show|set, log show|purge|print: setting up a program folder and looking after
// its configuration and event log.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "app/command_support.h"
#include "app/commands.h"
#include "app/families.h"
#include "core/date_time.h"
#include "core/durable_file.h"
#include "core/errors.h"
#include "core/log_sink.h"
#include "core/text.h"
#include "db/open.h"
#include "db/schema.h"
#include "shell/comm_settings.h"
#include "shell/event_log.h"
#include "shell/event_log_report.h"
#include "shell/install_information.h"
#include "shell/my_static.h"
#include "shell/port_map.h"
#include "shell/program_folder.h"

namespace clockcomm::app {
namespace fs = std::filesystem;
namespace {

// ---- init ----

void RunInit(const GlobalOptions& options, bool force, const std::string& data_directory) {
  const fs::path home = shell::ResolveProgramFolder(options.home);
  // A forced init rewrites registry.ini from what it could read: say which lines that leaves out.
  shell::InstallInformation before(home);
  if (force) before.Load();
  try {
    shell::InitializeProgramFolder(home, force, data_directory);
  } catch (const core::InvalidOperationException& e) {
    Fail(std::string("clockcomm init: ") + e.what());
  }
  for (const std::string& warning : before.Warnings()) {
    std::cerr << "clockcomm: warning: " << warning << "; init --force did not keep it\n";
  }
  const shell::MyPaths paths = shell::MyStatic::Load(home)->Paths();
  std::cout << "Initialised program folder " << home.string() << "\n"
            << "  " << shell::InstallInformation(home).RegistryFile().string() << "\n"
            << "  " << shell::ParameterFilePath(home).string() << "\n"
            << "  data directory " << paths.DataDirectory().string() << "\n";
}

// ---- settings ----

// What `settings show` says after a setting's value, or nothing.
std::string SettingNote(const shell::CommSettings& settings, std::string_view key) {
  if (key == "export_format" || key == "auto_shutdown") {
    return "kept for the time-card application only";
  }
  if (key == "terminal_type") {
    const std::string name(terminal::TerminalTypeName(settings.terminal_type));
    if (ServedByT4Host(settings.terminal_type)) return name + ", served by `clockcomm t4 host`";
    const bool served = terminal::FindFamily(Families(), settings.terminal_type) != nullptr;
    return served ? name : name + ", not served yet";
  }
  return {};
}

void RunSettingsShow(const GlobalOptions& options) {
  const auto config = shell::MyStatic::Load(shell::ResolveProgramFolder(options.home));
  // Only shown here: looking at the settings is not an event worth a row of the event log.
  core::NullLogSink no_log;
  shell::ReportConfigurationWarnings(config->Warnings(), no_log, std::cerr);

  for (const char* key : shell::kSettingKeys) {
    std::cout << key << "=" << shell::SettingText(config->Comm(), key);
    const std::string note = SettingNote(config->Comm(), key);
    std::cout << (note.empty() ? "" : "  # " + note) << "\n";
  }
  const shell::InstallInformation& install = config->InstallInformation();
  const shell::MyPaths paths = config->Paths();
  std::cout << "\nCurrentVersion=" << install.CurrentVersion() << "\n"
            << "ProgramDir=" << paths.ProgramDirectory().string() << "\n"
            << "DataDir=" << paths.DataDirectory().string() << "\n"
            << "\n"
            << shell::DescribeCommSettings(config->Comm()) << "\n";

  std::cout << "\n[Ports]\n";
  for (const shell::PortMapping& port : shell::PortMappings(install, config->Comm().comm_port)) {
    std::cout << "COM" << port.com_port << "=" << port.device;
    if (!port.mapped) std::cout << "  # default";
    std::cout << "\n";
  }
  std::cout << "\n[" << paths.SettingsOverrideFile().string() << "]\n";
  for (const records::OverrideSetting& setting : config->Overrides().Effective()) {
    std::cout << setting.key << "=" << setting.value << (setting.is_default ? "  # default" : "")
              << "\n";
  }
}

void RunSettingsSet(const GlobalOptions& options, const std::vector<std::string>& assignments) {
  const fs::path home = shell::ResolveProgramFolder(options.home);
  shell::CommSettings settings = shell::ReadCommSettings(home);
  try {
    for (const std::string& assignment : assignments) {
      const size_t eq = assignment.find('=');
      if (eq == std::string::npos || eq == 0) {
        Fail("clockcomm settings set: \"" + assignment + "\" is not key=value");
      }
      shell::ApplySetting(settings, core::Trim(assignment.substr(0, eq)),
                          assignment.substr(eq + 1));
    }
    shell::WriteCommSettings(home, settings);
  } catch (const core::ArgumentException& e) {
    Fail(e.what());
  } catch (const shell::ParameterFileError& e) {
    Fail(e.what());
  }
  std::cout << shell::DescribeCommSettings(settings) << "\n";
  // Saved all the same: the setup may come before the line's loop does.
  if (auto reason = UnservedLine(settings.terminal_type, settings.connection_type))
    std::cerr << "clockcomm: warning: " << *reason << "\n";
}

// ---- log ----

struct LogOptions {
  std::string from;
  std::string to;
  bool yes = false;
  std::string output;
};

struct LogPeriod {
  core::Date from;
  core::Date to;
};

LogPeriod Period(const LogOptions& o) {
  LogPeriod p{ParseDayOption("--from", o.from), ParseDayOption("--to", o.to)};
  if (p.to < p.from) Fail("clockcomm: --to " + o.to + " is before --from " + o.from);
  return p;
}

std::unique_ptr<shell::EventLog> OpenEventLog(const GlobalOptions& options) {
  const auto config = shell::MyStatic::Load(shell::ResolveProgramFolder(options.home));
  return std::make_unique<shell::EventLog>(
      db::Open(config->Paths().EventLogDatabase(), db::OpenMode::kExisting));
}

void RunLogShow(const GlobalOptions& options, const LogOptions& o) {
  const LogPeriod p = Period(o);
  std::cout << "Counter\tDateTime\tClockName\tClockNumber\tEventType\tEventDes\n";
  for (const shell::EventLogEntry& e : OpenEventLog(options)->Entries(p.from, p.to)) {
    std::cout << e.counter << "\t" << e.date_time.ToString() << "\t" << e.clock_name << "\t"
              << e.clock_number << "\t" << e.event_type << "\t" << e.description << "\n";
  }
}

bool Confirmed(const LogPeriod& p) {
  std::cout << shell::kPurgeTitle << "\n"
            << shell::PurgeQuestion(p.from, p.to) << " [y/N] " << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  answer = core::ToLower(core::Trim(answer));
  return answer == "y" || answer == "yes";
}

void RunLogPurge(const GlobalOptions& options, const LogOptions& o) {
  const LogPeriod p = Period(o);
  std::unique_ptr<shell::EventLog> log = OpenEventLog(options);
  if (!o.yes && !Confirmed(p)) Fail("clockcomm log purge: cancelled; nothing deleted");
  std::cout << "Deleted " << log->Purge(p.from, p.to) << " events.\n";
}

void RunLogPrint(const GlobalOptions& options, const LogOptions& o) {
  const LogPeriod p = Period(o);
  const std::unique_ptr<shell::EventLog> log = OpenEventLog(options);
  shell::EventLogReportReader report(*log, p.from, p.to);
  std::string text;  // for the file, written whole so that it is never seen half made
  for (std::string piece = report.Next(); !piece.empty(); piece = report.Next()) {
    if (o.output.empty()) {
      std::cout << piece;
    } else {
      text += piece;
    }
  }
  if (!o.output.empty()) core::WriteFileAtomically(o.output, text);
}

void AddPeriodOptions(CLI::App* command, LogOptions& o) {
  command->add_option("--from", o.from, "First day, YYYY-MM-DD (from 00:00:00)")->required();
  command->add_option("--to", o.to, "Last day, YYYY-MM-DD (to 23:59:59)")->required();
}

}  // namespace

void RegisterSetupCommands(CLI::App& app, const GlobalOptions& options) {
  CLI::App* init = app.add_subcommand(
      "init", "Create registry.ini, clockcomm.dta, the data directory and empty databases");
  auto force = std::make_shared<bool>(false);
  init->add_flag("--force", *force, "Write the defaults over an existing configuration");
  auto data = std::make_shared<std::string>();
  init->add_option("--data", *data, "Data directory (default: data/ in the program folder)");
  init->callback([&options, force, data] { RunInit(options, *force, *data); });

  CLI::App* settings = app.add_subcommand("settings", "Show or change the communications settings");
  settings->require_subcommand(1);
  settings->add_subcommand("show", "Print the settings and the installation information")
      ->callback([&options] { RunSettingsShow(options); });
  CLI::App* set = settings->add_subcommand(
      "set", "Change settings: key=value ... (" +
                 core::Join({shell::kSettingKeys.begin(), shell::kSettingKeys.end()}, ", ") + ")");
  auto assignments = std::make_shared<std::vector<std::string>>();
  set->add_option("assignments", *assignments, "key=value pairs")->required();
  set->callback([&options, assignments] { RunSettingsSet(options, *assignments); });

  CLI::App* log = app.add_subcommand("log", "List, purge or print the event log by date");
  log->require_subcommand(1);
  auto log_options = std::make_shared<LogOptions>();
  CLI::App* show = log->add_subcommand("show", "List the events of a period, in order");
  AddPeriodOptions(show, *log_options);
  show->callback([&options, log_options] { RunLogShow(options, *log_options); });
  CLI::App* purge = log->add_subcommand("purge", "Delete the events of a period");
  AddPeriodOptions(purge, *log_options);
  purge->add_flag("--yes", log_options->yes, "Do not ask for confirmation");
  purge->callback([&options, log_options] { RunLogPurge(options, *log_options); });
  CLI::App* print = log->add_subcommand("print", "Write the event report of a period as pages");
  AddPeriodOptions(print, *log_options);
  print->add_option("--output", log_options->output, "File for the report (default: stdout)");
  print->callback([&options, log_options] { RunLogPrint(options, *log_options); });
}

}  // namespace clockcomm::app
