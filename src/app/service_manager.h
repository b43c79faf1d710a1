// The program as a systemd service (Type=notify): tells the service manager when it is ready, what
// it is doing and when it stops, and turns its watchdog, when it asked for one, into the process's
// heartbeat. Does nothing when the program was not started by systemd.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/heartbeat.h"
#include "shell/site_status.h"

namespace clockcomm::app {

class ServiceManager {
 public:
  ServiceManager();
  ~ServiceManager();
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  void Ready(std::string_view status);
  void Status(std::string_view status);
  // The configuration is being read again; Ready follows.
  void Reloading();
  void Stopping();

 private:
  bool notify_ = false;
  std::unique_ptr<core::Heartbeat> heartbeat_;
};

// The state of a unit as the system's service manager tells it over D-Bus; not known where there
// is no system bus or the unit is not installed.
shell::ServiceState QueryServiceState(const std::string& unit);

}  // namespace clockcomm::app
