#include "web/screen_feed.h"

namespace clockcomm::web {

void ScreenFeed::Line(std::string_view text) {
  {
    std::lock_guard lock(mutex_);
    lines_.push_back({next_seq_++, clock_.Now(), std::string(text)});
    if (lines_.size() > kBacklog) lines_.pop_front();
  }
  changed_.notify_all();
}

void ScreenFeed::Status(std::string_view text) {
  {
    std::lock_guard lock(mutex_);
    status_ = std::string(text);
    ++status_version_;
  }
  changed_.notify_all();
}

void ScreenFeed::AppendStatus(std::string_view text) {
  {
    std::lock_guard lock(mutex_);
    status_ += text;
    ++status_version_;
  }
  changed_.notify_all();
}

bool ScreenFeed::HasNews(uint64_t after_seq, uint64_t status_version) const {
  return stopped_ || status_version_ != status_version ||
         (!lines_.empty() && lines_.back().seq > after_seq);
}

ScreenNews ScreenFeed::WaitAfter(uint64_t after_seq, uint64_t status_version,
                                 std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline, [&] { return HasNews(after_seq, status_version); });
  ScreenNews news;
  news.stopped = stopped_;
  for (const ScreenLine& line : lines_) {
    if (line.seq > after_seq) news.lines.push_back(line);
  }
  news.status_changed = status_version_ != status_version;
  news.status = status_;
  news.status_version = status_version_;
  return news;
}

void ScreenFeed::Stop() {
  {
    std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
}

bool ScreenFeed::Stopped() const {
  std::lock_guard lock(mutex_);
  return stopped_;
}

uint64_t ScreenFeed::LastSeq() const {
  std::lock_guard lock(mutex_);
  return next_seq_ - 1;
}

}  // namespace clockcomm::web
