#include "t4/t4_packet_writer.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>

#include "core/durable_file.h"
#include "core/text.h"
#include "db/open.h"
#include "records/database_writer.h"
#include "records/department_job_assigner.h"
#include "records/parameter_override.h"
#include "records/punch_keys.h"
#include "records/tcd_archive.h"
#include "records/tcd_db_writer.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_file_writer.h"
#include "records/transfer_ledger.h"

namespace clockcomm::t4 {
namespace {

// A punch between its first step and its last: the daily file chosen and the lines decided, so
// that finishing it later writes exactly these, whatever the rules or the history say by then.
constexpr const char* kCreatePendingTable =
    "CREATE TABLE IF NOT EXISTS [T4 Pending Punches] ("
    "PunchKey TEXT PRIMARY KEY, DailyFile TEXT NOT NULL, Lines TEXT NOT NULL, "
    "IncludeSeconds INTEGER NOT NULL, Seen TEXT NOT NULL)";

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

std::string T4PacketWriter::PunchKey(const T4Punch& punch) {
  return records::TransferLedger::LineHash(
      fmt::format("T4|{}|{}|{}|{}|{}|{}", core::ToUpper(punch.clock_name), punch.device_number,
                  punch.badge_id, punch.timestamp.ToString(), punch.in_out, punch.work_code));
}

T4PacketWriter::Outcome T4PacketWriter::WritePacket(const T4Punch& punch) {
  const auto company = companies_.GetCompanyByClockName(punch.clock_name);
  if (!company) {
    const std::string message = "Clock name '" + punch.clock_name +
                                "' was not found in Company3.mdb; the punch of " + Describe(punch) +
                                " stays in the terminal.";
    log_.Event("System setup error", message);
    throw T4WriteError(message);
  }
  try {
    auto db = db::Open(company->ClockwynDatabaseFilename());
    db->Execute(kCreatePendingTable);
    const std::string key = PunchKey(punch);
    if (records::PunchKeys(*db).Contains(key)) {
      log_.Debug("T4PacketWriter", "Already stored: " + Describe(punch));
      return Outcome::kAlreadyStored;
    }
    auto pending = LoadPending(*db, key);
    const Outcome outcome = pending ? Outcome::kCompleted : Outcome::kWritten;
    if (!pending) {
      pending = BuildRecords(punch, *db);
      std::string lines;
      for (const auto& record : pending->records) lines += Line(record) + "\r\n";
      db::Transaction begun(*db);
      db->Execute(
          "INSERT INTO [T4 Pending Punches] (PunchKey, DailyFile, Lines, IncludeSeconds, Seen) "
          "VALUES (?, ?, ?, ?, ?)",
          {key, pending->daily_file, lines, pending->records.front().IncludeSeconds(),
           clock_.Now().GetDate()});
      begun.Commit();
    }
    AppendLines(company->DirectoryPath() / pending->daily_file, *pending,
                outcome == Outcome::kCompleted);
    CommitRows(*db, punch, key, *pending);
    StampRegistry(company->ClockName());
    log_.Debug("T4PacketWriter", (outcome == Outcome::kWritten ? "Stored: " : "Finished: ") +
                                     Describe(punch) + " as " +
                                     pending->records.front().PunchType());
    return outcome;
  } catch (const std::exception& e) {
    const std::string message = "The punch of " + Describe(punch) +
                                " was not stored; it stays in the terminal: " + e.what();
    log_.Event("System error", message);
    throw T4WriteError(message);
  }
}

T4PacketWriter::Pending T4PacketWriter::BuildRecords(const T4Punch& punch,
                                                     db::Database& company_db) const {
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
  records::DepartmentJobAssigner assigner(records::ParameterOverride(program_folder_), &company_db,
                                          log_);
  for (auto& record : pending.records) assigner.Assign(record);
  return pending;
}

std::optional<T4PacketWriter::Pending> T4PacketWriter::LoadPending(db::Database& company_db,
                                                                   const std::string& key) const {
  auto rs = company_db.Query(
      "SELECT DailyFile, Lines, IncludeSeconds FROM [T4 Pending Punches] WHERE PunchKey = ?",
      {key});
  if (rs.Eof()) return std::nullopt;
  Pending pending;
  pending.daily_file = rs.Field("DailyFile").AsText();
  for (const auto& raw : core::Split(rs.Field("Lines").AsText(), '\n')) {
    const std::string line(WithoutLineEnd(raw));
    if (line.empty()) continue;
    auto record = records::TcdFileReader::FromFields(records::TcdFileReader::SplitFields(line));
    record.SetIncludeSeconds(rs.Field("IncludeSeconds").AsBool());
    if (Line(record) != line) {
      throw core::InvalidOperationException("The pending punch line '" + line +
                                            "' does not read back as written.");
    }
    pending.records.push_back(std::move(record));
  }
  if (pending.records.empty()) {
    throw core::InvalidOperationException("A pending punch holds no line.");
  }
  return pending;
}

void T4PacketWriter::AppendLines(const std::filesystem::path& file, const Pending& pending,
                                 bool check_file) {
  std::error_code ec;
  const bool existed = std::filesystem::exists(file, ec);
  std::string text;
  if (check_file && existed) text = core::ReadWholeFile(file);
  records::TcdFileWriter writer(file, true);
  for (const auto& record : pending.records) {
    if (!check_file || !HoldsLine(text, Line(record))) writer.WriteRecord(record);
  }
  writer.Sync();
  writer.CloseWriter();
  // A new file's name must be on the disk too; once synced it stays (nothing removes it).
  std::lock_guard lock(mutex_);
  if (!existed || durable_files_.count(file.string()) == 0) {
    core::SyncDirectory(file.parent_path());
    durable_files_.insert(file.string());
  }
}

void T4PacketWriter::CommitRows(db::Database& company_db, const T4Punch& punch,
                                const std::string& key, const Pending& pending) {
  const core::Date today = clock_.Now().GetDate();
  db::Transaction transaction(company_db);
  records::PunchKeys keys(company_db);
  records::TcdDbWriter writer(company_db);
  int64_t first_row = 0;
  for (const auto& record : pending.records) {
    // A record whose content is there already went in by another road (a transfer of the daily
    // file): the row is not doubled.
    const std::string record_key = records::PunchKeys::KeyOf(punch.clock_name, record);
    if (keys.Contains(record_key)) continue;
    records::TcdRecord row = record;
    records::MoveOutPunch(row);
    writer.WriteRecord(row);
    keys.Add(record_key, writer.LastRowId(), today);
    if (first_row == 0) first_row = writer.LastRowId();
    // A transfer of the daily file reads the line back without its seconds: with that key too it
    // knows the punch is in.
    if (record.IncludeSeconds()) {
      records::TcdRecord as_read = record;
      as_read.SetIncludeSeconds(false);
      const std::string read_key = records::PunchKeys::KeyOf(punch.clock_name, as_read);
      if (!keys.Contains(read_key)) keys.Add(read_key, writer.LastRowId(), today);
    }
  }
  keys.Add(key, first_row, today);
  company_db.Execute("DELETE FROM [T4 Pending Punches] WHERE PunchKey = ?", {key});
  keys.Expire(today);
  records::DatabaseWriter::StampCompanyDatabase(company_db, today);
  transaction.Commit();
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
