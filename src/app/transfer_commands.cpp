// transfer, pending, punches: moving TCD files into a company's database, the files that wait,
// and the rows that went in.
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "app/command_support.h"
#include "app/commands.h"
#include "core/clock.h"
#include "core/date_time.h"
#include "records/clock_file_transfer.h"
#include "records/company_factory.h"
#include "records/intake/call_state.h"
#include "records/intake/intake_recovery.h"
#include "shell/logs.h"

namespace clockcomm::app {
namespace fs = std::filesystem;
namespace {

struct TransferCommandOptions {
  std::string clock;
  std::vector<std::string> files;
  std::string mode;
  bool one_transaction = false;
  bool again = false;
  bool pending = false;
};

records::IntakePaths IntakePathsOf(const shell::MyPaths& paths) {
  return {paths.DataDirectory(), paths.ProgramDirectory(), paths.CompanyRegistryDatabase()};
}

// transfer --pending: the recovery sweep, once the cause of the wait is fixed.
void RunTransferPending(const Context& ctx, shell::Logs& logs, core::Clock& clock) {
  records::CompanyFactory factory = LoadFactory(ctx.paths, logs);
  records::IntakeRecovery recovery(IntakePathsOf(ctx.paths), factory, logs, clock);
  const records::SweepResult swept = recovery.Sweep();
  std::cout << swept.delivered << " pending file(s) delivered, " << swept.rows
            << " row(s) went in; " << swept.still_pending << " still pending; " << swept.set_aside
            << " file(s) of calls that never completed set aside\n";
  if (swept.still_pending > 0) {
    std::cerr << "clockcomm transfer: files still wait; `clockcomm pending` says why\n";
    throw CLI::RuntimeError(1);
  }
}

void RunPending(const GlobalOptions& options) {
  Context ctx(options);
  core::SystemClock clock;
  core::NullLogSink no_log;
  records::CompanyFactory factory = LoadFactory(ctx.paths, no_log);
  records::IntakeRecovery recovery(IntakePathsOf(ctx.paths), factory, no_log, clock);
  const auto waiting = recovery.Waiting();
  for (const auto& w : waiting) {
    std::cout << w.file.string() << "\t" << w.state << "\t" << w.detail << "\n";
  }
  if (waiting.empty()) std::cout << "Nothing waits.\n";
}

void RunTransfer(const GlobalOptions& options, const TransferCommandOptions& o) {
  Context ctx(options);
  core::SystemClock clock;
  shell::Logs logs(ctx.paths, clock);
  // The transfer applies SettingsOverride.txt: a refused line there can switch assignment off.
  shell::ReportConfigurationWarnings(ctx.config->Warnings(), logs, std::cerr);
  if (o.pending) {
    if (!o.files.empty() || !o.clock.empty()) Fail("clockcomm transfer: --pending takes no files");
    return RunTransferPending(ctx, logs, clock);
  }
  if (o.clock.empty() || o.files.empty()) {
    Fail("clockcomm transfer: name the clock (--clock) and the files, or use --pending");
  }
  records::CompanyFactory factory = LoadFactory(ctx.paths, logs);
  const auto company = factory.GetCompanyByClockName(o.clock);
  if (!company) {
    const std::string msg = "Clock name '" + o.clock + "' was not found in Company3.mdb";
    logs.Event("System error", msg);
    Fail("clockcomm transfer: " + msg);
  }
  records::ClockFileTransfer transfer(
      {ctx.paths.ProgramDirectory(), ctx.paths.CompanyRegistryDatabase()}, logs, clock);
  records::TransferOptions transfer_options;
  transfer_options.mode_letter = o.mode;
  transfer_options.use_transactions = !o.one_transaction;
  transfer_options.again = o.again;
  logs.SetCurrentClock(company->ClockName(), 0);  // names the clock in the event rows
  int total = 0;
  bool failed = false;
  for (const auto& file : o.files) {
    if (fs::exists(records::StateMarker(file, records::CallState::kReceiving)) &&
        !fs::exists(records::StateMarker(file, records::CallState::kPending))) {
      // Its call is running or died before the terminal was told: it may hold half a batch.
      std::cerr << "clockcomm transfer: " << file
                << " is a call still being received or one that never completed; not "
                   "transferred (`clockcomm pending` lists it)\n";
      failed = true;
      continue;
    }
    try {
      const auto r = transfer.Transfer(*company, file, transfer_options);
      total += r.inserted;
      std::cout << file << ": ";
      if (o.again) std::cout << "forgot " << r.forgotten << " deleted row(s), ";
      std::cout << r.inserted << " row(s) went in";
      if (r.already_present > 0) std::cout << ", " << r.already_present << " already there";
      if (r.rejected > 0) {
        std::cout << ", " << r.rejected << " bad line(s) kept in " << r.reject_file.string();
        failed = true;
      }
      std::cout << "\n";
    } catch (const records::TransferError& e) {
      std::cerr << "clockcomm transfer: " << file << ": " << e.what() << "\n";
      failed = true;
    }
  }
  std::cout << total << " row(s) went into " << company->Name() << "\n";
  if (failed) throw CLI::RuntimeError(1);
}

// ---- punches ----

struct PunchesOptions {
  std::string company;
  std::string from;
  std::string to;
};

// The rows of [Clock Data Table] whose day (in, else out) lies in the period, in the order they
// went in, tab-separated under a heading line.
void RunPunches(const GlobalOptions& options, const PunchesOptions& o) {
  Context ctx(options);
  const core::Date today = core::SystemClock().Now().GetDate();
  const core::Date from = o.from.empty() ? today : ParseDayOption("--from", o.from);
  const core::Date to = o.to.empty() ? from : ParseDayOption("--to", o.to);
  auto db = OpenCompanyDatabase(ctx, o.company);
  // Amount: the hours or money of an amount punch (vacation, tips, ...), in whichever column.
  static constexpr const char* kColumns[] = {"ID",        "Card ID",  "Punch Type", "Date In",
                                             "Time In",   "Date Out", "Time Out",   "Department",
                                             "JobNumber", "Level4",   "Level5",     "Amount"};
  const std::string select =
      "ID, [Card ID], [Punch Type], [Date In], [Time In], [Date Out], [Time Out], Department, "
      "JobNumber, Level4, Level5, COALESCE(Tips, Advances, Other, Sick, Vacation, Personal, "
      "Bonus, Holiday, Quantity)";
  auto rows = db->Query("SELECT " + select +
                            " FROM [Clock Data Table] WHERE COALESCE([Date In], [Date Out]) "
                            "BETWEEN ? AND ? ORDER BY ID",
                        {db::Value(from), db::Value(to)});
  for (size_t i = 0; i < std::size(kColumns); ++i) std::cout << (i ? "\t" : "") << kColumns[i];
  std::cout << "\n";
  for (; !rows.Eof(); rows.MoveNext()) {
    for (size_t i = 0; i < std::size(kColumns); ++i) {
      std::cout << (i ? "\t" : "") << rows.Field(i).AsText();
    }
    std::cout << "\n";
  }
  std::cout << rows.RecordCount() << " row(s) of " << o.company << " from "
            << from.Format(core::kFormatIsoDate) << " to " << to.Format(core::kFormatIsoDate)
            << "\n";
}

}  // namespace

void RegisterTransferCommands(CLI::App& app, const GlobalOptions& options) {
  auto to = std::make_shared<TransferCommandOptions>();
  CLI::App* transfer =
      app.add_subcommand("transfer", "Transfer TCD files of a clock into its company's database");
  transfer->add_option("--clock", to->clock, "Clock name (any case)");
  transfer->add_option("files", to->files, "TCD files");
  transfer->add_option("--mode", to->mode, "Upload type of the call; W: no .ARC archive");
  transfer->add_flag("--one-transaction", to->one_transaction,
                     "One transaction for each whole file instead of batches");
  transfer->add_flag("--again", to->again,
                     "Transfer again the lines whose rows were deleted from the table (logged)");
  transfer->add_flag("--pending", to->pending,
                     "Deliver every call file that waits (see `clockcomm pending`), once its "
                     "cause is fixed");
  transfer->callback([&options, to] { RunTransfer(options, *to); });

  app.add_subcommand("pending",
                     "List the files that wait: pending call files and why, files of calls that "
                     "never completed, kept packets and bad lines")
      ->callback([&options] { RunPending(options); });

  auto po = std::make_shared<PunchesOptions>();
  CLI::App* punches =
      app.add_subcommand("punches", "Show the punches that went into a company's database, by day");
  punches->add_option("--company", po->company, "Company name")->required();
  punches->add_option("--from", po->from, "First day, YYYY-MM-DD (default: today)");
  punches->add_option("--to", po->to, "Last day, YYYY-MM-DD (default: the first day)");
  punches->callback([&options, po] { RunPunches(options, *po); });
}

}  // namespace clockcomm::app
