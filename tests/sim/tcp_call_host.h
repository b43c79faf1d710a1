// The program's side of network call-ins for the simulator tests: a listener on 127.0.0.1 that
// takes each connection on a thread of its own and holds the direct-line conversation over it
// (the scripted host of test_host.h), as the program's LAN listener will.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "comm/network_line.h"
#include "comm/tcp_connection.h"
#include "core/stop_signal.h"
#include "test_host.h"

namespace clockcomm::sim::test {

class TcpCallInHost {
 public:
  enum class Answer {
    kEot,     // takes the upload, sends EOT and waits for the terminal to hang up
    kHangUp,  // takes the upload and closes without EOT
    kSilent,  // never answers the call-in ENQ
  };
  struct Call {
    HostCall upload;
    bool terminal_hung_up = false;  // the terminal closed the connection after the EOT
  };

  explicit TcpCallInHost(Answer answer = Answer::kEot, uint16_t port = 0)
      : answer_(answer), listener_("127.0.0.1", port), acceptor_([this] { AcceptAll(); }) {}
  ~TcpCallInHost() {
    stop_.Request();
    acceptor_.join();
    for (auto& thread : servers_) thread.join();
  }

  comm::EndPoint Address() const { return {"127.0.0.1", listener_.Port()}; }
  std::vector<Call> Calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  // Blocks until count calls were recorded or the wait passes; true when they were.
  bool WaitForCalls(size_t count, std::chrono::milliseconds wait) const {
    std::unique_lock lock(mutex_);
    return recorded_.wait_for(lock, wait, [&] { return calls_.size() >= count; });
  }
  int Connections() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(servers_.size());
  }

 private:
  void AcceptAll() {
    while (auto connection = listener_.Accept(comm::kNoDeadline, {&stop_})) {
      std::shared_ptr<comm::TcpConnection> line = std::move(connection);
      std::lock_guard lock(mutex_);
      servers_.emplace_back([this, line] {
        try {
          Serve(*line);
        } catch (const std::exception&) {
          // The terminal went away half way: nothing to record.
        }
      });
    }
  }

  void Serve(comm::TcpConnection& line) {
    ScriptedHost host(line, /*framed=*/false, /*timeout_ms=*/3000);
    if (host.ReadLine() != std::string(1, ProtocolChar::kEnq)) return;
    if (answer_ == Answer::kSilent) {
      line.WaitForInput(comm::kNoDeadline, {&stop_});  // until the terminal gives up or stop
      return;
    }
    host.Enq();
    Call call{host.ReceiveUpload()};
    if (answer_ == Answer::kEot && call.upload.ended) {
      host.Eot();
      // The terminal hangs up once it has the EOT; nothing else may come first.
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
      try {
        while (line.WaitForInput(deadline, {&stop_}) == comm::WaitResult::kReadable) {
          if (!line.Read().empty()) break;
        }
      } catch (const comm::ConnectionClosedError&) {
        call.terminal_hung_up = true;
      }
    }
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    recorded_.notify_all();
  }

  const Answer answer_;
  core::StopSignal stop_;
  comm::TcpListener listener_;
  mutable std::mutex mutex_;
  mutable std::condition_variable recorded_;
  std::vector<Call> calls_;
  std::vector<std::thread> servers_;
  std::thread acceptor_;  // last: it starts once everything it uses is there
};

}  // namespace clockcomm::sim::test
