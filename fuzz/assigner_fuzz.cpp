// A punch through the department/job assignment and into its TCD line: whatever the employee's
// default job holds (commas, quotes, anything) and whatever the punch line was, the line written
// reads back as the very record that was assigned.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "core/errors.h"
#include "core/log_sink.h"
#include "core/text.h"
#include "db/open.h"
#include "db/schema.h"
#include "records/department_job_assigner.h"
#include "records/tcd_record_static.h"

namespace {

class NoLog : public clockcomm::core::LogSink {
 public:
  void Event(std::string_view, std::string_view) override {}
  void Debug(std::string_view, std::string_view) override {}
  void Screen(std::string_view) override {}
};

clockcomm::db::Database& CompanyDb() {
  static std::unique_ptr<clockcomm::db::Database> db = [] {
    auto opened = clockcomm::db::Open(":memory:", clockcomm::db::OpenMode::kCreate);
    clockcomm::db::CreateCompanySchema(*opened);
    opened->Execute(
        "INSERT INTO [Employee Table] ([Card ID], [Home Department]) VALUES (1, 44), (2, 45)");
    return opened;
  }();
  return *db;
}

}  // namespace

// Input: the default job, a NUL byte, the punch line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t cut = input.find('\0');
  if (cut == std::string_view::npos) return 0;
  const std::string default_job(input.substr(0, cut));
  records::TcdRecord record;
  try {
    record = records::TcdRecordStatic::Parse(input.substr(cut + 1));
  } catch (const core::Error&) {
    return 0;
  }
  CompanyDb().Execute("UPDATE [Employee Table] SET DefaultAssignment = ?", {default_job});
  records::ParameterOverride settings;
  settings.LoadText("assignhomedept = yes\nassigndefaultjob = yes\n");
  NoLog log;
  records::DepartmentJobAssigner(settings, &CompanyDb(), log).Assign(record);
  // One line per record in the call's file, and it reads back field for field (texts as the
  // parser gives them: a line break is a blank, the ends trimmed; times to the minute, as the
  // line writes them).
  const std::string line = record.ToTcdString(1);
  if (line.find_first_of("\r\n") != std::string::npos) abort();
  const records::TcdRecord back = records::TcdRecordStatic::Parse(line);
  auto minute = [](const std::optional<core::TimeOfDay>& t) {
    return t ? std::optional(t->WithoutSeconds()) : t;
  };
  auto same = [](std::string sent, const std::string& read) {
    for (char& c : sent) c = c == '\r' || c == '\n' ? ' ' : c;
    return core::Trim(sent) == core::Trim(read);
  };
  if (!same(record.ClockNumber(), back.ClockNumber()) ||
      !same(record.JobNumber(), back.JobNumber()) || !same(record.Level4(), back.Level4()) ||
      !same(record.Level5(), back.Level5()) || !same(record.PunchType(), back.PunchType()) ||
      record.BadgeId() != back.BadgeId() || record.Department() != back.Department() ||
      record.DateIn() != back.DateIn() || minute(record.TimeIn()) != back.TimeIn() ||
      record.DateOut() != back.DateOut() || minute(record.Timeout()) != back.Timeout()) {
    abort();
  }
  return 0;
}
