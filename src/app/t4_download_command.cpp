// t4 download HOST[:PORT]: one download of a T4 terminal's attendance log for installers and
// scripts. The log is read, counted and (with --output) written as TCD lines; it is never cleared,
// so the host still collects every punch.
#include <charconv>
#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>

#include "app/commands.h"
#include "core/errors.h"
#include "core/log_sink.h"
#include "records/tcd_record.h"
#include "t4/clock_assignment.h"
#include "t4/net/t4_net_device.h"
#include "t4/net/t4_time_code.h"
#include "t4/t4_connection.h"
#include "t4/t4_error_text.h"

namespace clockcomm::app {
namespace {

struct DownloadOptions {
  std::string address;
  bool udp = false;
  int64_t key = 0;
  std::string output;
};

// Device failures on stderr, as the command's only log.
class StderrLog : public core::NullLogSink {
 public:
  void Event(std::string_view type, std::string_view text) override {
    std::cerr << type << ": " << text << "\n";
  }
};

std::string Failure(t4::net::T4NetDevice& device) {
  int code = 0;
  device.GetLastError(code);
  return t4::ErrorText(code) + " (" + device.LastFailure() + ")";
}

// The records as TCD lines, typed as a clock with the default assignment types them: from the
// in/out state and the badge's previous punch of the day in the same log.
size_t WriteTcdLines(const t4::net::T4NetDevice& device, const std::string& path, size_t& skipped) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw core::SystemError::FromErrno(errno, "cannot write " + path);
  const t4::ClockAssignment assignment;
  std::map<std::pair<long, core::Date>, std::string> last_type;
  size_t written = 0;
  for (const auto& record : device.Downloaded().records) {
    const auto time = t4::net::DecodeTimeCode(record.time).ToDateTime();
    long badge = 0;
    const std::string id = device.EnrolmentOf(record);
    const auto [end, error] = std::from_chars(id.data(), id.data() + id.size(), badge);
    if (!time || error != std::errc() || end != id.data() + id.size() || badge <= 0 ||
        badge > INT32_MAX || record.time == 0) {
      ++skipped;
      continue;
    }
    std::string& last = last_type[{badge, time->GetDate()}];
    const std::string type = assignment.GetEffectivePunchType(
        record.state, last.empty() ? std::nullopt : std::optional<std::string>(last));
    last = type;
    const records::TcdRecord line("1", 0, static_cast<int32_t>(badge), std::nullopt, "", "", "",
                                  type, time->GetDate(), time->GetTime(), std::nullopt,
                                  std::nullopt, std::nullopt, "", true);
    out << line.ToTcdString(1) << "\r\n";
    ++written;
  }
  out.close();
  if (!out) throw core::SystemError::FromErrno(errno, "cannot write " + path);
  return written;
}

int Download(const DownloadOptions& options) {
  const comm::EndPoint end = t4::T4EndPoint(options.address);
  if (options.key < 0 || options.key > 0xFFFFFFFFll) {
    throw core::ArgumentException(
        "The key " + std::to_string(options.key) + " is outside 0..4294967295.", "key");
  }
  StderrLog log;
  t4::net::T4NetOptions net;
  net.transport = options.udp ? t4::net::T4TransportKind::kUdp : t4::net::T4TransportKind::kTcp;
  net.key = static_cast<uint32_t>(options.key);
  net.clock_name = end.host;
  t4::net::T4NetDevice device(net, log);
  const auto start = std::chrono::steady_clock::now();
  if (!device.Connect_Net(end.host, end.port)) {
    std::cerr << "clockcomm t4 download: cannot connect to " << options.address << ": "
              << Failure(device) << "\n";
    return 1;
  }
  // Disabled while it is read, so that the count and the log agree; enabled again whatever
  // happens.
  int count = 0;
  const bool disabled = device.EnableDevice(1, false);
  const bool counted = device.GetDeviceStatus(1, t4::kAttendanceRecordCount, count);
  const bool read = counted && device.ReadGeneralLogData(1);
  const std::string failure = read ? "" : Failure(device);
  if (disabled) device.EnableDevice(1, true);
  device.Disconnect();
  if (!read) {
    std::cerr << "clockcomm t4 download: " << options.address << ": " << failure << "\n";
    return 1;
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const auto& log_read = device.Downloaded();
  std::cout << "Downloaded " << log_read.records.size() << " records from " << options.address
            << " (the terminal counts " << count << ") in " << seconds << " s over "
            << (options.udp ? "udp" : "tcp") << ", " << log_read.record_size << "-byte records.\n";
  if (!options.output.empty()) {
    size_t skipped = 0;
    const size_t written = WriteTcdLines(device, options.output, skipped);
    std::cout << "Wrote " << written << " TCD lines to " << options.output;
    if (skipped > 0) std::cout << "; " << skipped << " records without a badge or a valid time";
    std::cout << ".\n";
  }
  return log_read.records.size() == static_cast<size_t>(count) ? 0 : 3;
}

}  // namespace

void RegisterT4DownloadCommand(CLI::App& t4) {
  auto options = std::make_shared<DownloadOptions>();
  CLI::App* download =
      t4.add_subcommand("download", "Download a T4 terminal's attendance log without clearing it");
  download->add_option("address", options->address, "HOST or HOST:PORT (port 4370 when none)")
      ->required();
  download->add_flag("--udp", options->udp, "Use UDP instead of TCP");
  download->add_option("--key", options->key, "The terminal's communication key (0: none)")
      ->capture_default_str();
  download->add_option("--output", options->output, "Write the records as TCD lines to FILE");
  download->callback([options] {
    const int status = Download(*options);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace clockcomm::app
