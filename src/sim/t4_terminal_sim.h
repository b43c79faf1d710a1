// A simulated T4 terminal on the network: the device of T4Terminal served over TCP and UDP on one
// port, with the terminal's framing, pacing and transport faults. One thread accepts TCP
// connections, one serves each connection, one serves UDP, and one makes generated punches.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "comm/tcp_connection.h"
#include "comm/udp_socket.h"
#include "core/clock.h"
#include "core/stop_signal.h"
#include "sim/t4_sim_config.h"
#include "sim/t4_terminal.h"

namespace clockcomm::sim {

class T4TerminalSim {
 public:
  // clock: pacing, time-outs, session ids and the terminal's time.
  T4TerminalSim(T4SimConfig config, core::Clock& clock);
  ~T4TerminalSim();
  T4TerminalSim(const T4TerminalSim&) = delete;
  T4TerminalSim& operator=(const T4TerminalSim&) = delete;

  // Serves TCP and UDP (those the config enables) on host:port; port 0 picks one free for both.
  // Throws core::SystemError when the port is taken.
  void Listen(const std::string& host, uint16_t port);
  uint16_t Port() const { return port_; }
  // Ends every thread and closes every socket; returns once they are gone.
  void Stop();

  // A person punches: stored when enabled, then pushed to registered sessions. A punch made while
  // the terminal is disabled is refused (returns false), not held.
  bool Punch(const t4::net::T4Record& record);

  std::vector<t4::net::T4Record> Log() const { return terminal_.Log(); }
  size_t RecordCount() const { return terminal_.RecordCount(); }
  bool Enabled() const { return terminal_.Enabled(); }
  std::vector<t4::net::T4UserRecord> Users() const { return terminal_.Users(); }
  core::DateTime DeviceTime() const { return terminal_.DeviceTime(); }
  const T4SimConfig& Config() const { return terminal_.Config(); }
  void SetFaults(const T4SimFaults& faults) { terminal_.SetFaults(faults); }
  T4SimStats Stats() const {
    T4SimStats stats = terminal_.Stats();
    stats.paced = std::chrono::nanoseconds(paced_ns_.load());
    return stats;
  }

 private:
  struct Connection {
    std::thread thread;
    std::shared_ptr<std::atomic<bool>> done;
  };

  void AcceptLoop();
  void ServeConnection(std::unique_ptr<comm::TcpConnection> connection, int link_id);
  void UdpLoop();
  void PunchLoop();
  // Writes an answer's frames, one per write and paced unless a fault says otherwise.
  bool WriteTcp(comm::TcpConnection& connection, const std::vector<T4Outgoing>& frames,
                bool coalesce);
  void SendUdp(std::vector<T4Outgoing> frames);
  bool PaceAfterFrame();

  core::Clock& clock_;
  T4Terminal terminal_;
  core::StopSignal stop_;
  core::StopSignal udp_wake_;
  std::unique_ptr<comm::TcpListener> listener_;
  std::optional<comm::UdpSocket> udp_;
  uint16_t port_ = 0;
  std::thread accept_thread_, udp_thread_, punch_thread_;
  std::mutex connections_mutex_;
  std::condition_variable connection_ended_;
  std::list<Connection> connections_;
  std::vector<std::unique_ptr<comm::TcpConnection>> hung_;  // accepted, never served
  int next_link_ = 1;
  std::atomic<int64_t> paced_ns_{0};
};

}  // namespace clockcomm::sim
