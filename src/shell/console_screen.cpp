#include "shell/console_screen.h"

namespace clockcomm::shell {

namespace {

// "2009-10-20 08:00:00 ": the stamp a screen line starts with.
bool StartsWithDateTime(std::string_view text) {
  constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd ";
  if (text.size() < kShape.size()) return false;
  for (size_t i = 0; i < kShape.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kShape[i] == 'd' ? !digit : text[i] != kShape[i]) return false;
  }
  return true;
}

}  // namespace

void ConsoleScreen::Line(std::string_view text) {
  if (tee_ != nullptr) tee_->Line(text);
  if (without_time_ && StartsWithDateTime(text)) text.remove_prefix(20);
  std::lock_guard lock(mutex_);
  FlushProgress();
  out_ << text << "\n" << std::flush;
}

void ConsoleScreen::Status(std::string_view text) {
  if (tee_ != nullptr) tee_->Status(text);
  std::function<void(std::string_view)> listener;
  {
    std::lock_guard lock(mutex_);
    FlushProgress();
    status_ = std::string(text);
    progress_shown_ = status_.size();
    if (show_status_ && !text.empty()) out_ << "  [" << text << "]\n" << std::flush;
    listener = status_listener_;
  }
  if (listener && !text.empty()) listener(text);
}

void ConsoleScreen::SetStatusListener(std::function<void(std::string_view)> listener) {
  std::lock_guard lock(mutex_);
  status_listener_ = std::move(listener);
}

void ConsoleScreen::AppendStatus(std::string_view text) {
  if (tee_ != nullptr) tee_->AppendStatus(text);
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
