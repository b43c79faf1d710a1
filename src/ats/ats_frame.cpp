#include "ats/ats_frame.h"

#include "core/errors.h"

namespace clockcomm::ats {
namespace {

// SOH s t STX '\' 'A' t GS, then at least the type, ETX, two LRC characters and EOT.
constexpr size_t kHeaderLength = 8;
constexpr size_t kTrailerLength = 4;  // ETX, LRC, LRC, EOT
// No terminal sends a packet this long: past it, what came is not a frame.
constexpr size_t kMaxFrameLength = 1024;

}  // namespace

char AddressChar(int address) {
  if (address < 0 || address > 94) {
    throw core::ArgumentException("An ATS address must be between 0 and 94.", "address");
  }
  return static_cast<char>(32 + address);
}

int AddressOf(char c) { return static_cast<unsigned char>(c) - 32; }

std::string ATSLRCGen(std::string_view text) {
  unsigned char x = 0;
  for (char c : text) x ^= static_cast<unsigned char>(c);
  return {static_cast<char>('0' + (x >> 4)), static_cast<char>('0' + (x & 0x0F))};
}

std::string CommandFrame(int source, int terminal, std::string_view command) {
  std::string body;
  body.reserve(command.size() + 16);
  body += kSoh;
  body += AddressChar(source);
  body += AddressChar(terminal);
  body += kStx;
  body += "\\A";
  body += AddressChar(terminal);
  body += kGs;
  body += command;
  body += kEtx;
  return body + ATSLRCGen(body) + kEot;
}

std::string EnquiryFrame(int source, int terminal, char letter) {
  return {kEnq, AddressChar(source), AddressChar(terminal), letter, kEot};
}

std::string ReplyFrame(int source, int terminal, bool ack) {
  return {kSoh, AddressChar(source), AddressChar(terminal), ack ? kAck : kNak, kEot};
}

int CheckDataFrame(std::string_view text) {
  if (text.empty()) return 0;
  if (text[0] != kSoh) return -1;
  const size_t etx = text.find(kEtx);
  if (etx == std::string_view::npos) return text.size() > kMaxFrameLength ? -1 : 0;
  if (text.size() < etx + kTrailerLength) return 0;
  const size_t length = etx + kTrailerLength;
  if (etx < kHeaderLength + 2 || text[3] != kStx || text[4] != '\\' || text[5] != 'A' ||
      text[7] != kGs || text[length - 1] != kEot) {
    return -1;
  }
  if (text.substr(etx + 1, 2) != ATSLRCGen(text.substr(0, etx + 1))) return -1;
  return static_cast<int>(length);
}

std::string PacketType(std::string_view frame) {
  if (frame.size() < kTypeOffset + 2) return {};
  return std::string(frame.substr(kTypeOffset, 2));
}

}  // namespace clockcomm::ats
