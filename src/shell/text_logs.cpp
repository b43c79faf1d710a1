#include "shell/text_logs.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <tuple>
#include <utility>

#include "core/errors.h"

namespace clockcomm::shell {
namespace fs = std::filesystem;

std::string SafeLogName(std::string_view name) {
  std::string safe(name);
  for (char& c : safe) {
    // A name comes from a terminal's header; a NUL would cut the file name short.
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      c = '_';
      continue;
    }
    switch (c) {
      case '\\':
      case '/':
      case ':':
      case '*':
      case '?':
      case '"':
      case '<':
      case '>':
      case '|':
        c = '_';
        break;
      default:
        break;
    }
  }
  return safe;
}

TextLogs::TextLogs(fs::path folder, core::Clock& clock)
    : folder_(std::move(folder)), clock_(clock) {
  // The flush thread takes no signals: a SIGTERM meant for the program's signal watcher must not
  // land in it (its mask is inherited from here, so it is set before the thread starts).
  sigset_t all, previous;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &previous);
  flusher_ = std::thread([this] { FlushThread(); });
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

TextLogs::~TextLogs() {
  {
    std::lock_guard lock(mutex_);
    closing_ = true;
  }
  wake_.notify_all();
  flusher_.join();
  std::lock_guard lock(mutex_);
  FlushLocked();
  for (auto& [prefix, log] : files_) {
    if (log.fd >= 0) close(log.fd);
  }
}

std::string TextLogs::DebugLogName(const core::Date& day) {
  return kDebugPrefix + day.Format(core::kFormatIsoDate) + ".log";
}

std::string TextLogs::NamedDebugLogName(std::string_view name, const core::Date& day) {
  return SafeLogName(name) + kNamedDebugInfix + day.Format(core::kFormatIsoDate) + ".log";
}

std::string TextLogs::ScreenLogName(const core::Date& day) {
  return kScreenPrefix + day.Format(core::kFormatIsoDate) + ".log";
}

void TextLogs::WriteDebug(std::initializer_list<std::string_view> parts) {
  Append(kDebugPrefix, parts);
}

void TextLogs::WriteNamedDebug(std::string_view name,
                               std::initializer_list<std::string_view> parts) {
  Append(SafeLogName(name) + kNamedDebugInfix, parts);
}

void TextLogs::WriteScreen(std::initializer_list<std::string_view> parts) {
  Append(kScreenPrefix, parts);
}

fs::path TextLogs::FileOf(const std::string& prefix, const core::Date& day) const {
  return folder_ / (prefix + day.Format(core::kFormatIsoDate) + ".log");
}

void TextLogs::Flush() {
  std::lock_guard lock(mutex_);
  FlushLocked();
}

void TextLogs::Append(const std::string& prefix, std::initializer_list<std::string_view> parts) {
  const core::DateTime now = clock_.Now();
  std::lock_guard lock(mutex_);
  LogFile& log = files_[prefix];
  if (log.error != 0) {
    const int error = std::exchange(log.error, 0);
    throw core::SystemError::FromErrno(error, FileOf(prefix, log.day).string());
  }
  if (log.fd < 0 || log.day != now.GetDate()) {
    // The day's lines go to the day's file: what the old day holds is written first.
    if (int error = WritePending(prefix, log); error != 0) {
      throw core::SystemError::FromErrno(error, FileOf(prefix, log.day).string());
    }
    Open(prefix, log, now.GetDate());
  }
  char time[16];
  log.pending.append(time, core::FormatTime(now.GetTime(), true, time));
  log.pending += " - ";
  bool first = true;
  for (std::string_view part : parts) {
    if (!first) log.pending += "\r\n";
    log.pending += part;
    first = false;
  }
  log.pending += "\r\n";
  if (log.pending.size() >= kBufferLimit) {
    if (int error = WritePending(prefix, log); error != 0) {
      throw core::SystemError::FromErrno(error, FileOf(prefix, log.day).string());
    }
  } else if (!oldest_pending_) {
    oldest_pending_ = std::chrono::steady_clock::now();
    wake_.notify_all();
  }
}

void TextLogs::Open(const std::string& prefix, LogFile& log, const core::Date& day) {
  if (log.fd >= 0) close(log.fd);
  log.fd = -1;
  log.day = day;
  const fs::path file = FileOf(prefix, day);
  // O_EXCL tells us whether this open created the day's file, which is when old files go.
  auto open_file = [&] {
    bool created = true;
    int fd = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno == EEXIST) {
      created = false;
      fd = open(file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    }
    return std::pair{fd, created};
  };
  auto [fd, created] = open_file();
  if (fd < 0 && errno == ENOENT) {
    std::error_code ec;
    fs::create_directories(folder_, ec);
    if (ec) throw core::SystemError(ec.value(), ec.message() + " (" + folder_.string() + ")");
    std::tie(fd, created) = open_file();
  }
  if (fd < 0) throw core::SystemError::FromErrno(errno, file.string());
  log.fd = fd;
  if (created) PurgeOldFiles(prefix, day);
}

int TextLogs::WritePending(const std::string& prefix, LogFile& log) {
  if (log.pending.empty() || log.fd < 0) return 0;
  // A file deleted or renamed while open (an operator tidying or rotating the folder) is opened
  // again under its name: the name no longer leads to the open file.
  struct stat open_file = {};
  struct stat named = {};
  if (fstat(log.fd, &open_file) == 0 &&
      (stat(FileOf(prefix, log.day).c_str(), &named) != 0 || named.st_ino != open_file.st_ino ||
       named.st_dev != open_file.st_dev)) {
    try {
      Open(prefix, log, log.day);
    } catch (const core::SystemError& e) {
      log.pending.clear();
      return e.Number() != 0 ? e.Number() : EIO;
    }
  }
  size_t done = 0;
  int error = 0;
  while (done < log.pending.size()) {
    ssize_t n = write(log.fd, log.pending.data() + done, log.pending.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    done += static_cast<size_t>(n);
  }
  log.pending.clear();
  return error;
}

void TextLogs::FlushLocked() {
  oldest_pending_.reset();
  for (auto& [prefix, log] : files_) {
    // Kept for the log's next line, which reports it to its writer.
    if (const int error = WritePending(prefix, log); error != 0) log.error = error;
  }
}

void TextLogs::FlushThread() {
  std::unique_lock lock(mutex_);
  while (!closing_) {
    if (!oldest_pending_) {
      wake_.wait(lock, [this] { return closing_ || oldest_pending_.has_value(); });
      continue;
    }
    const auto due = *oldest_pending_ + kFlushDelay;
    if (wake_.wait_until(lock, due, [this] { return closing_ || !oldest_pending_; })) continue;
    FlushLocked();
  }
}

void TextLogs::PurgeOldFiles(const std::string& prefix, const core::Date& today) {
  const core::Date oldest_kept = today.AddDays(-kKeepDays);
  std::error_code ec;
  for (fs::directory_iterator it(folder_, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.size() != prefix.size() + 14 || name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - 4, 4, ".log") != 0) {
      continue;
    }
    // A file whose name does not carry a date after the prefix is not ours to delete.
    std::optional<core::Date> day = core::ParseDate(name.substr(prefix.size(), 10));
    if (!day || *day >= oldest_kept) continue;
    std::error_code remove_error;  // a file that cannot go is left for the next day
    fs::remove(it->path(), remove_error);
  }
}

std::vector<TextLogFile> TextLogFilesOf(const fs::path& folder, const core::Date& day) {
  const std::string general = TextLogs::DebugLogName(day);
  const std::string screen = TextLogs::ScreenLogName(day);
  // A per-name log's name ends the way the name of a log called "" would.
  const std::string named_end = TextLogs::NamedDebugLogName("", day);
  std::vector<TextLogFile> files;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    const bool of_day = name == general || name == screen ||
                        (name.size() > named_end.size() && name.ends_with(named_end));
    std::error_code entry_error;
    if (!of_day || it->is_symlink(entry_error) || !it->is_regular_file(entry_error)) continue;
    const uintmax_t size = it->file_size(entry_error);
    if (!entry_error) files.push_back({name, size});
  }
  std::sort(files.begin(), files.end(),
            [](const TextLogFile& a, const TextLogFile& b) { return a.name < b.name; });
  return files;
}

}  // namespace clockcomm::shell
