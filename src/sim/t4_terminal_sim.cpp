#include "sim/t4_terminal_sim.h"

#include <algorithm>
#include <utility>

#include "core/errors.h"
#include "t4/net/t4_frame_cutter.h"
#include "t4/net/t4_packet.h"

namespace clockcomm::sim {

namespace net = t4::net;
using namespace std::chrono_literals;

namespace {

// A connection whose first frame comes later than this is never served (and not closed).
constexpr auto kFirstFrameWait = 8s;
// The terminal's socket send time-out.
constexpr auto kSendTimeout = 8000ms;
// The terminal reads no more of a datagram than a header and 1,024 data bytes.
constexpr size_t kMaxDatagram = net::kHeaderSize + net::kMaxRequestData;
// Pieces of a frame under the split fault: the first cut falls inside the prefix.
constexpr size_t kFirstPiece = 3, kPiece = 256;
// How long a new TCP client waits for a connection that is closing before it counts as second.
constexpr auto kCloseGrace = 200ms;
// Tries for a port free for both TCP and UDP when the caller leaves the choice to us.
constexpr int kPortTries = 20;

std::string Encoded(const T4Outgoing& out, bool tcp) {
  std::string bytes = tcp ? net::EncodeTcp(out.packet) : net::Encode(out.packet);
  if (out.corrupt) bytes[(tcp ? net::kTcpPrefixSize : 0) + 2] ^= 0x5A;
  return bytes;
}

}  // namespace

T4TerminalSim::T4TerminalSim(T4SimConfig config, core::Clock& clock)
    : clock_(clock), terminal_(std::move(config), clock) {}

T4TerminalSim::~T4TerminalSim() { Stop(); }

void T4TerminalSim::Listen(const std::string& host, uint16_t port) {
  const auto& config = terminal_.Config();
  for (int attempt = 1;; ++attempt) {
    try {
      if (config.tcp) listener_ = std::make_unique<comm::TcpListener>(host, port);
      if (config.udp) udp_ = comm::UdpSocket::Bind(host, listener_ ? listener_->Port() : port);
      break;
    } catch (const core::SystemError&) {
      // The port TCP picked may be taken for UDP: pick again.
      if (port != 0 || attempt == kPortTries || !config.tcp) throw;
      listener_.reset();
    }
  }
  port_ = listener_ ? listener_->Port() : udp_ ? udp_->Port() : 0;
  if (listener_) accept_thread_ = std::thread([this] { AcceptLoop(); });
  if (udp_) udp_thread_ = std::thread([this] { UdpLoop(); });
  if (config.punch_every > 0ms) punch_thread_ = std::thread([this] { PunchLoop(); });
}

void T4TerminalSim::Stop() {
  stop_.Request();
  for (auto* t : {&accept_thread_, &udp_thread_, &punch_thread_}) {
    if (t->joinable()) t->join();
  }
  std::list<Connection> connections;
  {
    std::lock_guard lock(connections_mutex_);
    connections.swap(connections_);
    hung_.clear();
  }
  for (auto& c : connections) {
    if (c.thread.joinable()) c.thread.join();
  }
  listener_.reset();
}

bool T4TerminalSim::Punch(const net::T4Record& record) { return terminal_.Punch(record); }

void T4TerminalSim::AcceptLoop() {
  while (!stop_.Requested()) {
    auto connection = listener_->Accept(comm::kNoDeadline, {&stop_});
    if (!connection) continue;
    std::unique_lock lock(connections_mutex_);
    // A client that closed and came straight back must not find its old connection still
    // counted: give the old one a moment to notice the close.
    connection_ended_.wait_for(lock, kCloseGrace, [&] {
      return std::all_of(connections_.begin(), connections_.end(),
                         [](const Connection& c) { return c.done->load(); });
    });
    // Finished connections leave the list; one still served makes this one a second client.
    for (auto it = connections_.begin(); it != connections_.end();) {
      if (!it->done->load()) {
        ++it;
        continue;
      }
      it->thread.join();
      it = connections_.erase(it);
    }
    if (!connections_.empty()) {
      if (terminal_.Faults().second_client_hangs) {
        terminal_.Count(&T4SimStats::connections_hung);
        hung_.push_back(std::move(connection));
      } else {
        terminal_.Count(&T4SimStats::connections_refused);  // closed at once
      }
      continue;
    }
    terminal_.Count(&T4SimStats::connections_accepted);
    auto done = std::make_shared<std::atomic<bool>>(false);
    const int link_id = next_link_++;
    connections_.push_back({std::thread([this, done, link_id, c = std::move(connection)]() mutable {
                              ServeConnection(std::move(c), link_id);
                              std::lock_guard ended(connections_mutex_);
                              done->store(true);
                              connection_ended_.notify_all();
                            }),
                            done});
  }
}

void T4TerminalSim::ServeConnection(std::unique_ptr<comm::TcpConnection> connection, int link_id) {
  core::StopSignal wake;  // an event waits for this connection's sessions
  const T4Link link{link_id, {}, &wake};
  net::T4FrameCutter cutter;
  const auto accepted = clock_.Steady();
  bool first = true, serving = true;
  connection->SetWriteTimeout(kSendTimeout);
  try {
    while (!stop_.Requested()) {
      const auto result = connection->WaitForInput(comm::kNoDeadline, {&stop_, &wake});
      if (stop_.Requested()) break;
      if (wake.Requested()) {
        wake.Reset();
        if (serving && !WriteTcp(*connection, terminal_.TakeEvents(link_id),
                                 terminal_.Faults().coalesce_events)) {
          break;
        }
      }
      if (result != comm::WaitResult::kReadable) continue;
      const std::string bytes = connection->Read();
      if (!serving || bytes.empty()) continue;  // a connection never served reads into the void
      if (first) {
        first = false;
        if (clock_.Steady() - accepted >= kFirstFrameWait) {
          terminal_.Count(&T4SimStats::connections_hung);
          serving = false;
          continue;
        }
      }
      cutter.Append(bytes);
      while (auto packet = cutter.Next()) {
        if (!WriteTcp(*connection, terminal_.Handle(*packet, link), false)) break;
        // Events still unacknowledged in resend mode go again after each answer.
        WriteTcp(*connection, terminal_.TakeEvents(link_id), terminal_.Faults().coalesce_events);
      }
    }
  } catch (const net::T4StreamError&) {
    terminal_.Count(&T4SimStats::stream_errors);  // out of step: the terminal drops the client
  } catch (const comm::ConnectionClosedError&) {
  } catch (const core::Error&) {  // a write that timed out or failed: the client has gone
  }
  terminal_.EndLink(link_id);
}

bool T4TerminalSim::WriteTcp(comm::TcpConnection& connection, const std::vector<T4Outgoing>& frames,
                             bool coalesce) {
  if (frames.empty()) return true;
  const T4SimFaults faults = terminal_.Faults();
  if (coalesce || faults.coalesce_frames) {
    std::string all;
    for (const auto& f : frames) all += Encoded(f, true);
    connection.WriteText(all);
    return PaceAfterFrame();
  }
  bool bad_prefix = faults.bad_prefix_once;
  for (const auto& f : frames) {
    std::string bytes = Encoded(f, true);
    if (bad_prefix) {
      bad_prefix = false;
      terminal_.UpdateFaults([](T4SimFaults& x) { x.bad_prefix_once = false; });
      bytes[1] = 'Q';
    }
    if (faults.split_frames) {
      connection.WriteText(std::string_view(bytes).substr(0, kFirstPiece));
      for (size_t at = kFirstPiece; at < bytes.size(); at += kPiece) {
        if (!PaceAfterFrame()) return false;
        connection.WriteText(std::string_view(bytes).substr(at, kPiece));
      }
    } else {
      connection.WriteText(bytes);
    }
    if (!PaceAfterFrame()) return false;
  }
  return true;
}

bool T4TerminalSim::PaceAfterFrame() {
  const auto pace = terminal_.Config().pace;
  if (pace <= 0ms) return !stop_.Requested();
  // The time actually paused (a sleep ends a little late): the floor any client must wait.
  const auto start = clock_.Steady();
  const bool going_on = clock_.Pause(pace, stop_);
  paced_ns_ +=
      std::chrono::duration_cast<std::chrono::nanoseconds>(clock_.Steady() - start).count();
  return going_on;
}

void T4TerminalSim::UdpLoop() {
  try {
    while (!stop_.Requested()) {
      auto datagram = udp_->Receive(comm::kNoDeadline, {&stop_, &udp_wake_}, kMaxDatagram);
      if (stop_.Requested()) break;
      if (udp_wake_.Requested()) {
        udp_wake_.Reset();
        SendUdp(terminal_.TakeEvents(0));
      }
      if (!datagram) continue;
      SendUdp(terminal_.Handle(datagram->bytes, T4Link{0, datagram->from, &udp_wake_}));
      SendUdp(terminal_.TakeEvents(0));
    }
  } catch (const core::Error&) {
    // Receiving failed: the terminal no longer answers on UDP.
  }
}

void T4TerminalSim::SendUdp(std::vector<T4Outgoing> frames) {
  if (frames.empty()) return;
  const T4SimFaults faults = terminal_.Faults();
  auto indexed = [&](size_t index) {
    return std::find_if(frames.begin(), frames.end(), [&](const T4Outgoing& f) {
      return f.indexed && f.packet.session == index;
    });
  };
  if (faults.udp_drop) {
    if (auto it = indexed(*faults.udp_drop); it != frames.end()) {
      frames.erase(it);
      terminal_.UpdateFaults([](T4SimFaults& x) { x.udp_drop.reset(); });
    }
  }
  if (faults.udp_swap) {
    auto a = indexed(*faults.udp_swap), b = indexed(*faults.udp_swap + 1);
    if (a != frames.end() && b != frames.end()) {
      std::iter_swap(a, b);
      terminal_.UpdateFaults([](T4SimFaults& x) { x.udp_swap.reset(); });
    }
  }
  for (const auto& f : frames) {
    try {
      udp_->SendTo(Encoded(f, false), f.peer);
    } catch (const core::Error&) {
      // That peer cannot be reached; the others still can.
    }
    if (!PaceAfterFrame()) return;
  }
}

void T4TerminalSim::PunchLoop() {
  // Counted in whole seconds of the clock's wall time, so that a manual clock steps it.
  const auto every = std::max<int64_t>(
      1, std::chrono::ceil<std::chrono::seconds>(terminal_.Config().punch_every).count());
  while (clock_.WaitUntil(clock_.Now().AddSeconds(every), stop_)) terminal_.PunchNext();
}

}  // namespace clockcomm::sim
