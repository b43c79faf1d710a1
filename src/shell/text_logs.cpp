#include "shell/text_logs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

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
    : folder_(std::move(folder)), clock_(clock) {}

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

void TextLogs::Append(const std::string& prefix, std::initializer_list<std::string_view> parts) {
  const core::DateTime now = clock_.Now();
  std::string line = now.GetTime().Format(core::kFormatHourMinuteSecond) + " - ";
  bool first = true;
  for (std::string_view part : parts) {
    if (!first) line += "\r\n";
    line += part;
    first = false;
  }
  line += "\r\n";

  std::lock_guard lock(mutex_);
  std::error_code ec;
  fs::create_directories(folder_, ec);
  if (ec) throw core::SystemError(ec.value(), ec.message() + " (" + folder_.string() + ")");
  const fs::path file = folder_ / (prefix + now.GetDate().Format(core::kFormatIsoDate) + ".log");
  // O_EXCL tells us whether this write created the day's file, which is when old files go.
  bool created = true;
  int fd = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0 && errno == EEXIST) {
    created = false;
    fd = open(file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  }
  if (fd < 0) throw core::SystemError::FromErrno(errno, file.string());
  size_t done = 0;
  int error = 0;
  while (done < line.size()) {
    ssize_t n = write(fd, line.data() + done, line.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = errno;
      break;
    }
    done += static_cast<size_t>(n);
  }
  close(fd);
  if (error != 0) throw core::SystemError::FromErrno(error, file.string());
  if (created) PurgeOldFiles(prefix, now.GetDate());
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

}  // namespace clockcomm::shell
