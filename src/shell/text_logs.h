// The daily text logs in the "Debug Logs" folder: the general debug log, one debug log per name
// (a clock, a port) and the screen log. One file per log and day; lines "HH:nn:ss - message".
// Each log keeps its day's file open and gathers lines in a buffer, written out at the end of each
// call (Flush), when a second has passed since the oldest line not yet written, when the buffer is
// large, and when the logs close.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/clock.h"

namespace clockcomm::shell {

// The name of a per-name debug log as part of its file name: each of \ / : * ? " < > | and each
// control character becomes "_". Looser than core::SafeFileName, so that the log names operators
// know (a clock called "Plant #2") stay as they were.
std::string SafeLogName(std::string_view name);

class TextLogs {
 public:
  // A day's file is kept this many days; older ones go when a new day's file is created.
  static constexpr int kKeepDays = 60;
  static constexpr const char* kDebugPrefix = "Debug Log - ";
  static constexpr const char* kNamedDebugInfix = " Debug Log - ";
  static constexpr const char* kScreenPrefix = "Screen Log - ";
  // How long a line may wait in the buffer, and how much the buffer holds before it is written.
  static constexpr std::chrono::milliseconds kFlushDelay{1000};
  static constexpr size_t kBufferLimit = 64 * 1024;

  TextLogs(std::filesystem::path folder, core::Clock& clock);
  ~TextLogs();
  TextLogs(const TextLogs&) = delete;
  TextLogs& operator=(const TextLogs&) = delete;

  // Parts of one message are joined with "\r\n". Each call adds one line for today's file,
  // creating the folder and the file as needed. Safe to call from several threads. Throws
  // SystemError when the file cannot be opened or written, or when the last flush of this log
  // failed.
  void WriteDebug(std::initializer_list<std::string_view> parts);
  void WriteNamedDebug(std::string_view name, std::initializer_list<std::string_view> parts);
  void WriteScreen(std::initializer_list<std::string_view> parts);
  // Writes out every buffered line. A log whose file could not be written throws SystemError on
  // its next line.
  void Flush();

  const std::filesystem::path& Folder() const { return folder_; }
  // The file names of one day's logs.
  static std::string DebugLogName(const core::Date& day);
  static std::string NamedDebugLogName(std::string_view name, const core::Date& day);
  static std::string ScreenLogName(const core::Date& day);

 private:
  // One log's file of the day, open, and its lines not yet written.
  struct LogFile {
    core::Date day;
    int fd = -1;
    std::string pending;
    int error = 0;  // of a flush that failed; thrown by the log's next line
  };

  std::filesystem::path FileOf(const std::string& prefix, const core::Date& day) const;
  void Append(const std::string& prefix, std::initializer_list<std::string_view> parts);
  // Opens the prefix's file of the day (the folder made only when the file cannot be opened);
  // purges the log's old files when this made the day's file.
  void Open(const std::string& prefix, LogFile& log, const core::Date& day);
  // Writes the log's pending lines, first opening the file again if it was deleted or renamed
  // meanwhile.
  // Returns the error number, 0 when written.
  int WritePending(const std::string& prefix, LogFile& log);
  void FlushLocked();
  // Deletes the files of this log whose date is more than kKeepDays before today.
  void PurgeOldFiles(const std::string& prefix, const core::Date& today);
  void FlushThread();

  std::filesystem::path folder_;
  core::Clock& clock_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::map<std::string, LogFile> files_;  // by prefix
  // When the oldest line not yet written was added; none while nothing waits.
  std::optional<std::chrono::steady_clock::time_point> oldest_pending_;
  bool closing_ = false;
  std::thread flusher_;
};

// One file of a day's text logs.
struct TextLogFile {
  std::string name;
  uintmax_t size = 0;
};
// The files of the day's logs in folder (general, per-name debug and screen log), by name; only
// regular files, never a link. None when the folder is missing.
std::vector<TextLogFile> TextLogFilesOf(const std::filesystem::path& folder, const core::Date& day);

}  // namespace clockcomm::shell
