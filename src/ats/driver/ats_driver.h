// The ATS conversation of one outbound call: the terminal's address from the poll list, the
// keypad locked, every packet polled, stored durably and only then acknowledged, the keypad
// unlocked. ATS terminals never call in.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "records/tcd_record.h"
#include "terminal/terminal_driver.h"

namespace clockcomm::ats {

class IATSConnection;

// Reads a punch frame of a terminal of the type as a TCD record (sequence: its number in the
// call). Nothing when the frame holds no punch; throws core::Error naming the fault for a punch
// that cannot be read.
using PunchReader = std::function<std::optional<records::TcdRecord>(
    terminal::TerminalType type, const std::string& frame, int sequence)>;

class ATSDriver : public terminal::TerminalDriver {
 public:
  // Without a reader no punch can be stored: each is refused and stays on the terminal.
  ATSDriver(terminal::DriverContext context, PunchReader reader);

  void Host(terminal::CallStart start, std::string data) override;
  bool Poll(const terminal::PollTarget& target, std::string data) override;
  int Calls() const override { return calls_; }
  bool LastCallSucceeded() const override { return last_call_succeeded_; }
  const std::string& LastClockName() const override { return last_clock_name_; }
  std::string PortSettings() const override;

 private:
  std::unique_ptr<IATSConnection> MakeConnection(const terminal::PollTarget& target, int address);
  bool RunCall(class ATSCommunicator& comm, const terminal::PollTarget& target, int address);
  // The store step of a packet read: true once it is durable (or durably set aside).
  bool Store(const std::string& frame, const std::string& clock_name);
  bool KeepAside(const std::string& frame, std::string_view reason);
  void EndCall(bool succeeded, const std::string& clock_name,
               const terminal::InputCounters& counters);

  terminal::DriverContext context_;
  terminal::CallController& controller_;
  records::CallIntake& intake_;
  PunchReader reader_;
  terminal::TerminalType type_ = terminal::TerminalType::kAtsESeries;  // the polled terminal's
  bool opened_ = false;
  bool host_notice_shown_ = false;
  int calls_ = 0;
  bool last_call_succeeded_ = false;
  std::string last_clock_name_;
};

}  // namespace clockcomm::ats
