// The ATS family's view of a line the runner has already reached (a serial port opened, a modem
// connected, a socket connected): send text, receive what arrived within a wait. Reaching the
// terminal is the line's job and is shared by every family.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "comm/connection.h"
#include "core/clock.h"
#include "core/stop_signal.h"

namespace clockcomm::ats {

// Every ATS line runs at these settings.
inline constexpr const char* kATSLineSettings = "9600,O,7,2";

class IATSConnection {
 public:
  virtual ~IATSConnection() = default;
  // Whether the line can be used for a conversation.
  virtual bool Connect() = 0;
  virtual void Send(std::string_view text) = 0;
  // Blocks until input arrives, the wait passes or the stop signal is raised; returns what
  // arrived, possibly empty.
  virtual std::string Receive(std::chrono::milliseconds wait) = 0;
  virtual void Disconnect() = 0;
};

// The conversation over a reached comm::IConnection, whatever carries it, with the terminal it
// reaches.
class ATSLineConnection : public IATSConnection {
 public:
  ATSLineConnection(comm::IConnection& line, const core::Clock& clock, const core::StopSignal& stop,
                    int term_id, std::string location_name)
      : line_(line),
        clock_(clock),
        stop_(stop),
        term_id_(term_id),
        location_name_(std::move(location_name)) {}

  bool Connect() override;
  void Send(std::string_view text) override { line_.WriteText(text); }
  std::string Receive(std::chrono::milliseconds wait) override;
  // The runner ends the call and closes or hangs up the line; nothing is left to do here.
  void Disconnect() override {}

  int TermId() const { return term_id_; }
  const std::string& LocationName() const { return location_name_; }

 private:
  comm::IConnection& line_;
  const core::Clock& clock_;
  const core::StopSignal& stop_;
  int term_id_;
  std::string location_name_;
};

class ATSSerialConnection : public ATSLineConnection {
 public:
  ATSSerialConnection(comm::IConnection& line, const core::Clock& clock,
                      const core::StopSignal& stop, int term_id, std::string location_name,
                      std::string com_port)
      : ATSLineConnection(line, clock, stop, term_id, std::move(location_name)),
        com_port_(std::move(com_port)) {}

  const std::string& ComPort() const { return com_port_; }

 private:
  std::string com_port_;
};

class ATSModemConnection : public ATSSerialConnection {
 public:
  ATSModemConnection(comm::IConnection& line, const core::Clock& clock,
                     const core::StopSignal& stop, int term_id, std::string location_name,
                     std::string com_port, std::string phone_number)
      : ATSSerialConnection(line, clock, stop, term_id, std::move(location_name),
                            std::move(com_port)),
        phone_number_(std::move(phone_number)) {}

  const std::string& PhoneNumber() const { return phone_number_; }

 private:
  std::string phone_number_;
};

class ATSEthernetConnection : public ATSLineConnection {
 public:
  ATSEthernetConnection(comm::IConnection& line, const core::Clock& clock,
                        const core::StopSignal& stop, int term_id, std::string location_name,
                        std::string end_point)
      : ATSLineConnection(line, clock, stop, term_id, std::move(location_name)),
        end_point_(std::move(end_point)) {}

  // "host:port"
  const std::string& EndPoint() const { return end_point_; }

 private:
  std::string end_point_;
};

}  // namespace clockcomm::ats
