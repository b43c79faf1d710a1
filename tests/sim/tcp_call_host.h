// The program's side of network call-ins for the simulator tests: a listener on 127.0.0.1 that
// holds the direct-line conversation (test_host.h) over each connection on a thread of its own.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "comm/network_line.h"
#include "comm/tcp_connection.h"
#include "test_host.h"

namespace clockcomm::sim::test {

class TcpCallInHost {
 public:
  // kEot: takes the upload, sends EOT, waits for the hang-up. kHangUp: closes without EOT.
  // kSilent: never answers the call-in ENQ.
  enum class Answer { kEot, kHangUp, kSilent };
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
  // The calls recorded once count of them were (or the wait passed).
  std::vector<Call> WaitForCalls(size_t count, std::chrono::milliseconds wait) const {
    std::unique_lock lock(mutex_);
    recorded_.wait_for(lock, wait, [&] { return calls_.size() >= count; });
    return calls_;
  }

 private:
  void AcceptAll() {
    while (std::shared_ptr<comm::TcpConnection> line =
               listener_.Accept(comm::kNoDeadline, {&stop_})) {
      std::lock_guard lock(mutex_);
      servers_.emplace_back([this, line] {
        try {
          Serve(*line);
        } catch (const std::exception&) {  // the terminal went away half way
        }
      });
    }
  }

  void Serve(comm::TcpConnection& line) {
    ScriptedHost host(line, /*framed=*/false);
    if (host.ReadLine() != std::string(1, ProtocolChar::kEnq)) return;
    if (answer_ == Answer::kSilent) {
      line.WaitForInput(comm::kNoDeadline, {&stop_});  // until the terminal gives up
      return;
    }
    host.Enq();
    Call call{host.ReceiveUpload()};
    if (answer_ == Answer::kEot && call.upload.ended) {
      host.Eot();
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
      try {  // nothing but the hang-up may follow
        while (line.WaitForInput(deadline, {&stop_}) == comm::WaitResult::kReadable &&
               line.Read().empty()) {
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
