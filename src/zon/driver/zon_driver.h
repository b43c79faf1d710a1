// The Zon/Tranz conversation: a direct line's ENQ or hours request, a modem's answered call, an
// outbound poll's enquiry and header request, then the receive loop of one call (header, data
// packets checked and acknowledged, the end packet) and its end (EOT only after the intake has
// made the punches durable, the validation tables when asked for).
#pragma once

#include <string>

#include "terminal/terminal_driver.h"
#include "zon/driver/zon_link.h"

namespace clockcomm::zon {

class ZonDriver : public terminal::TerminalDriver {
 public:
  // How often an outbound enquiry and header request are tried before the poll is given up.
  static constexpr int kPollTries = 5;

  explicit ZonDriver(terminal::DriverContext context);

  void Host(terminal::CallStart start, std::string data) override;
  bool Poll(const terminal::PollTarget& target, std::string data) override;
  int Calls() const override { return calls_; }
  bool LastCallSucceeded() const override { return last_call_succeeded_; }
  const std::string& LastClockName() const override { return last_clock_name_; }
  std::string PortSettings() const override;

 private:
  enum class ReceiveState { kWaitingForHeader, kFirstData, kUploading };
  // The state of the call in progress.
  struct Call {
    bool succeeded = false;
    bool download_requested = false;
    ReceiveState state = ReceiveState::kWaitingForHeader;
    bool header_seen = false;
    std::string clock_name;
    int clock_number = 0;
    terminal::InputCounters bad_input;
  };

  bool HandleDirectInput();
  void AnswerHoursRequest(std::string_view request);
  bool IsMobility() const;
  void RefuseMobility();
  bool Enquire(const std::string& packet, const std::string& expected);

  void StartCall();
  void CommLoopTCB();
  // False when what the packet held could not be stored (it must not be acknowledged).
  bool ParseTC20(const std::string& packet);
  void HandleHeader(std::string_view body);
  void HandleData(std::string_view body);
  void EndCall();
  void SendEndCharacters();
  void RunValidationDownload();
  void ShowEvent(std::string_view screen_format, std::string_view type, std::string_view des);

  terminal::DriverContext context_;
  terminal::CallController& controller_;
  records::CallIntake& intake_;
  ZonLink link_;
  // Text of a direct line waiting for a call: only an ENQ can start something.
  std::string host_buffer_;
  Call call_;
  uint64_t overlong_before_ = 0;
  int calls_ = 0;
  bool last_call_succeeded_ = false;
  std::string last_clock_name_;
};

}  // namespace clockcomm::zon
