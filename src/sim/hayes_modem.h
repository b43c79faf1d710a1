// A simulated Hayes modem. Its DTE side is the master of a pty whose slave the program opens as
// its modem port; its line side reaches simulated terminals through a phone book, each call over a
// pty pair of its own with the terminal's call running on a thread. One loop (Run) sleeps in
// poll() on both sides, the stop signal and a doorbell for incoming calls.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "comm/fd_connection.h"
#include "core/stop_signal.h"
#include "sim/modem_command.h"
#include "sim/zon_terminal.h"

namespace clockcomm::sim {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

struct ModemOptions {
  // The speed CONNECT reports; none gives a bare CONNECT (300 bit/s).
  std::optional<int> speed = 2400;
  // The first this-many dials fail with fail_code, so a caller's retries can be seen.
  int fail_dials = 0;
  ResultCode fail_code = ResultCode::kNoCarrier;
  // No line plugged in: every dial answers NO DIALTONE.
  bool no_dialtone = false;
  // Silence required before and after "+++" (register S12, in fiftieths of a second).
  std::chrono::milliseconds guard_time = 1s;
  // Between two RINGs of an incoming call, as on a telephone line.
  std::chrono::milliseconds ring_interval = 6s;
  // A caller gives up after this many unanswered rings.
  int max_rings = 10;
};

struct ModemStats {
  int commands = 0;  // command lines taken (each "AT..." ended by CR)
  int dials = 0;
  int failed_dials = 0;
  int rings = 0;
  int connects = 0;
  int hang_ups = 0;        // by ATH or ATZ
  int carrier_losses = 0;  // the terminal's side went away: NO CARRIER
  int escapes = 0;         // "+++" taken
  int missed_calls = 0;    // incoming calls while busy or never answered
};

// The terminal's end of a call: holds it over the line (outbound: the modem dialled it; otherwise
// it called in) and says how it went.
using LineParty = std::function<CallOutcome(comm::FdConnection& line, bool outbound)>;

class HayesModem {
 public:
  HayesModem(std::unique_ptr<comm::FdConnection> dte, ModemOptions options, core::StopSignal& stop);
  ~HayesModem();
  HayesModem(const HayesModem&) = delete;
  HayesModem& operator=(const HayesModem&) = delete;

  // Dialling number reaches the party, or the Zon/Tranz terminal (which must outlive the modem).
  void AddToPhoneBook(const std::string& number, LineParty party);
  void AddToPhoneBook(const std::string& number, ZonTerminal& terminal);
  // The terminal at number calls this modem (any thread): RING, and with S0 set, an answer.
  void IncomingCall(const std::string& number);

  // Serves until the stop signal; hangs up on the way out.
  void Run();

  ModemStats Stats() const;
  // The S register n (S0: rings before auto-answer, 0 = off). Read it once Run has returned.
  int Register(int n) const { return registers_[n & 0xFF]; }
  bool Connected() const;
  // The outcome of the last call the line side finished.
  CallOutcome LastTerminalOutcome() const;

 private:
  enum class Mode { kCommand, kOnline, kOnlineCommand };

  void OnDteInput(const std::string& text, std::chrono::steady_clock::time_point now);
  void OnLineInput();
  void OnCommandByte(char c);
  void Execute(std::string line);
  // Runs one command; returns a result code that replaces the final OK, if any.
  std::optional<ResultCode> Apply(const AtCommand& command, bool* stop_line);
  ResultCode Dial(const std::string& number);
  // The phone book's entry for a dialled number, or none.
  const LineParty* Lookup(const std::string& number) const;
  void Connect(const LineParty& party, bool outbound);
  // Closes the line side and waits for the terminal's thread.
  void EndLine();
  void HangUp();
  void CarrierLost();
  void RingTick(std::chrono::steady_clock::time_point now);
  void TakeIncomingCalls(std::chrono::steady_clock::time_point now);
  void CheckEscape(std::chrono::steady_clock::time_point now);
  void Reset();
  // Output to the DTE is gathered during a pass and written at its end, in order.
  void Send(const std::string& text);
  void Flush();
  void Result(ResultCode code);
  void Count(int ModemStats::*field);
  std::chrono::milliseconds GuardTime() const;

  std::unique_ptr<comm::FdConnection> dte_;
  ModemOptions options_;
  core::StopSignal& stop_;
  core::StopSignal doorbell_;  // rung by IncomingCall from other threads

  mutable std::mutex mutex_;  // guards the phone book, the incoming queue and the stats
  std::map<std::string, LineParty> phone_book_;
  std::deque<std::string> incoming_;
  ModemStats stats_;
  CallOutcome last_outcome_ = CallOutcome::kNone;
  bool connected_ = false;

  // Loop state, touched only by Run's thread.
  Mode mode_ = Mode::kCommand;
  bool echo_ = true;
  bool quiet_ = false;
  bool verbose_ = true;
  int registers_[256] = {};
  std::string command_line_;
  std::string pending_out_;
  int dials_seen_ = 0;
  // The line side of the current call and the thread running the terminal's end of it.
  std::unique_ptr<comm::FdConnection> line_;
  std::thread terminal_thread_;
  // An incoming call that is ringing.
  const LineParty* ringing_ = nullptr;  // an entry of the phone book
  int rings_ = 0;
  std::chrono::steady_clock::time_point next_ring_{};
  // Escape detection: when the DTE last sent a byte, how many "+" in a row after a guard time,
  // and when the escape takes effect if nothing follows.
  std::chrono::steady_clock::time_point last_dte_byte_{};
  int pluses_ = 0;
  std::optional<std::chrono::steady_clock::time_point> escape_at_;
};

}  // namespace clockcomm::sim
