// The daily text logs in the "Debug Logs" folder: the general debug log, one debug log per name
// (a clock, a port) and the screen log. One file per log and day; lines "HH:nn:ss - message".
#pragma once

#include <filesystem>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

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

  TextLogs(std::filesystem::path folder, core::Clock& clock);

  // Parts of one message are joined with "\r\n". Each call appends one line to today's file,
  // creating the folder and the file as needed. Safe to call from several threads.
  void WriteDebug(std::initializer_list<std::string_view> parts);
  void WriteNamedDebug(std::string_view name, std::initializer_list<std::string_view> parts);
  void WriteScreen(std::initializer_list<std::string_view> parts);

  const std::filesystem::path& Folder() const { return folder_; }
  // The file names of one day's logs.
  static std::string DebugLogName(const core::Date& day);
  static std::string NamedDebugLogName(std::string_view name, const core::Date& day);
  static std::string ScreenLogName(const core::Date& day);

 private:
  void Append(const std::string& prefix, std::initializer_list<std::string_view> parts);
  // Deletes the files of this log whose date is more than kKeepDays before today.
  void PurgeOldFiles(const std::string& prefix, const core::Date& today);

  std::filesystem::path folder_;
  core::Clock& clock_;
  std::mutex mutex_;
};

}  // namespace clockcomm::shell
