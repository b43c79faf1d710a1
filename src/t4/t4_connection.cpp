#include "t4/t4_connection.h"

#include "core/errors.h"
#include "t4/t4_error_text.h"

namespace clockcomm::t4 {

comm::EndPoint T4EndPoint(const std::string& address) {
  const bool has_port = address.find(':') != std::string::npos && address.back() != ']';
  return comm::ParseEndPoint(
      has_port ? address : address + ":" + std::to_string(T4EthernetConnection::kDefaultPort));
}

T4EthernetConnection::T4EthernetConnection(std::unique_ptr<IT4Device> device,
                                           const std::string& address, long device_number,
                                           std::string clock_name, core::LogSink& log)
    : device_(std::move(device)),
      device_number_(device_number),
      clock_name_(std::move(clock_name)),
      log_(log) {
  const comm::EndPoint end = T4EndPoint(address);
  host_ = end.host;
  port_ = end.port;
}

T4EthernetConnection::~T4EthernetConnection() { Disconnect(); }

bool T4EthernetConnection::Connect() {
  if (connected_) return true;
  connected_ = device_->Connect_Net(host_, port_);
  failure_.clear();
  if (!connected_) {
    int code = 0;
    device_->GetLastError(code);
    const std::string detail = device_->LastFailure();
    failure_ = "could not connect to " + host_ + ":" + std::to_string(port_) + ". " +
               ErrorText(code) + (detail.empty() ? "" : " (" + detail + ")");
    // Each try goes to the clock's debug log; the host writes one event per outage.
    log_.Debug(clock_name_, failure_);
  }
  return connected_;
}

void T4EthernetConnection::Disconnect() {
  if (!connected_) return;
  connected_ = false;
  device_->Disconnect();
}

IT4Device& T4EthernetConnection::Device() {
  if (!connected_) {
    throw core::InvalidOperationException("Clock " + clock_name_ + " is not connected.");
  }
  return *device_;
}

std::string NetworkOnlyReason(const std::string& line_type) {
  return "T4 terminals are reached over the network only, not by " + line_type +
         " line. Set the clock's connection type to 3 (LAN) and its address to the terminal's IP "
         "address.";
}

T4RefusedConnection::T4RefusedConnection(std::string reason, long device_number,
                                         std::string clock_name, core::LogSink& log)
    : reason_(std::move(reason)),
      device_number_(device_number),
      clock_name_(std::move(clock_name)),
      log_(log) {}

bool T4RefusedConnection::Connect() {
  log_.Debug(clock_name_, reason_);  // the host reports the outage once
  return false;
}

IT4Device& T4RefusedConnection::Device() {
  throw core::InvalidOperationException("Clock " + clock_name_ + " is not connected.");
}

}  // namespace clockcomm::t4
