#include "core/durable_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>

#include "core/errors.h"

namespace clockcomm::core {
namespace {

void SyncPath(const std::filesystem::path& path, int flags) {
  int fd = open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) throw SystemError::FromErrno(errno, path.string());
  int rc = fsync(fd);
  int err = errno;
  close(fd);
  if (rc != 0) throw SystemError::FromErrno(err, path.string());
}

}  // namespace

void SyncFile(const std::filesystem::path& path) { SyncPath(path, O_RDONLY); }

void SyncDirectory(const std::filesystem::path& dir) {
  SyncPath(dir.empty() ? std::filesystem::path(".") : dir, O_RDONLY | O_DIRECTORY);
}

void WriteFileAtomically(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::path tmp = path;
  tmp += ".tmp";
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw SystemError::FromErrno(errno, tmp.string());
  size_t done = 0;
  while (done < content.size()) {
    ssize_t n = write(fd, content.data() + done, content.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      close(fd);
      throw SystemError::FromErrno(err, tmp.string());
    }
    done += static_cast<size_t>(n);
  }
  if (fsync(fd) != 0) {
    int err = errno;
    close(fd);
    throw SystemError::FromErrno(err, tmp.string());
  }
  close(fd);
  if (rename(tmp.c_str(), path.c_str()) != 0) throw SystemError::FromErrno(errno, path.string());
  SyncDirectory(path.parent_path());
}

std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw SystemError::FromErrno(errno ? errno : ENOENT, path.string());
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace clockcomm::core
