// One screen for the administrator (`clockcomm status`): the service, the line, every terminal's
// last contact and last result, the punches of today, the files that wait and the last errors,
// with what needs attention, as text or JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/date_time.h"
#include "shell/event_log.h"
#include "shell/my_static.h"
#include "terminal/terminal_type.h"

namespace clockcomm::shell {

// A scheduled location not reached for this long (a day and an hour's grace) needs attention.
inline constexpr int kOverdueHours = 25;
// How far back the last errors are looked for, and how many are shown.
inline constexpr int kErrorDays = 7;
inline constexpr size_t kErrorsShown = 10;

struct ServiceState {
  bool known = false;  // false: no service manager could be asked
  std::string active;  // "active", "inactive", "failed", ...
  std::string sub;     // "running", "dead", ...
  std::string status;  // what the running program last said it was doing
};

struct TerminalStatus {
  std::string name;
  std::string known_as;  // "clock of Acme", "poll list", "T4 clock", "event log"
  // The make of the terminal where the site says it; nothing: the settings' terminal type.
  std::optional<terminal::TerminalType> terminal_type;
  std::string company;  // the company whose clock it is; empty: none
  std::optional<core::TimeOfDay> call_time;
  std::optional<core::DateTime> last_contact;
  std::string last_event;  // "End of call: ..."
  bool last_failed = false;
  bool overdue = false;
};

struct CompanyPunches {
  std::string company;
  std::optional<int64_t> today;     // nothing: the database could not be read
  std::optional<int64_t> last_24h;  // from this time yesterday (excluded) to now
  std::string error;
};

struct WaitingFileStatus {
  std::string file;
  std::string state;
  std::string detail;
};

struct SiteStatus {
  core::DateTime now;
  ServiceState service;
  std::string line;  // "Comm Port 1 (/dev/ttyS0), Serial, ZON / Tranz, auto-start Host ..."
  // Where the event log and the registry live, passwords hidden.
  std::string event_log_database, registry_database;
  std::vector<TerminalStatus> terminals;
  std::vector<CompanyPunches> punches;
  std::vector<WaitingFileStatus> waiting;
  std::vector<EventLogEntry> errors;   // newest first
  std::vector<std::string> attention;  // each thing that needs a look; empty: all is well
};

// A terminal without a call time that has not called for this long is offline, unless registry.ini
// says otherwise ([Console] OfflineAfterMinutes; 0 turns that alarm off).
inline constexpr int kDefaultOfflineAfterMinutes = 60;
inline constexpr const char* kConsoleSection = "Console";
// The minutes of [Console] OfflineAfterMinutes: nothing for 0 (no alarm), the default when the
// value is missing or not a whole number of minutes (with the reason in warning).
std::optional<int> OfflineAfterMinutes(const InstallInformation& install, std::string* warning);

// Reads the event log, the poll list, the company registry and databases and the data folder.
SiteStatus GatherSiteStatus(const MyStatic& config, core::Clock& clock, ServiceState service);

std::string FormatStatusText(const SiteStatus& status);
std::string FormatStatusJson(const SiteStatus& status);

}  // namespace clockcomm::shell
