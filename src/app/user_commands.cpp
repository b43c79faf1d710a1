// user add|passwd|remove|list: the operators of the web console. A password is read from the
// first line of standard input, never from the command line, where other users could see it.
#include <iostream>
#include <memory>
#include <string>

#include "app/call_session.h"
#include "app/command_support.h"
#include "app/commands.h"
#include "core/errors.h"
#include "db/open.h"
#include "db/schema.h"
#include "shell/logs.h"
#include "web/operator_store.h"

namespace clockcomm::app {
namespace {

struct UserOptions {
  std::string name;
  std::string role = "viewer";
};

// The operators of the program folder, with the event log their changes go to.
struct UserSite {
  explicit UserSite(const GlobalOptions& options)
      : config(shell::MyStatic::Load(RequireHome(options))),
        logs(config->Paths(), clock),
        db(db::Open(config->Paths().ClockwynDatabase())) {
    db::CreateProductSchema(*db);  // an older product database gains [Operators]
  }
  core::SystemClock clock;
  std::unique_ptr<shell::MyStatic> config;
  shell::Logs logs;
  std::unique_ptr<db::Database> db;
  web::PasswordHasher hasher;
  web::OperatorStore operators{*db, hasher, clock};
};

std::string ReadPassword(const std::string& command) {
  std::string password;
  std::getline(std::cin, password);
  if (!password.empty() && password.back() == '\r') password.pop_back();
  if (password.empty()) {
    Fail("clockcomm " + command + ": the password is read from the first line of standard " +
         "input, and it is empty");
  }
  return password;
}

void RunUserAdd(const GlobalOptions& options, const UserOptions& o) {
  const auto role = web::RoleFromName(o.role);
  if (!role) {
    Fail("clockcomm user add: unknown role \"" + o.role + "\" (viewer, operator or administrator)");
  }
  if (auto reason = web::InvalidOperatorName(o.name)) Fail("clockcomm user add: " + *reason);
  UserSite site(options);
  const std::string password = ReadPassword("user add");
  try {
    site.operators.Add(o.name, *role, password);
  } catch (const core::Error& e) {
    Fail(std::string("clockcomm user add: ") + e.what());
  }
  site.logs.Event("Operator added", o.name + " (" + o.role + ") from the command line");
  std::cout << "Added operator " << o.name << " (" << o.role << ")\n";
}

void RunUserPasswd(const GlobalOptions& options, const UserOptions& o) {
  UserSite site(options);
  const std::string password = ReadPassword("user passwd");
  try {
    site.operators.SetPassword(o.name, password);
  } catch (const core::Error& e) {
    Fail(std::string("clockcomm user passwd: ") + e.what());
  }
  site.logs.Event("Operator password changed", o.name + " from the command line");
  std::cout << "Changed the password of " << o.name << "\n";
}

void RunUserRemove(const GlobalOptions& options, const UserOptions& o) {
  UserSite site(options);
  try {
    site.operators.Remove(o.name);
  } catch (const core::Error& e) {
    Fail(std::string("clockcomm user remove: ") + e.what());
  }
  site.logs.Event("Operator removed", o.name + " from the command line");
  std::cout << "Removed operator " << o.name << "\n";
}

}  // namespace

void RegisterUserCommands(CLI::App& app, const GlobalOptions& options) {
  CLI::App* user = app.add_subcommand("user", "Keep the operators of the web console");
  user->require_subcommand(1);
  auto o = std::make_shared<UserOptions>();
  CLI::App* add = user->add_subcommand(
      "add", "Add an operator; the password is the first line of standard input");
  add->add_option("name", o->name, "Operator name")->required();
  add->add_option("--role", o->role, "viewer, operator or administrator (default: viewer)");
  add->callback([&options, o] { RunUserAdd(options, *o); });
  CLI::App* passwd = user->add_subcommand(
      "passwd", "Set an operator's password from the first line of standard input");
  passwd->add_option("name", o->name, "Operator name")->required();
  passwd->callback([&options, o] { RunUserPasswd(options, *o); });
  CLI::App* remove = user->add_subcommand("remove", "Remove an operator");
  remove->add_option("name", o->name, "Operator name")->required();
  remove->callback([&options, o] { RunUserRemove(options, *o); });
  user->add_subcommand("list", "List the operators and their roles")->callback([&options] {
    UserSite site(options);
    std::cout << "Name\tRole\n";
    for (const auto& op : site.operators.List()) {
      std::cout << op.name << "\t" << web::RoleName(op.role) << "\n";
    }
  });
}

}  // namespace clockcomm::app
