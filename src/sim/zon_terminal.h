// A simulated Zon/Tranz terminal: it calls the program (host mode) or answers its poll, uploads its
// header and punches with block checks, resends on NAK, ends the batch, takes validation tables
// when it asked for them, and forgets its punches only once the program has sent EOT.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "comm/connection.h"
#include "core/date_time.h"
#include "core/stop_signal.h"
#include "sim/terminal_config.h"

namespace clockcomm::sim {

class HostInbox;
class PacedWriter;

// A direct line carries the conversation from the start; behind a modem the terminal first sees
// its modem's CONNECT line, which also stands for the call-in announcement.
enum class LineKind { kDirect, kModem };

enum class CallOutcome {
  kNone,         // no call yet
  kCompleted,    // EOT received: the batch was delivered
  kNoAnswer,     // the program did not answer the call-in, or the poll stopped half way
  kNoAck,        // a packet got neither ACK nor NAK in time
  kTooManyNaks,  // a packet was refused more often than max_resends
  kNoEot,        // the batch was sent but no EOT came
  kWentSilent,   // fault: stopped sending half way
  kDroppedLine,  // fault: closed the line half way
  kLineClosed,   // the program's side went away
  kStopped,      // the stop signal ended the call
};
const char* ToString(CallOutcome outcome);

struct TerminalStats {
  int calls = 0;
  int packets_sent = 0;  // header and data packets, resends included
  int acks_received = 0;
  int naks_received = 0;
  int resends = 0;
  int eots_received = 0;
  int polls_answered = 0;  // header requests answered with ENQ CRLF
  int rows_received = 0;   // validation-table rows stored
  int row_naks_sent = 0;
  uint64_t bytes_sent = 0;
  std::chrono::nanoseconds wire_time{0};  // at the pace, for the bytes sent (zero unpaced)
};

// Rows of one validation table, each row its fields.
using Table = std::vector<std::vector<std::string>>;

class ZonTerminal {
 public:
  // stop (may be null) ends any wait of the terminal at once.
  ZonTerminal(TerminalConfig config, std::vector<std::string> punches,
              core::StopSignal* stop = nullptr);

  // Host mode: announces itself with ENQ CRLF (direct line) or waits for CONNECT (modem), waits
  // for the program's ENQ and uploads.
  CallOutcome CallIn(comm::IConnection& line, LineKind kind = LineKind::kDirect);
  // Waits (until first_enq_deadline) for the program's poll, answers it, and uploads.
  CallOutcome AnswerPoll(comm::IConnection& line, LineKind kind = LineKind::kDirect,
                         comm::SteadyTime first_enq_deadline = comm::kNoDeadline);
  // Sends ENQ "HRS" FS badge FS yymmddhhmm CRLF and returns the reply line (without CRLF), or
  // nothing when none came in time.
  std::optional<std::string> RequestHours(comm::IConnection& line, int32_t badge,
                                          const core::DateTime& when);

  void AddPunches(const std::vector<std::string>& punches);
  std::vector<std::string> PendingPunches() const;
  TerminalStats Stats() const;
  CallOutcome LastOutcome() const;
  // The tables of the last download, by name.
  std::map<std::string, Table> Tables() const;
  std::vector<std::string> HoursReplies() const;
  const TerminalConfig& Config() const { return config_; }

 private:
  struct Call;
  // kLost: an ACK came but was lost on the line (fault), and the ACK wait has passed.
  enum class Reply { kAck, kNak, kLost, kNone };

  CallOutcome RunCall(comm::IConnection& line, bool poll, LineKind kind,
                      comm::SteadyTime first_deadline);
  CallOutcome Handshake(Call& call, bool poll, LineKind kind, comm::SteadyTime first_deadline);
  CallOutcome Upload(Call& call);
  // Sends a checked packet until it is acknowledged; index 0 is the header.
  CallOutcome SendPacket(Call& call, const std::string& packet, int index);
  // The answer to packet index (0 the header, -1 a repeated header).
  Reply AwaitReply(Call& call, int index);
  // After the end-of-upload packet: the tables, up to the EOT.
  CallOutcome ReceiveTables(Call& call, size_t batch_size);
  CallOutcome AwaitEot(Call& call, size_t batch_size);
  // An EOT arrived; false when the miss-EOT fault makes the terminal not see it.
  bool SeesEot();
  void Delivered(size_t count);
  // True once for a fault whose count has come; clears it.
  static bool Fire(std::optional<int>& fault, int count);
  template <typename F>
  void Update(F&& f) {
    std::lock_guard lock(mutex_);
    f();
  }

  TerminalConfig config_;
  core::StopSignal* stop_;
  mutable std::mutex mutex_;  // guards what the getters return; calls run one at a time
  std::vector<std::string> punches_;
  TerminalStats stats_;
  CallOutcome outcome_ = CallOutcome::kNone;
  std::map<std::string, Table> tables_;
  std::vector<std::string> hours_replies_;
};

}  // namespace clockcomm::sim
