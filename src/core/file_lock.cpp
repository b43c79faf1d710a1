#include "core/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace clockcomm::core {

std::optional<FileLock> FileLock::TryLock(const std::filesystem::path& file) {
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    close(fd);
    return std::nullopt;
  }
  return FileLock(fd);
}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

FileLock::~FileLock() {
  if (fd_ >= 0) close(fd_);
}

}  // namespace clockcomm::core
