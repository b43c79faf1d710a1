// The command line's screen: lines are printed as they come; the status line is printed when it
// is replaced and its progress characters are counted, not printed one by one.
#pragma once

#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>

#include "terminal/screen_sink.h"

namespace clockcomm::shell {

class ConsoleScreen : public terminal::ScreenSink {
 public:
  explicit ConsoleScreen(std::ostream& out, bool show_status = true)
      : out_(out), show_status_(show_status) {}
  void Line(std::string_view text) override;
  void Status(std::string_view text) override;
  void AppendStatus(std::string_view text) override;
  std::string CurrentStatus() const;
  // Lines lose their leading date and time (where something else stamps them, as the journal
  // does).
  void SetLinesWithoutTime(bool without) { without_time_ = without; }
  // Called with each new status line (the service manager shows it), outside the screen's lock.
  void SetStatusListener(std::function<void(std::string_view)> listener);
  // Everything shown is also shown on tee (the web console's live screen), whole lines with
  // their time. Set before the lines start.
  void SetTee(terminal::ScreenSink* tee) { tee_ = tee; }

 private:
  void FlushProgress();
  mutable std::mutex mutex_;
  std::ostream& out_;
  bool show_status_;
  std::string status_;
  size_t progress_shown_ = 0;
  std::function<void(std::string_view)> status_listener_;
  bool without_time_ = false;
  terminal::ScreenSink* tee_ = nullptr;
};

}  // namespace clockcomm::shell
