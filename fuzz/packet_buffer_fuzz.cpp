// Random terminators and chunking through PacketBuffer. The first bytes choose the limit, each
// chunk's length and (sometimes) a new terminator; the rest is the stream. Every byte must end up
// in a packet, a terminator, the pending fragment or the discarded count, and while nothing was
// discarded the packets, terminators and fragment must spell the input exactly.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "zon/packet_buffer.h"

namespace {

void Check(bool ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "packet_buffer_fuzz: %s\n", what);
    abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view in(reinterpret_cast<const char*>(data), size);
  if (in.empty()) return 0;
  const size_t max_length = 1 + static_cast<uint8_t>(in[0]) % 64;
  in.remove_prefix(1);

  clockcomm::zon::PacketBuffer buffer(max_length);
  std::string fed;      // every byte appended
  std::string rebuilt;  // packets and the terminators that cut them

  while (!in.empty()) {
    const uint8_t control = static_cast<uint8_t>(in[0]);
    in.remove_prefix(1);
    if ((control & 0xC0) == 0xC0 && !in.empty()) {
      // A new terminator of 1..3 bytes taken from the stream.
      size_t n = std::min<size_t>(1 + (control & 0x03) % 3, in.size());
      buffer.SetTerminationString(std::string(in.substr(0, n)));
      in.remove_prefix(n);
      continue;
    }
    size_t n = std::min<size_t>(control & 0x3F, in.size());
    buffer.Append(in.substr(0, n));
    fed.append(in.substr(0, n));
    in.remove_prefix(n);
    // Packets are cut only during Append, so they belong to the terminator in force now.
    while (buffer.Count() > 0) {
      std::string packet = buffer.GetPacket();
      Check(packet.size() <= max_length, "packet longer than the limit");
      rebuilt += packet;
      rebuilt += buffer.TerminationString();
    }
    // While an overlong line is skipped the buffer keeps the bytes that may start its terminator.
    const size_t bound = std::max(max_length, buffer.TerminationString().size() - 1);
    Check(buffer.PendingFragment().size() <= bound, "fragment grew past the limit");
  }

  Check(rebuilt.size() + buffer.PendingFragment().size() + buffer.DiscardedBytes() == fed.size(),
        "bytes lost or invented");
  if (buffer.OverlongCount() == 0) {
    Check(buffer.DiscardedBytes() == 0, "discarded bytes without an overlong line");
    Check(rebuilt + buffer.PendingFragment() == fed, "packets do not spell the input");
  }
  return 0;
}
