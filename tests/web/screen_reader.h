// The console's live screen (GET /api/v1/screen) read on a thread of its own, for the tests: what
// has arrived so far, and blocking waits for a text or the end of the stream.
#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace clockcomm::web {

class ScreenReader {
 public:
  ScreenReader(int port, httplib::Headers headers) : client_("127.0.0.1", port) {
    client_.set_read_timeout(std::chrono::seconds(30));
    thread_ = std::thread([this, headers] {
      auto res = client_.Get(
          "/api/v1/screen", headers,
          [this](const httplib::Response& r) {
            std::lock_guard lock(mutex_);
            content_type_ = r.get_header_value("Content-Type");
            return true;
          },
          [this](const char* data, size_t size) {
            std::lock_guard lock(mutex_);
            text_.append(data, size);
            changed_.notify_all();
            return true;
          });
      std::lock_guard lock(mutex_);
      if (res) status_ = res->status;
      ended_ = true;
      changed_.notify_all();
    });
  }
  ~ScreenReader() {
    client_.stop();  // a test that failed half way leaves the stream open
    if (thread_.joinable()) thread_.join();
  }
  // Blocks until the stream has carried needle (true) or the deadline passes.
  bool WaitFor(const std::string& needle, std::chrono::seconds within = std::chrono::seconds(20)) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, within, [&] {
      return text_.find(needle) != std::string::npos || ended_;
    }) && text_.find(needle) != std::string::npos;
  }
  // Waits for news on the screen, at most `within`.
  void WaitForNews(std::chrono::milliseconds within) {
    std::unique_lock lock(mutex_);
    const size_t seen = text_.size();
    changed_.wait_for(lock, within, [&] { return text_.size() != seen || ended_; });
  }
  bool WaitForEnd(std::chrono::seconds within) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, within, [&] { return ended_; });
  }
  std::string Text() {
    std::lock_guard lock(mutex_);
    return text_;
  }
  // The status of the answer once the stream has ended (0: no answer).
  int Status() {
    std::lock_guard lock(mutex_);
    return status_;
  }
  std::string ContentType() {
    std::lock_guard lock(mutex_);
    return content_type_;
  }

 private:
  httplib::Client client_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_, content_type_;
  bool ended_ = false;
  int status_ = 0;
  std::thread thread_;
};

}  // namespace clockcomm::web
