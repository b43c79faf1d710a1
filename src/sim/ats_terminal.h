// A simulated ATS terminal: answers the program's status enquiries, commands and polls on one
// line (a pty master or a TCP connection), hands out its punches oldest first and forgets one
// only when the program has acknowledged it.
#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ats/ats_models.h"
#include "comm/connection.h"
#include "comm/tcp_connection.h"
#include "core/date_time.h"
#include "core/stop_signal.h"

namespace clockcomm::sim {

// Faults on demand. Counted faults fire once in the terminal's life.
struct ATSFaults {
  int not_ready = 0;     // the first N status enquiries are answered NAK (busy)
  int nak_commands = 0;  // the next N commands are refused
  std::optional<int> bad_lrc;       // the N-th packet sent (from 1, resends count) has a bad LRC
  std::optional<int> silent_after;  // after N packets sent, the terminal is deaf for a while
  std::optional<int> drop_after;    // after N packets sent, the terminal closes the line
  bool unknown_packet = false;      // a packet of the unknown type "ZZ" comes before the punches
};

struct ATSTerminalConfig {
  ats::Series series = ats::Series::kESeries;
  int address = 1;
  ATSFaults faults;
  // How long the silent fault lasts: long enough for the program to give up its poll.
  std::chrono::milliseconds silence = std::chrono::seconds(3);
};

struct ATSTerminalStats {
  int probes = 0;    // status enquiries for this terminal
  int commands = 0;  // command frames for this terminal, refused ones included
  int polls = 0;
  int packets_sent = 0;  // data frames, resends included (not the status answer)
  int resends = 0;
  int acks = 0;  // ACK replies that made the terminal forget a packet
  int naks = 0;  // NAK replies
  int eots_sent = 0;  // polls answered "nothing left"
};

enum class ServeOutcome {
  kUnlocked,  // the program unlocked the terminal: a poll has ended (only when asked to stop there)
  kClosed,    // the program's side went away
  kDropped,   // fault: the terminal closed the line
  kStopped,   // the stop signal
};

class ATSTerminal {
 public:
  ATSTerminal(ATSTerminalConfig config, std::vector<ats::TCDPacket> punches,
              core::StopSignal* stop = nullptr);

  // Serves the line until it closes, the stop signal, or (when until_unlocked) the unlock
  // command that ends a poll.
  ServeOutcome Serve(comm::IConnection& line, bool until_unlocked = false);
  // Takes connections one after another and serves each until it closes; returns when stopped,
  // or after the first poll ended when once is set.
  ServeOutcome ServeTcp(comm::TcpListener& listener, bool once = false);

  // Punches not yet acknowledged, oldest first.
  std::vector<ats::TCDPacket> PendingPunches() const;
  ATSTerminalStats Stats() const;
  bool Locked() const;
  const ATSTerminalConfig& Config() const { return config_; }

 private:
  struct Stored {
    std::string packet;  // type and data
    std::optional<ats::TCDPacket> punch;
  };
  // kDeaf: the silent fault has run; what came before it was never heard.
  enum class Step { kGoOn, kUnlocked, kDropped, kDeaf };

  Step Handle(comm::IConnection& line, std::string& buffer);
  Step OnEnquiry(comm::IConnection& line, char letter);
  Step OnCommand(comm::IConnection& line, std::string_view frame, bool good);
  // True when the reply refused the packet sent last, which then goes again.
  bool OnReply(bool ack);
  Step SendOldest(comm::IConnection& line);
  // Reads and drops what comes until the deadline; false when the stop signal came.
  bool StayDeaf(comm::IConnection& line, comm::SteadyTime until);

  ATSTerminalConfig config_;
  const ats::AtsModel& model_;
  core::StopSignal* stop_;
  mutable std::mutex mutex_;
  std::deque<Stored> store_;
  ATSTerminalStats stats_;
  bool locked_ = false;
  bool awaiting_reply_ = false;  // the oldest packet went out and its reply has not come
  int sent_since_reply_ = 0;     // times the oldest packet went out (for the resend count)
};

// count punches of the day for a terminal of the series: distinct badges from 1001, one minute
// apart from 06:00, kinds taken in turn from the model's table, a department on every third and
// a job on every fourth.
std::vector<ats::TCDPacket> GenerateATSPunches(ats::Series series, int count, const core::Date& day,
                                               int address);

}  // namespace clockcomm::sim
