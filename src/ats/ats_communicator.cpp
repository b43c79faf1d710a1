#include "ats/ats_communicator.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <utility>

#include "ats/ats_frame.h"
#include "core/screen_message.h"
#include "core/text.h"

namespace clockcomm::ats {
namespace {

// The packet types of the two terminal generations; a known type starting with 'P' is a punch.
constexpr std::array<std::string_view, 9> kFirstGroup = {"PN", "SR", "DS", "TR", "AA",
                                                         "AG", "DA", "IA", "MB"};
constexpr std::array<std::string_view, 6> kSecondGroup = {"PB", "PK", "BG", "BA", "BT", "BS"};

template <size_t N>
bool In(const std::array<std::string_view, N>& group, std::string_view type) {
  return std::find(group.begin(), group.end(), type) != group.end();
}

}  // namespace

void DataSentLog::Append(std::string_view command) {
  if (folder_.empty()) return;
  std::ofstream out(folder_ / kFileName, std::ios::app | std::ios::binary);
  out << clock_.Now().ToString() << " " << core::Printable(command) << "\r\n";
  out.flush();
  if (!out && !failure_reported_) {
    failure_reported_ = true;
    log_.Debug("", "Couldn't write " + (folder_ / kFileName).string());
  }
}

PacketKind ClassifyPacket(std::string_view frame) {
  const std::string type = PacketType(frame);
  if (!In(kFirstGroup, type) && !In(kSecondGroup, type)) return PacketKind::kUnknown;
  return type[0] == 'P' ? PacketKind::kPunch : PacketKind::kKnown;
}

ATSCommunicator::ATSCommunicator(IATSConnection& connection, int terminal_address,
                                 core::Clock& clock, core::LogSink& log,
                                 const core::StopSignal& stop, DataSentLog& data_sent)
    : connection_(connection),
      address_(terminal_address),
      clock_(clock),
      log_(log),
      stop_(stop),
      data_sent_(data_sent) {
  AddressChar(terminal_address);  // throws for an address no terminal can have
}

const std::string& ATSCommunicator::GetClockType() {
  if (!clock_type_.empty()) return clock_type_;
  if (!ATSSendCmd(std::string("S00") + kRs)) return clock_type_;
  // An E-Series terminal answers with a status packet, the others with a bare EOT.
  std::string frame;
  const ReadOutcome outcome = ReadOne(frame);
  if (outcome == ReadOutcome::kFrame) SendReply(true);
  clock_type_ = outcome == ReadOutcome::kEndOfData ? "CyberSeries" : "ESeries";
  return clock_type_;
}

bool ATSCommunicator::ATSSendCmd(std::string_view command) {
  const std::string frame = CommandFrame(kSourceAddress, address_, command);
  for (int attempt = 0; attempt < kCommandAttempts && !stop_.Requested(); ++attempt) {
    if (attempt > 0) Rest(kAttemptRest);
    if (!IsReady()) continue;
    data_sent_.Append(frame);
    connection_.Send(frame);
    // A NAK (a refused command or a bad LRC) or no reply: the next attempt asks again.
    if (ReadReply(kReplyReads, kReplyReadWait) == Reply::kAck) return true;
  }
  if (stop_.Requested()) return false;
  log_.Event("Terminal Not Ready - Command Not Sent",
             "Clock " + std::to_string(address_) + ", command " + core::Printable(command));
  log_.Screen(core::ScreenMessage("{0} Terminal Not Ready - Command Not Sent", clock_.Now()));
  return false;
}

bool ATSCommunicator::IsReady() {
  // Whatever came before the question is stale.
  pending_.clear();
  for (int attempt = 0; attempt < kReadyTries && !stop_.Requested(); ++attempt) {
    connection_.Send(EnquiryFrame(kSourceAddress, address_, kStatusEnquiry));
    if (ReadReply(kReadyReads, kReadyReadWait) == Reply::kAck) return true;
  }
  return false;
}

ATSCommunicator::Reply ATSCommunicator::ReadReply(int reads, std::chrono::milliseconds wait) {
  // SOH, the terminal, us, ACK or NAK, EOT.
  const std::string from{kSoh, AddressChar(address_), AddressChar(kSourceAddress)};
  std::string buffer = std::exchange(pending_, {});
  for (int read = 0; read < reads && !stop_.Requested(); ++read) {
    if (read > 0 || buffer.empty()) buffer += connection_.Receive(wait);
    const size_t start = buffer.find(from);
    if (start != std::string::npos && buffer.size() >= start + 5 && buffer[start + 4] == kEot &&
        (buffer[start + 3] == kAck || buffer[start + 3] == kNak)) {
      pending_ = buffer.substr(start + 5);
      return buffer[start + 3] == kAck ? Reply::kAck : Reply::kNak;
    }
  }
  return Reply::kNone;
}

void ATSCommunicator::Poll() {
  connection_.Send(EnquiryFrame(kSourceAddress, address_, kPollEnquiry));
}

void ATSCommunicator::SendReply(bool ack) {
  connection_.Send(ReplyFrame(kSourceAddress, address_, ack));
}

void ATSCommunicator::Rest(std::chrono::milliseconds interval) {
  const auto until = clock_.Steady() + interval;
  while (!stop_.Requested()) {
    const auto now = clock_.Steady();
    if (now >= until) return;
    connection_.Receive(std::chrono::ceil<std::chrono::milliseconds>(until - now));
  }
}

ATSCommunicator::ReadOutcome ATSCommunicator::ReadOne(std::string& frame) {
  std::string buffer = std::exchange(pending_, {});
  int silent = 0;
  for (;;) {
    if (!buffer.empty() && buffer[0] == kEot) {
      pending_ = buffer.substr(1);
      return ReadOutcome::kEndOfData;
    }
    const int length = CheckDataFrame(buffer);
    if (length > 0) {
      frame = buffer.substr(0, static_cast<size_t>(length));
      pending_ = buffer.substr(frame.size());
      return ReadOutcome::kFrame;
    }
    if (length < 0) {
      ++counters_.bad_block_check;
      log_.Debug("", "ATS broken frame: " + core::Printable(buffer));
      return ReadOutcome::kBroken;
    }
    if (stop_.Requested()) return ReadOutcome::kSilent;
    const std::string text = connection_.Receive(kPacketReadWait);
    if (!text.empty()) {
      buffer += text;
      silent = 0;
      continue;
    }
    if (++silent < kSilentReads) continue;
    if (buffer.empty()) {
      ++counters_.timeouts;
      return ReadOutcome::kSilent;
    }
    // A frame cut short: refused like a broken one, so that the terminal sends it again.
    ++counters_.bad_length;
    log_.Debug("", "ATS frame cut short: " + core::Printable(buffer));
    return ReadOutcome::kBroken;
  }
}

std::string ATSCommunicator::GetPacket(
    bool acknowledge, const std::function<bool(const std::string& frame)>& store) {
  store_refused_ = false;
  for (int pass = 0; pass < kPacketPasses; ++pass) {
    std::string frame;
    switch (ReadOne(frame)) {
      case ReadOutcome::kEndOfData:
      case ReadOutcome::kSilent:
        return {};
      case ReadOutcome::kBroken:
        SendReply(false);
        continue;
      case ReadOutcome::kFrame:
        break;
    }
    if (ClassifyPacket(frame) == PacketKind::kUnknown) {
      ++counters_.unknown_packets;
      log_.Event("Unknown Packet Recieved", "Unknown ATS Packet (Clock " +
                                                std::to_string(address_) +
                                                "):" + frame.substr(kTypeOffset));
    }
    // Stored before the terminal hears it arrived: it forgets a packet once acknowledged.
    if (acknowledge && store && !store(frame)) {
      store_refused_ = true;
      SendReply(false);
      return {};
    }
    SendReply(acknowledge);
    return frame;
  }
  return {};
}

}  // namespace clockcomm::ats
