#include "app/call_session.h"

#include "app/families.h"
#include "core/errors.h"
#include "db/schema.h"
#include "shell/port_map.h"

namespace clockcomm::app {

std::filesystem::path RequireHome(const GlobalOptions& options) {
  const auto home = shell::ResolveProgramFolder(options.home);
  if (!std::filesystem::exists(home / shell::kParameterFile)) {
    throw core::InvalidOperationException("No configuration in " + home.string() +
                                          " (run `clockcomm --home " + home.string() +
                                          " init` first).");
  }
  return home;
}

CallSession::CallSession(const std::filesystem::path& home, std::ostream& out, core::Clock& clock)
    : config_(shell::MyStatic::Load(home)),
      clock_(clock),
      logs_(config_->Paths(), clock),
      screen_(out),
      controller_(clock, logs_, screen_),
      companies_(logs_, config_->Paths().DataDirectory()),
      services_{config_->Paths(), config_->Overrides(), &companies_, nullptr} {
  // Under systemd the journal stamps each line and takes the events with their priorities.
  if (shell::OutputGoesToJournal()) {
    logs_.SetEventListener(&journal_);
    screen_.SetLinesWithoutTime(true);
  }
  companies_.Initialize(Paths().CompanyRegistryDatabase());
}

db::Database& CallSession::ProductDatabase() {
  if (!product_db_) {
    product_db_ = db::Open(Paths().ClockwynDatabase());
    db::CreateProductSchema(*product_db_);
  }
  return *product_db_;
}

shell::LineSettings CallSession::LoopSettings(const std::string& port_option) const {
  const auto& comm = config_->Comm();
  const std::string device = port_option.empty()
                                 ? shell::PortDevice(config_->InstallInformation(), comm.comm_port)
                                 : port_option;
  return shell::LineSettings::From(comm, device);
}

std::unique_ptr<shell::LineRunner> CallSession::MakeRunner(shell::LineSettings settings) {
  if (auto reason = UnservedLine(settings.terminal_type, settings.connection_type)) {
    throw core::InvalidOperationException(*reason);
  }
  if (ServedByT4Host(settings.terminal_type)) {
    throw core::InvalidOperationException(
        "Terminal type 2 (Fingerprint) is served by the T4 host: `clockcomm t4 host`.");
  }
  shell::ReportConfigurationWarnings(config_->Warnings(), logs_, std::cerr);
  return std::make_unique<shell::LineRunner>(std::move(settings), Families(), controller_,
                                             services_);
}

}  // namespace clockcomm::app
