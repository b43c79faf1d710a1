// A scripted connection: each Read returns the next string of its script (an empty string once the
// script is used up); written text is kept for inspection. Strings may be pushed from another
// thread, which wakes a waiting reader; a responder may answer each write (a modem's echo and
// result code). Given a ManualClock it runs in virtual time: a wait with nothing scripted moves
// that clock to its deadline and times out at once.
#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "comm/connection.h"
#include "core/clock.h"

namespace clockcomm::comm {

class StubConnection : public IConnection {
 public:
  explicit StubConnection(std::vector<std::string> script = {}, core::ManualClock* clock = nullptr);
  ~StubConnection() override;
  StubConnection(const StubConnection&) = delete;
  StubConnection& operator=(const StubConnection&) = delete;

  std::string Read() override;
  void WriteText(std::string_view text) override;
  WaitResult WaitForInput(SteadyTime deadline, const WakeSet& wake) override;
  std::string Describe() const override { return "stub"; }

  // Adds a string to the end of the script; safe from any thread.
  void Push(std::string text);
  // Called with each write; a non-empty answer is pushed.
  void SetResponder(std::function<std::string(std::string_view)> responder) {
    responder_ = std::move(responder);
  }
  // Everything written so far, concatenated.
  std::string Written() const;
  // Number of Read calls made (a reader that spins would show here).
  int ReadCalls() const;

 private:
  mutable std::mutex mutex_;
  std::deque<std::string> script_;
  std::string written_;
  int read_calls_ = 0;
  int event_fd_ = -1;
  core::ManualClock* clock_;
  std::function<std::string(std::string_view)> responder_;
};

}  // namespace clockcomm::comm
