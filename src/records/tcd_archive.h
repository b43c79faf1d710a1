// The two archives a call appends its punches to in the company's directory: the daily file
// mmdd000A.TCD and the permanent <clock name>.arc.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/date_time.h"
#include "records/company.h"
#include "records/tcd_file_writer.h"

namespace clockcomm::records {

inline constexpr const char* kDailyArchiveOpenError = "Couldn't open daily archive file.";
inline constexpr const char* kPermanentArchiveOpenError = "Couldn't open permanent archive file.";
inline constexpr const char* kArchiveOpenScreenText = "{0} File open error - check log for details";

// <company directory>/<mmdd>000A.TCD
std::filesystem::path DailyArchivePath(const std::filesystem::path& company_directory,
                                       const core::Date& today);
// <company directory>/<clock name>.arc
std::filesystem::path PermanentArchivePath(const std::filesystem::path& company_directory,
                                           std::string_view clock_name);

// Appends every record written to both archives of a company.
class TcdArchiveWriter : public ITcdWriter {
 public:
  // Opens both for appending. Throws core::SystemError whose description is the daily or the
  // permanent archive's open message.
  TcdArchiveWriter(const Company& company, const core::Date& today);
  void WriteRecord(const TcdRecord& record) override;
  void CloseWriter() override;
  // fsync both files.
  void Sync();

 private:
  std::unique_ptr<TcdFileWriter> daily_;
  std::unique_ptr<TcdFileWriter> permanent_;
};

}  // namespace clockcomm::records
