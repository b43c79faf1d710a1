// An exclusive advisory lock on a file (flock), held until the object goes. A process that dies
// loses its locks, so a file nobody holds is one no live process is working on.
#pragma once

#include <filesystem>
#include <optional>

namespace clockcomm::core {

class FileLock {
 public:
  // The lock, or nothing when another open file holds it or the file cannot be opened.
  static std::optional<FileLock> TryLock(const std::filesystem::path& file);

  FileLock(FileLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  FileLock& operator=(FileLock&& other) noexcept;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();

 private:
  explicit FileLock(int fd) : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace clockcomm::core
