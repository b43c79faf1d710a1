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

void WriteAll(int fd, const char* data, size_t size, const std::filesystem::path& name) {
  size_t done = 0;
  while (done < size) {
    ssize_t n = write(fd, data + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      close(fd);
      throw SystemError::FromErrno(err, name.string());
    }
    done += static_cast<size_t>(n);
  }
}

// Opens the temporary file beside the target.
int OpenTemporary(const std::filesystem::path& tmp) {
  int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw SystemError::FromErrno(errno, tmp.string());
  return fd;
}

// Syncs and closes the temporary file, then puts it in the target's place.
void SyncAndRename(int fd, const std::filesystem::path& tmp, const std::filesystem::path& path) {
  if (fsync(fd) != 0) {
    int err = errno;
    close(fd);
    throw SystemError::FromErrno(err, tmp.string());
  }
  close(fd);
  if (rename(tmp.c_str(), path.c_str()) != 0) throw SystemError::FromErrno(errno, path.string());
  SyncDirectory(path.parent_path());
}

std::filesystem::path TemporaryFor(const std::filesystem::path& path) {
  std::filesystem::path tmp = path;
  tmp += ".tmp";
  return tmp;
}

}  // namespace

void SyncFile(const std::filesystem::path& path) { SyncPath(path, O_RDONLY); }

void SyncDirectory(const std::filesystem::path& dir) {
  SyncPath(dir.empty() ? std::filesystem::path(".") : dir, O_RDONLY | O_DIRECTORY);
}

void WriteFileAtomically(const std::filesystem::path& path, std::string_view content) {
  const auto tmp = TemporaryFor(path);
  int fd = OpenTemporary(tmp);
  WriteAll(fd, content.data(), content.size(), tmp);
  SyncAndRename(fd, tmp, path);
}

void AppendDurably(const std::filesystem::path& path, std::string_view content) {
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
  if (fd < 0) throw SystemError::FromErrno(errno, path.string());
  WriteAll(fd, content.data(), content.size(), path);
  const int rc = fsync(fd);
  const int err = errno;
  close(fd);
  if (rc != 0) throw SystemError::FromErrno(err, path.string());
}

void CopyFileAtomically(const std::filesystem::path& from, const std::filesystem::path& to) {
  int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) throw SystemError::FromErrno(errno, from.string());
  const auto tmp = TemporaryFor(to);
  int out = -1;
  try {
    out = OpenTemporary(tmp);
    char buffer[64 * 1024];
    while (true) {
      ssize_t n = read(in, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        int err = errno;
        close(out);
        throw SystemError::FromErrno(err, from.string());
      }
      if (n == 0) break;
      WriteAll(out, buffer, static_cast<size_t>(n), tmp);
    }
    SyncAndRename(out, tmp, to);
  } catch (...) {
    close(in);
    throw;
  }
  close(in);
}

std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw SystemError::FromErrno(errno ? errno : ENOENT, path.string());
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace clockcomm::core
