// The command line's screen: lines are printed as they come; the status line is printed when it
// is replaced and its progress characters are counted, not printed one by one.
#pragma once

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

 private:
  void FlushProgress();
  mutable std::mutex mutex_;
  std::ostream& out_;
  bool show_status_;
  std::string status_;
  size_t progress_shown_ = 0;
};

}  // namespace clockcomm::shell
