// The recovery sweep: whatever a dead process, a missing company or a refusing database left in
// the data folder is finished here. A pending call file (its punches durable, the terminal told)
// is delivered; the file of a call whose process died while receiving (the terminal was never
// told, so it kept its punches) is set aside as "<file>.INC" and never transferred. A file a live
// process holds is left alone. Run at start-up, after every call and on a timer.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/log_sink.h"
#include "records/company_factory.h"
#include "records/intake/call_delivery.h"

namespace clockcomm::records {

struct SweepResult {
  int delivered = 0;  // pending files now in their company's database
  int rows = 0;       // rows those put in
  int still_pending = 0;
  int set_aside = 0;  // files of calls that never completed
};

// A file that waits, and why.
struct WaitingFile {
  std::filesystem::path file;
  std::string state;   // "pending", "receiving", "set aside", "kept packets", "bad lines"
  std::string detail;  // the clock, and why it waits
};

class IntakeRecovery {
 public:
  IntakeRecovery(IntakePaths paths, CompanyFactory& companies, core::LogSink& log,
                 core::Clock& clock)
      : delivery_(std::move(paths), companies, log, clock), log_(log), clock_(clock) {}

  SweepResult Sweep();
  // Every file of the data folder that waits for something, in name order.
  std::vector<WaitingFile> Waiting() const;

 private:
  // Empty call files and marker temporaries of calls killed while opening, once old enough.
  void RemoveOpeningLeftovers();

  CallDelivery delivery_;
  core::LogSink& log_;
  core::Clock& clock_;
  // Leftovers count only once they are old, so the folder is scanned for them no more often.
  std::optional<core::Clock::Monotonic> next_leftover_scan_;
};

}  // namespace clockcomm::records
