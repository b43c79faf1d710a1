#include <sys/stat.h>

#include <iostream>

#include "app/commands.h"
#include "core/errors.h"
#include "shell/journal_log.h"

int main(int argc, char** argv) {
  using namespace clockcomm;
  // Payroll data: what the program creates (databases, call files, logs) is for its own user and
  // group only.
  ::umask(0027);
  CLI::App app{"clockcomm: the time-clock communications server"};
  app.require_subcommand(1);
  app.fallthrough();
  app::GlobalOptions options;
  app.add_option("--home", options.home,
                 "Program folder (default: $CLOCKCOMM_HOME, else the current directory)");
  app::RegisterSetupCommands(app, options);
  app::RegisterRecordCommands(app, options);
  app::RegisterTransferCommands(app, options);
  app::RegisterCallCommands(app, options);
  app::RegisterT4Commands(app, options);
  app::RegisterBackupCommand(app, options);
  app::RegisterStatusCommand(app, options);
  app::RegisterUserCommands(app, options);
  app::RegisterServeCommand(app, options);
  app::RegisterDbCommands(app, options);
  app::RegisterDemoCommand(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  } catch (const std::exception& e) {
    // "<3>": an error to the journal, which reads a syslog priority at the start of a line.
    std::cerr << (shell::OutputGoesToJournal() ? "<3>" : "") << "clockcomm: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
