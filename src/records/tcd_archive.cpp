#include "records/tcd_archive.h"

#include "core/errors.h"

namespace clockcomm::records {
namespace {

std::unique_ptr<TcdFileWriter> OpenForAppend(const std::filesystem::path& path,
                                             const char* message) {
  try {
    return std::make_unique<TcdFileWriter>(path, true, TcdFileWriter::Buffering::kBuffered);
  } catch (const core::SystemError& e) {
    throw core::SystemError(e.Number(), std::string(message) + " (" + path.string() + ")");
  }
}

}  // namespace

std::filesystem::path DailyArchivePath(const std::filesystem::path& company_directory,
                                       const core::Date& today) {
  return company_directory / (today.Format(core::kFormatMonthDay) + "000A.TCD");
}

std::filesystem::path PermanentArchivePath(const std::filesystem::path& company_directory,
                                           std::string_view clock_name) {
  return company_directory / (std::string(clock_name) + ".arc");
}

TcdArchiveWriter::TcdArchiveWriter(const Company& company, const core::Date& today)
    : daily_(
          OpenForAppend(DailyArchivePath(company.DirectoryPath(), today), kDailyArchiveOpenError)),
      permanent_(OpenForAppend(PermanentArchivePath(company.DirectoryPath(), company.ClockName()),
                               kPermanentArchiveOpenError)) {}

void TcdArchiveWriter::WriteRecord(const TcdRecord& record) {
  daily_->WriteRecord(record);
  permanent_->WriteRecord(record);
}

void TcdArchiveWriter::CloseWriter() {
  daily_->CloseWriter();
  permanent_->CloseWriter();
}

void TcdArchiveWriter::Sync() {
  daily_->Sync();
  permanent_->Sync();
}

}  // namespace clockcomm::records
