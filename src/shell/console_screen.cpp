#include "shell/console_screen.h"

namespace clockcomm::shell {

void ConsoleScreen::Line(std::string_view text) {
  std::lock_guard lock(mutex_);
  FlushProgress();
  out_ << text << "\n" << std::flush;
}

void ConsoleScreen::Status(std::string_view text) {
  std::lock_guard lock(mutex_);
  FlushProgress();
  status_ = std::string(text);
  progress_shown_ = status_.size();
  if (show_status_ && !text.empty()) out_ << "  [" << text << "]\n" << std::flush;
}

void ConsoleScreen::AppendStatus(std::string_view text) {
  std::lock_guard lock(mutex_);
  status_ += text;
}

std::string ConsoleScreen::CurrentStatus() const {
  std::lock_guard lock(mutex_);
  return status_;
}

// Progress characters appended since the status was shown are summarised in one line.
void ConsoleScreen::FlushProgress() {
  if (status_.size() <= progress_shown_) return;
  const std::string added = status_.substr(progress_shown_);
  progress_shown_ = status_.size();
  if (!show_status_) return;
  size_t good = 0, refused = 0;
  for (char c : added) {
    if (c == '.') ++good;
    if (c == '*') ++refused;
  }
  out_ << "  [" << good << " packet(s)";
  if (refused > 0) out_ << ", " << refused << " refused";
  out_ << "]\n";
}

}  // namespace clockcomm::shell
