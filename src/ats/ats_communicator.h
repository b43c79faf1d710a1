// The program's side of the ATS conversation with one terminal: the readiness probe before every
// command, the command and its reply, the clock-type question, the lock and unlock of the keypad,
// the poll and the reading of one packet, acknowledged only after the caller has stored it.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "ats/ats_connection.h"
#include "core/clock.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"
#include "terminal/call_controller.h"

namespace clockcomm::ats {

// Every command sent to a terminal, one line each with its date and time, in "ATSDataSent.log"
// of the given folder (none when the folder is empty). A failed write is said once in the debug
// log and never stops a poll.
class DataSentLog {
 public:
  static constexpr const char* kFileName = "ATSDataSent.log";
  DataSentLog(std::filesystem::path folder, const core::Clock& clock, core::LogSink& log)
      : folder_(std::move(folder)), clock_(clock), log_(log) {}
  void Append(std::string_view command);

 private:
  std::filesystem::path folder_;
  const core::Clock& clock_;
  core::LogSink& log_;
  bool failure_reported_ = false;
};

enum class PacketKind { kPunch, kKnown, kUnknown };
// A punch ("PN", "PB", "PK"), another packet type the terminals send, or one they should not.
PacketKind ClassifyPacket(std::string_view frame);

class ATSCommunicator {
 public:
  // The program's own address on every ATS line.
  static constexpr int kSourceAddress = 1;
  // A readiness try reads this often, each read waiting this long: a ready terminal answers the
  // status enquiry at once, so 20 x 10 ms is long enough to call it busy.
  static constexpr int kReadyReads = 20;
  static constexpr std::chrono::milliseconds kReadyReadWait{10};
  static constexpr int kReadyTries = 20;
  // Attempts at a command (readiness, frame, reply), with a rest between them that lets a busy
  // terminal finish what it is doing.
  static constexpr int kCommandAttempts = 20;
  static constexpr std::chrono::milliseconds kAttemptRest{100};
  // The reply to a command comes after the terminal has checked the frame: up to 20 x 100 ms.
  static constexpr int kReplyReads = 20;
  static constexpr std::chrono::milliseconds kReplyReadWait{100};
  // A packet read gives up after three silent reads of 500 ms: a silent terminal ends a
  // GetPacket within 1.5 s, while a packet at 9600 baud takes a few ms to arrive.
  static constexpr std::chrono::milliseconds kPacketReadWait{500};
  static constexpr int kSilentReads = 3;
  // A broken frame is refused and sent again; after this many passes GetPacket gives up.
  static constexpr int kPacketPasses = 4;

  ATSCommunicator(IATSConnection& connection, int terminal_address, core::Clock& clock,
                  core::LogSink& log, const core::StopSignal& stop, DataSentLog& data_sent);

  bool Connect() { return connection_.Connect(); }
  void Disconnect() { connection_.Disconnect(); }

  // "ESeries" or "CyberSeries", asked of the terminal once and kept; empty when it could not be
  // asked.
  const std::string& GetClockType();
  // Waits for the terminal to be ready, sends the command and checks its reply, up to
  // kCommandAttempts times. False (logged and shown) when it was never taken.
  bool ATSSendCmd(std::string_view command);
  bool LockATSClock() { return ATSSendCmd("O00"); }
  bool UnlockATSClock() { return ATSSendCmd("O10"); }
  // Asks the terminal for its next packet.
  void Poll();
  // Reads the terminal's answer to a poll: a good frame is returned, acknowledged (or refused when
  // acknowledge is false). When acknowledging, store runs first; should it return false the frame
  // is refused, the result is empty and StoreRefused() is true. Empty also when the terminal has
  // nothing left or stays silent.
  std::string GetPacket(bool acknowledge,
                        const std::function<bool(const std::string& frame)>& store = {});
  bool StoreRefused() const { return store_refused_; }

  const terminal::InputCounters& Counters() const { return counters_; }

 private:
  enum class ReadOutcome { kFrame, kEndOfData, kSilent, kBroken };
  enum class Reply { kNone, kAck, kNak };

  // Reads one data frame, a bare EOT, or silence.
  ReadOutcome ReadOne(std::string& frame);
  // Reads the terminal's ACK or NAK reply frame.
  Reply ReadReply(int reads, std::chrono::milliseconds wait);
  bool IsReady();
  void SendReply(bool ack);
  // Blocks for the interval, or until stopped; input arriving meanwhile is stale and dropped.
  void Rest(std::chrono::milliseconds interval);

  IATSConnection& connection_;
  int address_;
  core::Clock& clock_;
  core::LogSink& log_;
  const core::StopSignal& stop_;
  DataSentLog& data_sent_;
  // Bytes received after a reply or a frame: the start of what the terminal says next.
  std::string pending_;
  std::string clock_type_;
  bool store_refused_ = false;
  terminal::InputCounters counters_;
};

}  // namespace clockcomm::ats
