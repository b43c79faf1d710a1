#include "comm/modem_line.h"

#include "comm/direct_line.h"
#include "comm/modem_strings.h"
#include "comm/network_line.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::comm {
namespace {

const std::string kCrLf = "\r\n";
// Text kept while waiting for a result line; a modem's lines are short, so more is noise.
constexpr size_t kMaxPending = 4096;

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

std::string ConnectSpeed(std::string_view connect_line) {
  std::string rest = core::Trim(connect_line.substr(std::min<size_t>(7, connect_line.size())));
  const auto end = rest.find_first_of("\r\n");
  if (end != std::string::npos) rest.erase(end);
  const int speed = static_cast<int>(core::LeadingNumber(rest));
  return speed > 0 ? std::to_string(speed) : "300";
}

std::unique_ptr<TerminalLine> MakeTerminalLine(ConnectionType type, LineOptions options,
                                               const core::Clock& clock) {
  switch (type) {
    case ConnectionType::kModem:
      return std::make_unique<ModemLine>(std::move(options), clock);
    case ConnectionType::kSerial:
      return std::make_unique<DirectLine>(std::move(options));
    case ConnectionType::kLan:
      return std::make_unique<NetworkLine>(options.lan_delay);
  }
  throw core::ArgumentException("Unknown connection type.", "type");
}

ModemLine::ModemLine(LineOptions options, const core::Clock& clock)
    : options_(std::move(options)), clock_(clock) {}

ModemLine::~ModemLine() { line_.Close(); }

void ModemLine::Open() {
  if (!options_.port_settings.empty()) line_.SetSettings(options_.port_settings);
  line_.Open(options_.device);
  has_modem_lines_ = line_.SetDtr(true);
  pending_.clear();
}

PrepareResult ModemLine::Prepare() {
  HayesModem modem(connection_, clock_, options_.response_wait, WakeSet{});
  for (const std::string& command : {std::string("ATZ"), options_.modem_init}) {
    const std::string reply = modem.Command(command);
    if (reply.empty()) return {PrepareResult::Status::kNoResponse};
    if (reply != "OK") return {PrepareResult::Status::kBadReply, reply};
  }
  if (has_modem_lines_ && line_.CarrierDetect()) return {PrepareResult::Status::kCarrierHigh};
  return {};
}

void ModemLine::Close() {
  if (!line_.IsOpen()) return;
  // A stop that brought us here must not cut the hang-up short: no wake signals.
  HayesModem closing(connection_, clock_, options_.response_wait, WakeSet{});
  try {
    if (online_) closing.Escape();
    closing.Command("ATH");
    closing.Command(AutoAnswerOffInit(options_.modem_init));
  } catch (const core::Error&) {
    // The port is closed below whatever the modem answered.
  }
  online_ = false;
  line_.Close();
}

LineEvent ModemLine::WaitForCall(SteadyTime deadline, const WakeSet& wake) {
  for (;;) {
    size_t end;
    while ((end = pending_.find(kCrLf)) != std::string::npos) {
      const std::string result = pending_.substr(0, end);
      pending_.erase(0, end + 2);
      if (result.empty()) continue;  // the leading CR LF of a result code
      if (StartsWith(result, "RING")) return {LineEvent::Kind::kRing, result};
      if (StartsWith(result, "CONNECT")) {
        std::string data;
        data.swap(pending_);  // the terminal's first bytes may come with the CONNECT line
        return Connected(result, std::move(data));
      }
      if (StartsWith(result, "NO CARRIER")) return {LineEvent::Kind::kFailed, result};
    }
    if (pending_.size() > kMaxPending) pending_.clear();
    if (line_.WaitForInput(deadline, wake) != WaitResult::kReadable) return {};
    pending_ += line_.Read();
  }
}

LineEvent ModemLine::Reach(const std::string& address, const WakeSet& wake) {
  HayesModem modem(connection_, clock_, options_.response_wait, wake);
  const std::string reply = modem.Command("ATDT" + address, HayesModem::kDialTimeout);
  if (!StartsWith(reply, "CONNECT")) return {LineEvent::Kind::kFailed, reply};
  return Connected(reply, modem.TakeLeftover());
}

LineEvent ModemLine::Connected(const std::string& result, std::string data) {
  LineEvent event{LineEvent::Kind::kConnected, result, ConnectSpeed(result), std::move(data)};
  online_ = true;
  // A carrier speed no port runs at (14400, 33600...) comes from a modem that holds its port at a
  // fixed rate: the port stays as it is.
  if (LineSettings::IsSupportedRate(std::stoi(event.speed))) {
    line_.SetSettings(event.speed + ",N,8,1");
  }
  return event;
}

void ModemLine::HangUp() {
  if (has_modem_lines_) line_.SetDtr(false);
}

// DTR down and up hangs a real modem up; a modem on a line without modem lines is put back in
// command mode and hung up with ATH.
void ModemLine::EndCall() {
  if (!line_.IsOpen()) return;
  if (has_modem_lines_) {
    line_.SetDtr(false);
    line_.SetDtr(true);
  }
  try {
    HayesModem modem(connection_, clock_, options_.response_wait, WakeSet{});
    if (online_ && !has_modem_lines_ && modem.Escape() == "OK") modem.Command("ATH");
  } catch (const core::Error&) {
    // The next call's RING or the next dial finds out whether the modem is still there.
  }
  online_ = false;
  pending_.clear();
  line_.Read();  // whatever the hang-up left behind
}

bool ModemLine::CarrierLost() const { return has_modem_lines_ && !line_.CarrierDetect(); }

}  // namespace clockcomm::comm
