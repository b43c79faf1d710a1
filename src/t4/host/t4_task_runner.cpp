#include "t4/host/t4_task_runner.h"

#include <fmt/format.h>

#include "core/text.h"
#include "db/open.h"

namespace clockcomm::t4 {

struct T4TaskRunner::Context {
  T4Clock& clock;
  T4ClockList& list;
  records::Company company;
  T4UserStore& store;
};

namespace {

std::string Describe(const ClockTask& task) {
  return fmt::format("task {} \"{}\"{}", task.task_id, task.task,
                     task.user_id.empty() ? "" : " for user " + task.user_id);
}

}  // namespace

void T4TaskRunner::Run(T4Clock& clock, T4ClockList& list) {
  const auto tasks = list.ReadTasks(clock.ID());
  if (tasks.empty()) return;
  if (assignments_.Get(clock.Name()).DisableTemplateManagement()) {
    for (const auto& task : tasks) {
      log_.Event("Error", fmt::format("Clock: {}, {} removed: template management is off for this "
                                      "clock in ClockAssignments.txt.",
                                      clock.Name(), Describe(task)));
      list.RemoveTask(task.task_id);
    }
    return;
  }
  const auto company = companies_.GetCompanyByClockName(clock.Name());
  if (!company) {
    log_.Debug(clock.Name(), fmt::format("{} tasks wait: no company has the clock name {}.",
                                         tasks.size(), clock.Name()));
    return;
  }
  auto company_db = db::Open(company->ClockwynDatabaseFilename());
  T4UserStore store(*company_db);
  Context context{clock, list, *company, store};
  if (!clock.EnableDevice(false)) log_.Debug(clock.Name(), "EnableDevice failed before the tasks.");
  for (const auto& task : tasks) {
    const Result result = RunTask(task, context);
    if (result == Result::kRetry) break;  // the terminal failed: the rest wait with it
    if (result == Result::kDone) log_.Debug(clock.Name(), Describe(task) + " done.");
    list.RemoveTask(task.task_id);
  }
  if (!clock.EnableDevice(true)) log_.Debug(clock.Name(), "EnableDevice failed after the tasks.");
}

T4TaskRunner::Result T4TaskRunner::RunTask(const ClockTask& task, Context& context) {
  T4Clock& clock = context.clock;
  if (task.task == kRemoveUser) {
    return clock.DeleteUser(task.user_id) ? Result::kDone : Failed(task, context, "DeleteUser");
  }
  if (task.task == kReloadUser) return ReloadUser(task, context);
  if (task.task == kLoadAllUsers) {
    for (const auto& user : context.store.All()) {
      if (!clock.SetUser(user)) return Failed(task, context, "SetUser");
    }
    return Result::kDone;
  }
  if (task.task == kAddUser) {
    const auto user = context.store.Find(task.user_id);
    if (!user) {
      log_.Event("Error", fmt::format("Clock: {}, {} removed: company {} has no such T4 user "
                                      "(queue \"Reload User\" on the clock they enrolled on).",
                                      clock.Name(), Describe(task), context.company.Name()));
      return Result::kImpossible;
    }
    return clock.SetUser(*user) ? Result::kDone : Failed(task, context, "SetUser");
  }
  log_.Event("Error",
             fmt::format("Clock: {}, {} removed: no such task.", clock.Name(), Describe(task)));
  return Result::kImpossible;
}

T4TaskRunner::Result T4TaskRunner::ReloadUser(const ClockTask& task, Context& context) {
  T4User user;
  if (!context.clock.GetUser(task.user_id, user)) {
    if (context.clock.GetLastErrorCode() != T4Clock::kDataNotFound) {
      return Failed(task, context, "GetUser");
    }
    log_.Event("Error", fmt::format("Clock: {}, {} removed: the terminal has no such user.",
                                    context.clock.Name(), Describe(task)));
    return Result::kImpossible;
  }
  context.store.Save(user);
  // The company's other terminals learn the user from the store.
  for (const auto& other : context.list.ReadClocks()) {
    if (other.id == context.clock.ID()) continue;
    const auto company = companies_.GetCompanyByClockName(other.name);
    if (!company || !core::EqualsIgnoreCase(company->Name(), context.company.Name())) continue;
    if (assignments_.Get(other.name).DisableTemplateManagement()) continue;
    context.list.AddTask({0, other.id, kAddUser, task.user_id});
  }
  return Result::kDone;
}

T4TaskRunner::Result T4TaskRunner::Failed(const ClockTask& task, Context& context,
                                          const std::string& operation) {
  if (context.clock.GetLastErrorCode() == kNotSupported) {
    log_.Event("Error", fmt::format("Clock: {}, {} removed: {} cannot be done on this terminal "
                                    "({}).",
                                    context.clock.Name(), Describe(task), operation,
                                    context.clock.GetLastError()));
    return Result::kImpossible;
  }
  log_.Event("Error", fmt::format("Clock: {}, {}: {} failed ({}); it is tried again next cycle.",
                                  context.clock.Name(), Describe(task), operation,
                                  context.clock.GetLastError()));
  return Result::kRetry;
}

}  // namespace clockcomm::t4
