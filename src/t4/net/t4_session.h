// A session with one T4 terminal: CONNECT (with the communication key when the terminal asks),
// commands matched to their answers by reply id, multi-packet answers put back together, and the
// attendance events the terminal pushes in between, acknowledged and kept for the caller. After a
// time-out, a closed connection or a stream out of step the session is lost: every further call
// throws, and the caller connects again.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "core/errors.h"
#include "t4/net/t4_events.h"
#include "t4/net/t4_transport.h"

namespace clockcomm::t4::net {

// How long the session waits. A single-packet command is sent again under the same reply id (the
// terminal then repeats its answer without running the command twice), so one command ends within
// tries × reply, under the 10 s a call may take. A multi-packet answer may pause between packets
// (terminals pace them), so only silence is timed there, and a failed chunk is asked again under a
// new reply id.
struct T4Timeouts {
  std::chrono::milliseconds reply{3000};
  int tries = 3;
  std::chrono::milliseconds data_silence{10000};
  int chunk_tries = 3;
};

// The terminal answered with a failure code (ACK_ERROR, ACK_UNKNOWN, ACK_UNAUTH, ...).
class T4ReplyError : public core::Error {
 public:
  T4ReplyError(uint16_t command, uint16_t code, const std::string& where);
  uint16_t Command() const { return command_; }
  uint16_t Code() const { return code_; }

 private:
  uint16_t command_;
  uint16_t code_;
};

// The terminal refused the communication key.
class T4KeyRefused : public core::Error {
 public:
  explicit T4KeyRefused(const std::string& where);
};

class T4Session {
 public:
  // wake: signals that end any wait at once; the session is then lost ("stopped").
  T4Session(std::unique_ptr<T4Transport> transport, T4Timeouts timeouts = {},
            comm::WakeSet wake = {});

  // CONNECT, then AUTH with the key when the terminal answers ACK_UNAUTH. Throws
  // core::TimeoutException, T4KeyRefused, T4ReplyError.
  void Open(uint32_t key);
  // EXIT, waited for briefly; never throws.
  void Close();

  // Sends a command and returns its answer (ACK_OK, or a DATA packet holding a whole answer).
  // Throws T4ReplyError for a failure code, core::TimeoutException when every try went unanswered.
  T4Packet Request(uint16_t command, std::string_view data = {});
  // A command whose answer may come in several packets (PREPARE_DATA, DATA with packet indexes,
  // ACK_OK) or as one DATA. expected: the length asked for (0: as PREPARE_DATA announces). A gap,
  // a short answer or silence asks again under a new reply id; throws T4DataError or
  // core::TimeoutException after the last try.
  std::string RequestData(uint16_t command, std::string_view data, size_t expected);

  // Waits for pushed events until the deadline or a wake signal; false when woken.
  bool WaitForEvents(comm::SteadyTime deadline, const comm::WakeSet& wake);
  // The attendance events received so far, each once.
  std::deque<T4AttEvent> TakeEvents();
  // Event payloads of a length no terminal is known to send, as hex, for the log.
  std::deque<std::string> TakeUnknownEvents();

  bool Lost() const { return lost_; }
  // The session was lost because the TCP stream fell out of step (not for silence).
  bool OutOfStep() const { return out_of_step_; }
  uint16_t SessionId() const { return session_; }
  T4TransportKind Kind() const { return transport_->Kind(); }
  std::string Describe() const { return transport_->Describe(); }
  std::chrono::steady_clock::time_point LastHeard() const { return last_heard_; }

 private:
  T4Packet Exchange(uint16_t command, std::string_view data, bool unauth_answers);
  // The next packet answering reply id `id`, handling events on the way; nullopt at the deadline.
  std::optional<T4Packet> NextReply(uint16_t id, comm::SteadyTime deadline);
  std::optional<std::string> Collect(uint16_t command, uint16_t id, size_t expected);
  void OnEvent(const T4Packet& packet);
  void Send(uint16_t command, uint16_t id, std::string_view data);
  uint16_t NextId() { return ++reply_id_; }  // 65535 wraps to 0, the one wrap terminals accept
  void CheckUsable() const;
  [[noreturn]] void LoseSession(const std::string& why);

  std::unique_ptr<T4Transport> transport_;
  T4Timeouts timeouts_;
  comm::WakeSet wake_;
  uint16_t session_ = 0;
  uint16_t reply_id_ = 0;
  bool lost_ = false;
  bool out_of_step_ = false;
  std::chrono::steady_clock::time_point last_heard_;
  std::deque<T4AttEvent> events_;
  std::deque<std::string> unknown_events_;
  std::string last_event_;  // reply id and payload: a resent event is taken once
};

}  // namespace clockcomm::t4::net
