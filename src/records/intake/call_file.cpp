#include "records/intake/call_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>

#include "core/errors.h"

namespace clockcomm::records {

std::optional<std::filesystem::path> ClaimCallFile(const std::filesystem::path& folder,
                                                   const core::Date& today,
                                                   std::string_view upload_type) {
  const std::string prefix = today.Format(core::kFormatMonthDay);
  const char* extension = upload_type == "W" ? ".WHO" : ".TCD";
  for (int counter = 1; counter <= kMaxCallFilesPerDay; ++counter) {
    auto candidate = folder / fmt::format("{}{:04d}{}", prefix, counter, extension);
    // Created exclusively, so that two lines writing into one folder never share a name.
    int fd = open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd >= 0) {
      close(fd);
      return candidate;
    }
    if (errno != EEXIST) throw core::SystemError::FromErrno(errno, candidate.string());
  }
  return std::nullopt;
}

}  // namespace clockcomm::records
