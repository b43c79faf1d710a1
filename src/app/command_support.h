// Small pieces the command groups share: refusing with a message, strict option parsing, and the
// loaded configuration with the company registry and databases it leads to.
#pragma once

#include <memory>
#include <string>

#include "app/commands.h"
#include "core/date_time.h"
#include "core/log_sink.h"
#include "db/database.h"
#include "records/company_factory.h"
#include "shell/my_static.h"

namespace clockcomm::app {

// Prints the message on stderr as it stands and ends the command with exit code 1.
[[noreturn]] void Fail(const std::string& message);

// A date option given as YYYY-MM-DD, strictly; refuses anything else naming the option.
core::Date ParseDayOption(const std::string& option, const std::string& text);

// The loaded configuration of the program folder --home names.
struct Context {
  explicit Context(const GlobalOptions& options)
      : config(shell::MyStatic::Load(shell::ResolveProgramFolder(options.home))),
        paths(config->Paths()) {}
  std::unique_ptr<shell::MyStatic> config;
  shell::MyPaths paths;
};

// The company registry; refuses with "run clockcomm init first" when there is none.
records::CompanyFactory LoadFactory(const shell::MyPaths& paths, core::LogSink& log);

// The database of the named company; refuses naming the company or the missing file.
std::unique_ptr<db::Database> OpenCompanyDatabase(const Context& ctx,
                                                  const std::string& company_name);

}  // namespace clockcomm::app
