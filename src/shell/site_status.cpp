#include "shell/site_status.h"

#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "core/errors.h"
#include "core/log_sink.h"
#include "core/text.h"
#include "db/location.h"
#include "db/open.h"
#include "records/company_factory.h"
#include "records/intake/intake_recovery.h"
#include "shell/journal_log.h"
#include "shell/port_map.h"
#include "shell/schedule/auto_start.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::shell {
namespace {

std::string LineOf(const MyStatic& config) {
  const CommSettings& comm = config.Comm();
  std::string line = "Comm Port " + std::to_string(comm.comm_port) + " (" +
                     PortDevice(config.InstallInformation(), comm.comm_port) + "), " +
                     std::string(comm::ConnectionTypeName(comm.connection_type)) + ", " +
                     std::string(terminal::TerminalTypeName(comm.terminal_type));
  const AutoStartMode mode = AutoStartModeFromSetting(comm.auto_start_mode);
  if (mode == AutoStartMode::kNone) return line + ", no auto-start";
  return line + ", auto-start " + AutoStartModeName(mode) + " from " + comm.begin_time + " to " +
         comm.end_time;
}

// Each terminal the site knows, by upper-case name: the companies' clocks and the poll list.
std::vector<TerminalStatus> KnownTerminals(const MyPaths& paths,
                                           records::CompanyFactory& companies) {
  std::vector<TerminalStatus> terminals;
  std::map<std::string, size_t> by_name;
  const auto add = [&](const std::string& name, const std::string& known_as) -> TerminalStatus& {
    const std::string key = core::ToUpper(name);
    auto it = by_name.find(key);
    if (it == by_name.end()) {
      it = by_name.emplace(key, terminals.size()).first;
      terminals.push_back(TerminalStatus{.name = name, .known_as = known_as});
    }
    return terminals[it->second];
  };
  for (const records::Company& company : companies.GetCompanyList()) {
    if (!company.ClockName().empty()) {
      add(company.ClockName(), "clock of " + company.Name()).company = company.Name();
    }
  }
  auto product_db = db::Open(paths.ClockwynDatabase());
  for (const PollRow& row : PollList(*product_db).ReadPollRows()) {
    TerminalStatus& terminal = add(row.location_name, "poll list");
    if (row.select_to_dial && row.dial_time) terminal.call_time = row.dial_time;
    if (row.terminal_type) terminal.terminal_type = row.terminal_type;
  }
  // The T4 host's clocks, also those no company names yet (an older folder has no such table).
  if (product_db->HasColumn("T4Clocks", "ClockName")) {
    for (auto rs = product_db->Query("SELECT ClockName FROM T4Clocks ORDER BY ClockID"); !rs.Eof();
         rs.MoveNext()) {
      add(rs.Field("ClockName").AsText(), "T4 clock").terminal_type =
          terminal::TerminalType::kFingerprint;
    }
  }
  return terminals;
}

void AddLastContacts(std::vector<TerminalStatus>& terminals, EventLog& event_log,
                     const core::DateTime& now) {
  // By upper-case name: a site of a thousand terminals is looked up, not searched.
  std::map<std::string, size_t> by_name;
  for (size_t i = 0; i < terminals.size(); ++i) {
    by_name.emplace(core::ToUpper(terminals[i].name), i);
  }
  for (const EventLogEntry& entry : event_log.LastOfEachClock()) {
    auto [found, added] = by_name.emplace(core::ToUpper(entry.clock_name), terminals.size());
    if (added) {
      terminals.push_back(TerminalStatus{.name = entry.clock_name, .known_as = "event log"});
    }
    TerminalStatus& terminal = terminals[found->second];
    terminal.last_contact = entry.date_time;
    terminal.last_event = entry.event_type;
    if (!entry.description.empty()) terminal.last_event += ": " + entry.description;
    terminal.last_failed = JournalPriority(entry.event_type) == LOG_ERR;
  }
  for (TerminalStatus& terminal : terminals) {
    terminal.overdue = terminal.call_time &&
                       (!terminal.last_contact ||
                        core::SecondsBetween(*terminal.last_contact, now) > kOverdueHours * 3600);
  }
}

// A punch's day and time: an out punch alone has only its out columns.
constexpr const char* kPunchesLast24Hours =
    "SELECT COUNT(*) FROM [Clock Data Table] WHERE "
    "(COALESCE([Date In], [Date Out]) = ? AND "
    "CASE WHEN [Date In] IS NULL THEN [Time Out] ELSE [Time In] END <= ?) OR "
    "(COALESCE([Date In], [Date Out]) = ? AND "
    "CASE WHEN [Date In] IS NULL THEN [Time Out] ELSE [Time In] END > ?)";

std::string Quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : core::Utf8FromAnsi(text)) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  return out + "\"";
}

template <typename T>
std::string OptionalJson(const std::optional<T>& value) {
  if (!value) return "null";
  if constexpr (std::is_integral_v<T>) {
    return std::to_string(*value);
  } else {
    return Quoted(value->ToString());
  }
}

}  // namespace

std::optional<int> OfflineAfterMinutes(const InstallInformation& install, std::string* warning) {
  const std::string text = install.Value(kConsoleSection, "OfflineAfterMinutes");
  if (text.empty()) return kDefaultOfflineAfterMinutes;
  const auto minutes = core::ParseInt(text);
  if (!minutes || *minutes < 0) {
    if (warning != nullptr) {
      *warning = "[Console] OfflineAfterMinutes \"" + text +
                 "\" is not a whole number of minutes; " +
                 std::to_string(kDefaultOfflineAfterMinutes) + " is used";
    }
    return kDefaultOfflineAfterMinutes;
  }
  if (*minutes == 0) return std::nullopt;
  return *minutes;
}

SiteStatus GatherSiteStatus(const MyStatic& config, core::Clock& clock, ServiceState service) {
  SiteStatus status;
  status.now = clock.Now();
  status.service = std::move(service);
  status.line = LineOf(config);
  const MyPaths paths = config.Paths();
  status.event_log_database = db::ShownLocation(paths.EventLogDatabase().native());
  status.registry_database = db::ShownLocation(paths.CompanyRegistryDatabase().native());
  core::NullLogSink quiet;
  records::CompanyFactory companies(quiet, paths.DataDirectory());
  companies.Initialize(paths.CompanyRegistryDatabase());

  status.terminals = KnownTerminals(paths, companies);
  auto event_log = EventLog::Open(paths.EventLogDatabase());
  AddLastContacts(status.terminals, *event_log, status.now);

  const core::Date today = status.now.GetDate();
  for (const records::Company& company : companies.GetCompanyList()) {
    CompanyPunches punches{.company = company.Name()};
    try {
      auto db = db::Open(company.ClockwynDatabaseFilename());
      punches.today = db->Query(
                            "SELECT COUNT(*) FROM [Clock Data Table] WHERE "
                            "COALESCE([Date In], [Date Out]) = ?",
                            {db::Value(today)})
                          .Field(0)
                          .AsInt();
      const core::TimeOfDay now_time = status.now.GetTime();
      punches.last_24h =
          db->Query(kPunchesLast24Hours, {db::Value(today), db::Value(now_time),
                                          db::Value(today.AddDays(-1)), db::Value(now_time)})
              .Field(0)
              .AsInt();
    } catch (const std::exception& e) {
      punches.error = e.what();
    }
    status.punches.push_back(std::move(punches));
  }

  records::IntakeRecovery recovery(
      {paths.DataDirectory(), paths.ProgramDirectory(), paths.CompanyRegistryDatabase()}, companies,
      quiet, clock);
  for (const auto& waiting : recovery.Waiting()) {
    status.waiting.push_back({waiting.file.string(), waiting.state, waiting.detail});
  }

  for (auto& entry : event_log->Entries(today.AddDays(1 - kErrorDays), today)) {
    if (JournalPriority(entry.event_type) == LOG_ERR) status.errors.push_back(std::move(entry));
  }
  std::reverse(status.errors.begin(), status.errors.end());
  if (status.errors.size() > kErrorsShown) status.errors.resize(kErrorsShown);

  if (status.service.known && status.service.active != "active") {
    status.attention.push_back("the service is " + status.service.active);
  }
  for (const TerminalStatus& terminal : status.terminals) {
    if (terminal.overdue) {
      status.attention.push_back(
          terminal.name + " was due at " + terminal.call_time->Format(core::kFormatHourMinute) +
          (terminal.last_contact ? " and not reached since " + terminal.last_contact->ToString()
                                 : " and was never reached"));
    } else if (terminal.last_failed) {
      status.attention.push_back(terminal.name + ": " + terminal.last_event);
    }
  }
  for (const CompanyPunches& punches : status.punches) {
    if (!punches.today) {
      status.attention.push_back("the database of " + punches.company +
                                 " cannot be read: " + punches.error);
    }
  }
  // Kept packets, bad lines and set-aside calls are listed; call files that wait for their
  // transfer need someone to fix the cause.
  const auto pending =
      std::count_if(status.waiting.begin(), status.waiting.end(),
                    [](const WaitingFileStatus& w) { return w.state == "pending"; });
  if (pending > 0) {
    status.attention.push_back(std::to_string(pending) +
                               " call file(s) wait for their transfer (clockcomm pending)");
  }
  return status;
}

std::string FormatStatusText(const SiteStatus& status) {
  std::string text = "clockcomm status at " + status.now.ToString() + "\n";
  text += "Service:   ";
  if (!status.service.known) {
    text += "unknown (no service manager answered)\n";
  } else {
    text += status.service.active + " (" + status.service.sub + ")";
    if (!status.service.status.empty()) text += ": " + status.service.status;
    text += "\n";
  }
  text += "Line:      " + status.line + "\n";
  text += "Databases: event log " + status.event_log_database + ", registry " +
          status.registry_database + "\n\nTerminals:\n";
  if (status.terminals.empty()) text += "  none\n";
  for (const TerminalStatus& t : status.terminals) {
    text += "  " + t.name + " (" + t.known_as;
    if (t.call_time) text += ", called at " + t.call_time->Format(core::kFormatHourMinute);
    text += "): ";
    text += t.last_contact ? "last contact " + t.last_contact->ToString() + ", " + t.last_event
                           : std::string("never heard from");
    if (t.overdue) text += "  [overdue]";
    text += "\n";
  }
  text += "\nPunches today:\n";
  if (status.punches.empty()) text += "  no company\n";
  for (const CompanyPunches& p : status.punches) {
    text += "  " + p.company + ": " +
            (p.today ? std::to_string(*p.today) : "cannot be read (" + p.error + ")") + "\n";
  }
  text += "\nWaiting files: " + std::to_string(status.waiting.size()) + "\n";
  for (const WaitingFileStatus& w : status.waiting) {
    text += "  " + w.file + "\t" + w.state + "\t" + w.detail + "\n";
  }
  text += "\nLast errors (" + std::to_string(kErrorDays) + " days):";
  text += status.errors.empty() ? " none\n" : "\n";
  for (const EventLogEntry& e : status.errors) {
    text += "  " + e.date_time.ToString() + " " + (e.clock_name.empty() ? "" : e.clock_name + " ") +
            e.event_type + ": " + e.description + "\n";
  }
  text += "\n";
  if (status.attention.empty()) return text + "All is well.\n";
  text += "Needs attention:\n";
  for (const std::string& a : status.attention) text += "  - " + a + "\n";
  return text;
}

std::string FormatStatusJson(const SiteStatus& status) {
  std::string json = "{\n  \"time\": " + Quoted(status.now.ToString()) + ",\n  \"service\": ";
  if (!status.service.known) {
    json += "null";
  } else {
    json += "{\"active\": " + Quoted(status.service.active) +
            ", \"sub\": " + Quoted(status.service.sub) +
            ", \"status\": " + Quoted(status.service.status) + "}";
  }
  json += ",\n  \"line\": " + Quoted(status.line) +
          ",\n  \"databases\": {\"event_log\": " + Quoted(status.event_log_database) +
          ", \"registry\": " + Quoted(status.registry_database) + "},\n  \"terminals\": [";
  for (size_t i = 0; i < status.terminals.size(); ++i) {
    const TerminalStatus& t = status.terminals[i];
    json += std::string(i ? "," : "") + "\n    {\"name\": " + Quoted(t.name) +
            ", \"known_as\": " + Quoted(t.known_as) + ", \"call_time\": " +
            (t.call_time ? Quoted(t.call_time->Format(core::kFormatHourMinute)) : "null") +
            ", \"last_contact\": " + OptionalJson(t.last_contact) +
            ", \"last_event\": " + (t.last_contact ? Quoted(t.last_event) : "null") +
            ", \"last_failed\": " + (t.last_failed ? "true" : "false") +
            ", \"overdue\": " + (t.overdue ? "true" : "false") + "}";
  }
  json += status.terminals.empty() ? "],\n" : "\n  ],\n";
  json += "  \"punches_today\": {";
  for (size_t i = 0; i < status.punches.size(); ++i) {
    json += std::string(i ? ", " : "") + Quoted(status.punches[i].company) + ": " +
            OptionalJson(status.punches[i].today);
  }
  json += "},\n  \"waiting_files\": [";
  for (size_t i = 0; i < status.waiting.size(); ++i) {
    const WaitingFileStatus& w = status.waiting[i];
    json += std::string(i ? ", " : "") + "{\"file\": " + Quoted(w.file) +
            ", \"state\": " + Quoted(w.state) + ", \"detail\": " + Quoted(w.detail) + "}";
  }
  json += "],\n  \"last_errors\": [";
  for (size_t i = 0; i < status.errors.size(); ++i) {
    const EventLogEntry& e = status.errors[i];
    json += std::string(i ? ", " : "") + "{\"time\": " + Quoted(e.date_time.ToString()) +
            ", \"clock\": " + Quoted(e.clock_name) + ", \"type\": " + Quoted(e.event_type) +
            ", \"description\": " + Quoted(e.description) + "}";
  }
  json += "],\n  \"attention\": [";
  for (size_t i = 0; i < status.attention.size(); ++i) {
    json += std::string(i ? ", " : "") + Quoted(status.attention[i]);
  }
  return json + "]\n}\n";
}

}  // namespace clockcomm::shell
