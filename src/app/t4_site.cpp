#include "app/t4_site.h"

#include <thread>

#include "core/errors.h"
#include "db/open.h"
#include "t4/net/t4_net_device.h"

namespace clockcomm::app {
namespace {

// The terminals' own protocol, over the transport the clock list names.
std::unique_ptr<t4::IT4Device> MakeNetworkDevice(const t4::T4ClockEntry& entry,
                                                 core::LogSink& log) {
  t4::net::T4NetOptions options;
  options.transport =
      entry.transport == "udp" ? t4::net::T4TransportKind::kUdp : t4::net::T4TransportKind::kTcp;
  options.key = static_cast<uint32_t>(entry.comm_key);
  options.clock_name = entry.name;
  return std::make_unique<t4::net::T4NetDevice>(options, log);
}

std::unique_ptr<t4::IT4Connection> Connect(const t4::T4ClockEntry& entry,
                                           comm::ConnectionType line_type, core::LogSink& log) {
  switch (line_type) {
    case comm::ConnectionType::kSerial:
      return std::make_unique<t4::T4SerialConnection>(entry.device_number, entry.name, log);
    case comm::ConnectionType::kModem:
      return std::make_unique<t4::T4ModemConnection>(entry.device_number, entry.name, log);
    case comm::ConnectionType::kLan:
      break;
  }
  return std::make_unique<t4::T4EthernetConnection>(MakeNetworkDevice(entry, log), entry.address,
                                                    entry.device_number, entry.name, log);
}

t4::T4StationSettings SettingsOf(const CallSession& session) {
  t4::T4StationSettings settings;
  settings.cycle_interval =
      std::chrono::milliseconds(session.Config().Overrides().HostCycleInterval());
  return settings;
}

}  // namespace

T4Site::T4Site(CallSession& session, comm::ConnectionType line_type)
    : session_(session),
      log_(session.Logs(), session.Screen(), true),
      rules_(session.Paths().ProgramDirectory(), log_),
      assignments_(session.Paths().ProgramDirectory(), log_),
      writer_(session.Companies(), rules_, assignments_, session.Paths().ProgramDirectory(), log_,
              session.Clock()),
      host_([path = session.Paths().ClockwynDatabase()] { return db::Open(path); },
            [this, line_type](const t4::T4ClockEntry& entry) {
              return Connect(entry, line_type, log_);
            },
            session.Companies(), writer_, assignments_, SettingsOf(session), session.Clock(),
            log_) {
  session.ProductDatabase();  // the clock list's tables exist before the host reads them
}

void T4Site::Host(core::StopSignal& end, std::optional<core::DateTime> until) {
  // The host stops on End or at the end time; only End is passed on to the caller.
  core::StopSignal stop;
  const int listener = end.AddListener([&stop] { stop.Request(); });
  if (end.Requested()) stop.Request();
  std::thread ender;
  if (until) {
    const auto left = std::chrono::seconds(
        std::max<int64_t>(0, core::SecondsBetween(session_.Clock().Now(), *until)));
    ender = std::thread([&stop, left] {
      if (!stop.WaitFor(left)) stop.Request();
    });
  }
  host_.Run(stop);
  end.RemoveListener(listener);
  stop.Request();
  if (ender.joinable()) ender.join();
}

bool T4Site::PollAll() {
  if (t4::T4ClockList(session_.ProductDatabase()).ReadClocks().empty()) {
    throw core::InvalidOperationException(
        "The T4 clock list has no clock: add the terminals with `clockcomm t4 clocks add`.");
  }
  return host_.PollAll().empty();
}

}  // namespace clockcomm::app
