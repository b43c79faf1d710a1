#include "app/service_manager.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <string>

namespace clockcomm::app {
namespace {

void Notify(const std::string& state) { sd_notify(0, state.c_str()); }

// One line of status: the service manager shows the text up to a newline.
std::string StatusLine(std::string_view status) {
  std::string line(status.substr(0, status.find('\n')));
  return "STATUS=" + line;
}

}  // namespace

ServiceManager::ServiceManager() : notify_(std::getenv("NOTIFY_SOCKET") != nullptr) {
  uint64_t usec = 0;
  if (notify_ && sd_watchdog_enabled(0, &usec) > 0 && usec > 0) {
    heartbeat_ = std::make_unique<core::Heartbeat>(std::chrono::microseconds(usec),
                                                   [] { Notify("WATCHDOG=1"); });
    core::Heartbeat::SetProcess(heartbeat_.get());
  }
}

ServiceManager::~ServiceManager() {
  if (heartbeat_) core::Heartbeat::SetProcess(nullptr);
}

void ServiceManager::Ready(std::string_view status) {
  if (notify_) Notify("READY=1\n" + StatusLine(status));
}

void ServiceManager::Status(std::string_view status) {
  if (notify_) Notify(StatusLine(status));
}

void ServiceManager::Reloading() {
  if (notify_) Notify("RELOADING=1\nSTATUS=Reading the configuration again");
}

void ServiceManager::Stopping() {
  if (notify_) Notify("STOPPING=1\nSTATUS=Stopping");
}

shell::ServiceState QueryServiceState(const std::string& unit) {
  shell::ServiceState state;
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0) return state;
  char* path = nullptr;
  if (sd_bus_path_encode("/org/freedesktop/systemd1/unit", unit.c_str(), &path) < 0) {
    sd_bus_unref(bus);
    return state;
  }
  const auto property = [&](const char* interface, const char* name, std::string& out) {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    char* value = nullptr;
    const int r = sd_bus_get_property_string(bus, "org.freedesktop.systemd1", path, interface, name,
                                             &error, &value);
    sd_bus_error_free(&error);
    if (r < 0) return false;
    out = value;
    std::free(value);
    return true;
  };
  std::string load;
  if (property("org.freedesktop.systemd1.Unit", "LoadState", load) && load == "loaded" &&
      property("org.freedesktop.systemd1.Unit", "ActiveState", state.active) &&
      property("org.freedesktop.systemd1.Unit", "SubState", state.sub)) {
    property("org.freedesktop.systemd1.Service", "StatusText", state.status);
    state.known = true;
  }
  std::free(path);
  sd_bus_unref(bus);
  return state;
}

}  // namespace clockcomm::app
