// The device side of a simulated T4 terminal, apart from any socket: attendance log, user table,
// options, the sessions with their reply-id memory, the enabled state with its time-out, the
// bulk-read buffers and the event queues. It turns one request into the packets that answer it;
// T4TerminalSim carries them over TCP and UDP.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "comm/udp_socket.h"
#include "core/clock.h"
#include "core/stop_signal.h"
#include "sim/t4_sim_config.h"
#include "t4/net/t4_packet.h"
#include "t4/net/t4_records.h"
#include "t4/net/t4_user_records.h"

namespace clockcomm::sim {

// Where a session lives: a TCP connection (id > 0) or the UDP socket (id 0) and the peer that
// sent CONNECT there. `wake` is raised when an event waits to go out on the link.
struct T4Link {
  int id = 0;
  comm::UdpPeer peer;
  core::StopSignal* wake = nullptr;
};

// One packet to write. `indexed`: a DATA packet of a multi-packet answer (its session field is its
// index); `corrupt`: written with a wrong checksum.
struct T4Outgoing {
  t4::net::T4Packet packet;
  comm::UdpPeer peer;
  bool indexed = false;
  bool corrupt = false;
};

class T4Terminal {
 public:
  T4Terminal(T4SimConfig config, core::Clock& clock);

  // The answer to one request as received (checksum included); empty when the terminal stays
  // silent. Events waiting for the next request (fault) come first.
  std::vector<T4Outgoing> Handle(std::string_view request, const T4Link& link);
  // Event packets waiting on the link's sessions; unacknowledged ones of a session in resend
  // mode stay queued and go again next time.
  std::vector<T4Outgoing> TakeEvents(int link_id);
  // The connection has gone: its sessions end.
  void EndLink(int link_id);

  // A person punches: stored when enabled (else refused), then pushed to registered sessions.
  // Returns false when refused.
  bool Punch(t4::net::T4Record record);
  // A punch of the next generated user at the terminal's time.
  bool PunchNext();

  std::vector<t4::net::T4Record> Log() const;
  size_t RecordCount() const;
  bool Enabled() const;
  std::vector<t4::net::T4UserRecord> Users() const;
  core::DateTime DeviceTime() const;
  void SetFaults(const T4SimFaults& faults);
  // Changes the faults in place (a transport disarms a fault that has fired).
  void UpdateFaults(const std::function<void(T4SimFaults&)>& change);
  T4SimFaults Faults() const;
  T4SimStats Stats() const;
  const T4SimConfig& Config() const { return config_; }
  // Counts what the transport saw (the stream errors, accepted and refused connections).
  void Count(size_t T4SimStats::*counter);

 private:
  struct Session {
    uint16_t id = 0;
    T4Link link;
    bool authed = false;
    bool has_last = false;
    uint16_t last_id = 0;
    std::optional<t4::net::T4Packet> remembered;
    uint32_t event_mask = 0;
    bool acked_once = false;  // an ACK was accepted: events go again until acknowledged
    std::deque<t4::net::T4Packet> events;  // not yet sent, or sent and not acknowledged
    size_t unsent = 0;                     // events at the back of the queue not yet sent
    std::optional<std::string> buffer;     // a prepared dataset, until FREE_DATA
  };
  using Answer = std::vector<T4Outgoing>;

  Answer Dispatch(const t4::net::T4Packet& request, Session& session, uint16_t id);
  Answer OnConnect(const t4::net::T4Packet& request, const T4Link& link);
  void OnEventAck(Session& session, uint16_t reply_id);
  Answer OnFreeSizes(const t4::net::T4Packet& request, Session& session, uint16_t id);
  Answer OnPrepareBuffer(const t4::net::T4Packet& request, Session& session, uint16_t id);
  Answer OnReadBuffer(const t4::net::T4Packet& request, Session& session, uint16_t id);
  Answer OnAttLogRead(Session& session, uint16_t id);
  // PREPARE_DATA, DATA × k with indices, ACK_OK (its session field given).
  Answer Chunked(const Session& session, uint16_t id, std::string_view bytes,
                 uint16_t closing_session);
  std::string Dataset() const;
  void ClearLog();
  void EndSession(uint16_t session_id);
  std::vector<T4Outgoing> TakeEventsLocked(int link_id);
  core::DateTime DeviceTimeLocked() const;
  void EnableIfIdleLocked() const;
  bool EnabledLocked() const;
  void PushEventLocked(const t4::net::T4Record& record);
  t4::net::T4Packet Reply(const Session& session, uint16_t code, uint16_t id,
                          std::string data = {}) const;

  const T4SimConfig config_;
  core::Clock& clock_;
  const size_t event_length_;
  mutable std::mutex mutex_;
  T4SimFaults faults_;
  mutable T4SimStats stats_;
  std::vector<t4::net::T4Record> log_;
  std::vector<t4::net::T4UserRecord> users_;
  std::map<std::string, std::string> options_;
  std::map<uint16_t, Session> sessions_;
  int64_t time_offset_ = 0;  // device time minus the clock's, in seconds
  mutable bool enabled_ = true;
  std::optional<std::chrono::seconds> disable_timeout_;
  std::optional<uint16_t> disabled_by_;  // the session whose idle time the time-out counts
  core::Clock::Monotonic last_activity_{};
  size_t next_punch_ = 0;  // generated punches made so far
};

}  // namespace clockcomm::sim
