// How a T4 clock reaches its terminal. The terminals' protocol runs over the network only, so the
// LAN connection is the one that connects; a clock set up otherwise is refused with a reason
// instead of failing obscurely.
#pragma once

#include <memory>
#include <string>

#include "comm/network_line.h"
#include "core/log_sink.h"
#include "t4/it4_device.h"

namespace clockcomm::t4 {

// The end point of a terminal's address, "host:port" or "host" on the terminals' usual port 4370.
// Throws core::ArgumentException for a bad port.
comm::EndPoint T4EndPoint(const std::string& address);

class IT4Connection {
 public:
  virtual ~IT4Connection() = default;
  // False when the terminal could not be reached; ConnectFailure then says why.
  virtual bool Connect() = 0;
  virtual const std::string& ConnectFailure() const = 0;
  virtual void Disconnect() = 0;
  virtual bool IsConnected() const = 0;
  // The terminal's operations; throws core::InvalidOperationException while not connected.
  virtual IT4Device& Device() = 0;
  // The terminal's machine number, the first argument of every terminal operation.
  virtual long DeviceNumber() const = 0;
  // See IT4Device::SetStopSignal.
  virtual void SetStopSignal(const core::StopSignal* /*stop*/) {}
};

// A terminal at "host:port", or "host" on the terminals' usual port.
class T4EthernetConnection : public IT4Connection {
 public:
  static constexpr int kDefaultPort = 4370;

  // Throws core::ArgumentException for an address with a bad port.
  T4EthernetConnection(std::unique_ptr<IT4Device> device, const std::string& address,
                       long device_number, std::string clock_name, core::LogSink& log);
  ~T4EthernetConnection() override;

  bool Connect() override;
  const std::string& ConnectFailure() const override { return failure_; }
  void Disconnect() override;
  bool IsConnected() const override { return connected_; }
  IT4Device& Device() override;
  long DeviceNumber() const override { return device_number_; }
  void SetStopSignal(const core::StopSignal* stop) override { device_->SetStopSignal(stop); }

  const std::string& Host() const { return host_; }
  int Port() const { return port_; }

 private:
  std::unique_ptr<IT4Device> device_;
  std::string host_;
  int port_;
  long device_number_;
  std::string clock_name_;
  core::LogSink& log_;
  bool connected_ = false;
  std::string failure_;
};

// A clock whose terminal cannot be reached the way it is set up: Connect always refuses, with the
// reason in the event log.
class T4RefusedConnection : public IT4Connection {
 public:
  T4RefusedConnection(std::string reason, long device_number, std::string clock_name,
                      core::LogSink& log);

  bool Connect() override;
  const std::string& ConnectFailure() const override { return reason_; }
  void Disconnect() override {}
  bool IsConnected() const override { return false; }
  IT4Device& Device() override;
  long DeviceNumber() const override { return device_number_; }

 private:
  std::string reason_;
  long device_number_;
  std::string clock_name_;
  core::LogSink& log_;
};

// The terminals' protocol runs over the network only: a clock set up on a serial line or a modem
// is refused with the way to set it up.
std::string NetworkOnlyReason(const std::string& line_type);

class T4SerialConnection : public T4RefusedConnection {
 public:
  T4SerialConnection(long device_number, std::string clock_name, core::LogSink& log)
      : T4RefusedConnection(NetworkOnlyReason("serial"), device_number, std::move(clock_name),
                            log) {}
};

class T4ModemConnection : public T4RefusedConnection {
 public:
  T4ModemConnection(long device_number, std::string clock_name, core::LogSink& log)
      : T4RefusedConnection(NetworkOnlyReason("modem"), device_number, std::move(clock_name), log) {
  }
};

}  // namespace clockcomm::t4
