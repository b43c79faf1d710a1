#include "records/tcd_file_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/errors.h"

namespace clockcomm::records {

TcdFileWriter::TcdFileWriter(const std::filesystem::path& file_name, bool append,
                             Buffering buffering)
    : owned_(true),
      name_(file_name.string()),
      buffer_limit_(buffering == Buffering::kBuffered ? kBufferLimit : 0) {
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
  record.AppendTcdString(pending_, 1);
  pending_ += "\r\n";
  if (pending_.size() >= buffer_limit_) WritePending();
}

void TcdFileWriter::WritePending() {
  size_t done = 0;
  while (done < pending_.size()) {
    const ssize_t n = ::write(fd_, pending_.data() + done, pending_.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      // What could not be written is dropped: the caller learns of it and never counts it stored.
      pending_.clear();
      throw core::SystemError::FromErrno(errno, name_);
    }
    done += static_cast<size_t>(n);
  }
  pending_.clear();
}

void TcdFileWriter::Sync() {
  if (fd_ <= 0) return;
  WritePending();
  if (::fsync(fd_) != 0) throw core::SystemError::FromErrno(errno, name_);
}

void TcdFileWriter::CloseWriter() {
  if (fd_ > 0) WritePending();
  if (!owned_ || fd_ <= 0) return;
  const int fd = fd_;
  fd_ = 0;
  if (::close(fd) != 0) throw core::SystemError::FromErrno(errno, name_);
}

}  // namespace clockcomm::records
