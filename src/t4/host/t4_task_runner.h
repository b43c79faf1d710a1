// Runs the user and template tasks waiting in ClockTasks for one T4 clock, on its terminal:
//   "Load All Users" sends every user of the company's store, "Add User" sends one,
//   "Remove User" deletes one from the terminal, and "Reload User" reads one back from the
//   terminal into the store and queues "Add User" for the company's other T4 clocks.
// A task done leaves the table; one the terminal failed stays for the next cycle; one that can
// never be done (no such user in the store, template management off for the clock) leaves it with
// an event saying why.
#pragma once

#include "core/log_sink.h"
#include "records/company_factory.h"
#include "t4/clock_assignments.h"
#include "t4/host/t4_clock_list.h"
#include "t4/host/t4_user_store.h"
#include "t4/t4_clock.h"

namespace clockcomm::t4 {

class T4TaskRunner {
 public:
  T4TaskRunner(records::CompanyFactory& companies, const ClockAssignments& assignments,
               core::LogSink& log)
      : companies_(companies), assignments_(assignments), log_(log) {}

  // Runs the clock's waiting tasks, oldest first; the terminal is disabled meanwhile. Throws when
  // the clock list or the store cannot be read or written (the tasks then stay).
  void Run(T4Clock& clock, T4ClockList& list);

 private:
  enum class Result { kDone, kRetry, kImpossible };
  struct Context;

  Result RunTask(const ClockTask& task, Context& context);
  Result ReloadUser(const ClockTask& task, Context& context);
  Result Failed(const ClockTask& task, Context& context, const std::string& operation);

  records::CompanyFactory& companies_;
  const ClockAssignments& assignments_;
  core::LogSink& log_;
};

}  // namespace clockcomm::t4
