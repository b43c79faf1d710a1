#include "records/tcd_file_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/errors.h"

namespace clockcomm::records {

TcdFileWriter::TcdFileWriter(const std::filesystem::path& file_name, bool append)
    : owned_(true), name_(file_name.string()) {
  const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC);
  const int fd = ::open(name_.c_str(), flags, 0644);
  if (fd < 0) throw core::SystemError::FromErrno(errno, name_);
  fd_ = fd;
}

TcdFileWriter::TcdFileWriter(int open_descriptor)
    : fd_(open_descriptor), owned_(false), name_("descriptor " + std::to_string(open_descriptor)) {}

TcdFileWriter::~TcdFileWriter() {
  try {
    CloseWriter();
  } catch (...) {  // a destructor must not throw; CloseWriter reports close errors to callers
  }
}

void TcdFileWriter::WriteRecord(const TcdRecord& record) {
  if (fd_ <= 0 && owned_) throw core::InvalidOperationException("TCD file is closed: " + name_);
  const std::string line = record.ToTcdString(1) + "\r\n";
  size_t done = 0;
  while (done < line.size()) {
    const ssize_t n = ::write(fd_, line.data() + done, line.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw core::SystemError::FromErrno(errno, name_);
    }
    done += static_cast<size_t>(n);
  }
}

void TcdFileWriter::Sync() {
  if (fd_ > 0 && ::fsync(fd_) != 0) throw core::SystemError::FromErrno(errno, name_);
}

void TcdFileWriter::CloseWriter() {
  if (!owned_ || fd_ <= 0) return;
  const int fd = fd_;
  fd_ = 0;
  if (::close(fd) != 0) throw core::SystemError::FromErrno(errno, name_);
}

}  // namespace clockcomm::records
