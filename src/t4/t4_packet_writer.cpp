#include "t4/t4_packet_writer.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <map>
#include <span>

#include "core/durable_file.h"
#include "core/text.h"
#include "db/open.h"
#include "records/database_writer.h"
#include "records/department_job_assigner.h"
#include "records/parameter_override.h"
#include "records/punch_keys.h"
#include "records/tcd_archive.h"
#include "records/tcd_db_writer.h"

namespace clockcomm::t4 {
namespace {

// The lines of punches whose rows are committed and whose daily file lines are not yet synced:
// the file and the exact lines decided with the rows.
constexpr const char* kCreatePendingTable =
    "CREATE TABLE IF NOT EXISTS [T4 Pending Punches] ("
    "PunchKey TEXT PRIMARY KEY, DailyFile TEXT NOT NULL, Lines TEXT NOT NULL, "
    "Seen TEXT NOT NULL)";

// The punch type asks for the employee's earlier punches of the day with every punch.
constexpr const char* kCreateCardIndex =
    "CREATE INDEX IF NOT EXISTS [T4 Card Punches] ON [Clock Data Table] ([Card ID], [Date In])";

// No written record carries a leave or a return: they are the lunch and break outs and ins.
std::string Rewrite(const std::string& type) {
  if (type == "LR") return "LI";
  if (type == "BR") return "BI";
  if (type == "LL") return "LO";
  if (type == "BL") return "BO";
  return type;
}

std::string Line(const records::TcdRecord& record) { return record.ToTcdString(1); }

// Whether the text holds the line as one whole line.
bool HoldsLine(std::string_view text, const std::string& line) {
  const std::string whole = line + "\r\n";
  for (size_t at = text.find(whole); at != std::string_view::npos; at = text.find(whole, at + 1)) {
    if (at == 0 || text[at - 1] == '\n') return true;
  }
  return false;
}

std::string Describe(const T4Punch& punch) {
  return fmt::format("badge {} at {} from clock {}", punch.badge_id, punch.timestamp.ToString(),
                     punch.clock_name);
}

}  // namespace

T4PacketWriter::T4PacketWriter(records::CompanyFactory& companies, const PunchTypeRules& rules,
                               const ClockAssignments& assignments,
                               std::filesystem::path program_folder, core::LogSink& log,
                               core::Clock& clock)
    : companies_(companies),
      rules_(rules),
      assignments_(assignments),
      program_folder_(std::move(program_folder)),
      log_(log),
      clock_(clock) {}

records::PunchKey T4PacketWriter::PunchKey(const T4Punch& punch) {
  return records::PunchKeys::KeyOf(
      punch.timestamp,
      fmt::format("T4|{}|{}|{}|{}|{}|{}", core::ToUpper(punch.clock_name), punch.device_number,
                  punch.badge_id, punch.timestamp.ToString(), punch.in_out, punch.work_code));
}

T4PacketWriter::Outcome T4PacketWriter::WritePacket(const T4Punch& punch) {
  return WritePackets({punch}).written == 1 ? Outcome::kWritten : Outcome::kAlreadyStored;
}

T4PacketWriter::Counts T4PacketWriter::WritePackets(const std::vector<T4Punch>& punches) {
  if (punches.empty()) return {};
  const std::string& clock_name = punches.front().clock_name;
  const auto company = companies_.GetCompanyByClockName(clock_name);
  if (!company) {
    const std::string message = "Clock name '" + clock_name +
                                "' was not found in Company3.mdb; the punch of " +
                                Describe(punches.front()) + " stays in the terminal.";
    log_.Event("System setup error", message);
    throw T4WriteError(message);
  }
  Counts counts;
  size_t done = 0;
  try {
    auto db = db::Open(company->ClockwynDatabaseFilename());
    PrepareTables(*db);
    FinishPendingLines(company->DirectoryPath(), *db);
    records::DepartmentJobAssigner assigner(records::ParameterOverride(program_folder_), db.get(),
                                            log_);
    for (; done < punches.size(); done += kChunk) {
      const auto chunk = std::span(punches).subspan(done, std::min(kChunk, punches.size() - done));
      const Counts stored = WriteChunk(chunk, company->DirectoryPath(), *db, assigner);
      counts.written += stored.written;
      counts.already_stored += stored.already_stored;
    }
  } catch (const std::exception& e) {
    const size_t left = punches.size() - done;
    const std::string message =
        "The punch of " + Describe(punches[done]) +
        (left > 1 ? " and " + std::to_string(left - 1) + " after it" : std::string()) +
        " was not stored; it stays in the terminal: " + e.what();
    log_.Event("System error", message);
    throw T4WriteError(message);
  }
  if (counts.written > 0) StampRegistry(company->ClockName());
  return counts;
}

T4PacketWriter::Counts T4PacketWriter::WriteChunk(std::span<const T4Punch> punches,
                                                  const std::filesystem::path& directory,
                                                  db::Database& company_db,
                                                  records::DepartmentJobAssigner& assigner) {
  // Each punch is logged on its own when it comes alone (real time); a bulk read is summed up by
  // its listener.
  const bool log_each = punches.size() == 1;
  Counts counts;
  // The rows first, each punch judged after the ones before it (its history sees their rows),
  // with the lines they make kept beside them until the file holds them too.
  std::vector<Pending> written;
  {
    db::Transaction transaction(company_db);
    records::PunchKeys keys(company_db);
    records::TcdDbWriter rows(company_db);
    for (const auto& punch : punches) {
      if (keys.Contains(PunchKey(punch))) {
        if (log_each) log_.Debug("T4PacketWriter", "Already stored: " + Describe(punch));
        ++counts.already_stored;
        continue;
      }
      Pending pending = BuildRecords(punch, company_db, assigner);
      InsertRows(company_db, punch, pending, keys, rows);
      if (log_each) {
        log_.Debug("T4PacketWriter",
                   "Stored: " + Describe(punch) + " as " + pending.records.front().PunchType());
      }
      written.push_back(std::move(pending));
    }
    records::DatabaseWriter::StampCompanyDatabase(company_db, clock_.Now().GetDate());
    transaction.Commit();
  }
  WriteLines(directory, company_db, written, false);
  counts.written = static_cast<int>(written.size());
  return counts;
}

T4PacketWriter::Pending T4PacketWriter::BuildRecords(
    const T4Punch& punch, db::Database& company_db,
    records::DepartmentJobAssigner& assigner) const {
  if (punch.badge_id < 0 || punch.badge_id > std::numeric_limits<int32_t>::max()) {
    throw core::ArgumentException(
        "Badge " + std::to_string(punch.badge_id) + " does not fit a TCD record.", "BadgeId");
  }
  const ClockAssignment& clock = assignments_.Get(punch.clock_name);
  // The moment as the records carry it; the history is asked about that moment too.
  T4Punch judged = punch;
  if (!clock.IncludeSeconds()) judged.timestamp = punch.timestamp.TruncatedToMinute();
  const core::Date date = judged.timestamp.GetDate();
  const core::TimeOfDay time = judged.timestamp.GetTime();
  ClockDataPunchHistory history(company_db);
  const std::string type = Rewrite(rules_.GetFinalPunchType(judged, clock, history));
  records::TcdRecord first(
      std::to_string(punch.device_number), 0, static_cast<int32_t>(punch.badge_id),
      assignments_.GetDepartmentFromWorkCode(punch.clock_name, punch.work_code),
      assignments_.GetJobFromWorkCode(punch.clock_name, punch.work_code), "", "", type, date, time,
      std::nullopt, std::nullopt, std::nullopt, "", clock.IncludeSeconds());
  // A switch and a lunch out end one period and begin the next at the same moment.
  if (type == "SW" || type == "LO") {
    first.SetDateOut(date);
    first.SetTimeout(time);
  }
  Pending pending;
  pending.key = PunchKey(punch).Text();
  pending.daily_file = records::DailyArchivePath("", clock_.Now().GetDate()).filename().string();
  pending.records.push_back(first);
  // The period that begins: work after a lunch or a switch, the lunch itself after a lunch out.
  if (type == "LI" || type == "SW" || type == "LO") {
    records::TcdRecord second = first;
    second.SetPunchType(type == "LO" ? "LO" : "I");
    second.SetDateOut(std::nullopt);
    second.SetTimeout(std::nullopt);
    pending.records.push_back(second);
  }
  for (auto& record : pending.records) {
    assigner.Assign(record);
    pending.lines += Line(record) + "\r\n";
  }
  return pending;
}

void T4PacketWriter::InsertRows(db::Database& company_db, const T4Punch& punch,
                                const Pending& pending, records::PunchKeys& keys,
                                records::TcdDbWriter& writer) {
  const core::Date today = clock_.Now().GetDate();
  int64_t first_row = 0;
  for (const auto& record : pending.records) {
    // A record whose content is there already went in by another road (a transfer of the daily
    // file): the row is not doubled.
    const records::PunchKey record_key = records::PunchKeys::KeyOf(punch.clock_name, record);
    if (keys.Contains(record_key)) continue;
    records::TcdRecord row = record;
    records::MoveOutPunch(row);
    writer.WriteRecord(row);
    keys.Add(record_key, writer.LastRowId());
    if (first_row == 0) first_row = writer.LastRowId();
    // A transfer of the daily file reads the line back without its seconds: with that key too it
    // knows the punch is in.
    if (record.IncludeSeconds()) {
      records::TcdRecord as_read = record;
      as_read.SetIncludeSeconds(false);
      const records::PunchKey read_key = records::PunchKeys::KeyOf(punch.clock_name, as_read);
      if (!keys.Contains(read_key)) keys.Add(read_key, writer.LastRowId());
    }
  }
  keys.Add(PunchKey(punch), first_row);
  company_db.Execute(
      "INSERT INTO [T4 Pending Punches] (PunchKey, DailyFile, Lines, Seen) VALUES (?, ?, ?, ?) "
      "ON CONFLICT (PunchKey) DO UPDATE SET DailyFile = excluded.DailyFile, "
      "Lines = excluded.Lines, Seen = excluded.Seen",
      {pending.key, pending.daily_file, pending.lines, today});
}

void T4PacketWriter::WriteLines(const std::filesystem::path& directory, db::Database& company_db,
                                const std::vector<Pending>& pending, bool check_file) {
  if (pending.empty()) return;
  std::map<std::string, std::string> text_of;  // daily file -> the lines it gets
  for (const auto& p : pending) text_of[p.daily_file];
  for (auto& [name, text] : text_of) {
    const auto file = directory / name;
    std::error_code ec;
    const bool existed = std::filesystem::exists(file, ec);
    const std::string held = check_file && existed ? core::ReadWholeFile(file) : std::string();
    for (const auto& p : pending) {
      if (p.daily_file != name) continue;
      for (const auto& line : core::Split(p.lines, '\n')) {
        if (line.empty()) continue;
        const std::string whole = line + "\n";
        if (!check_file || !HoldsLine(held, std::string(WithoutLineEnd(line)))) text += whole;
      }
    }
    core::AppendDurably(file, text);
    // A new file's name must be on the disk too; once synced it stays (nothing removes it).
    std::lock_guard lock(mutex_);
    if (!existed || durable_files_.count(file.string()) == 0) {
      core::SyncDirectory(file.parent_path());
      durable_files_.insert(file.string());
    }
  }
  db::Transaction transaction(company_db);
  for (const auto& p : pending) {
    company_db.Execute("DELETE FROM [T4 Pending Punches] WHERE PunchKey = ?", {p.key});
  }
  transaction.Commit();
}

void T4PacketWriter::PrepareTables(db::Database& company_db) {
  {
    std::lock_guard lock(mutex_);
    if (prepared_databases_.count(company_db.Name()) != 0) return;
  }
  company_db.Execute(kCreatePendingTable);
  company_db.Execute(kCreateCardIndex);
  std::lock_guard lock(mutex_);
  prepared_databases_.insert(company_db.Name());
}

void T4PacketWriter::FinishPendingLines(const std::filesystem::path& directory,
                                        db::Database& company_db) {
  std::vector<Pending> left;
  for (auto rs = company_db.Query("SELECT PunchKey, DailyFile, Lines FROM [T4 Pending Punches]");
       !rs.Eof(); rs.MoveNext()) {
    left.push_back({rs.Field("PunchKey").AsText(),
                    rs.Field("DailyFile").AsText(),
                    {},
                    rs.Field("Lines").AsText()});
  }
  if (left.empty()) return;
  log_.Debug("T4PacketWriter",
             std::to_string(left.size()) +
                 " punches stored without their daily file lines: finishing them");
  WriteLines(directory, company_db, left, true);
}

void T4PacketWriter::StampRegistry(const std::string& clock_name) {
  const core::Date today = clock_.Now().GetDate();
  const std::string stamp = core::ToUpper(clock_name) + "|" + today.ToString();
  {
    std::lock_guard lock(mutex_);
    if (stamped_registry_.count(stamp) != 0) return;
  }
  // The rows are in; a stamp that cannot be written is logged, not a failed punch.
  try {
    auto registry = db::Open(companies_.DatabaseName());
    records::DatabaseWriter::StampRegistry(*registry, clock_name, today);
    std::lock_guard lock(mutex_);
    stamped_registry_.insert(stamp);
  } catch (const std::exception& e) {
    log_.Event("System error", std::string("Clock Table Updated stamp: ") + e.what());
  }
}

}  // namespace clockcomm::t4
