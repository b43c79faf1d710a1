// The T4 TCP stream through the frame cutter in random pieces, then each frame through Decode.
// Whatever the bytes, the cutter either hands out frames that re-encode to exactly the bytes fed,
// or stops with T4StreamError; a decoded packet re-encodes to the frame it came from.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "t4/net/t4_frame_cutter.h"
#include "t4/net/t4_packet.h"

namespace {

void Check(bool ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "t4_frame_fuzz: %s\n", what);
    abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm::t4::net;
  std::string_view in(reinterpret_cast<const char*>(data), size);
  T4FrameCutter cutter;
  std::string fed, rebuilt;
  try {
    while (!in.empty()) {
      const size_t n = std::min<size_t>(1 + static_cast<uint8_t>(in[0]) % 64, in.size() - 1);
      in.remove_prefix(1);
      cutter.Append(in.substr(0, n));
      fed.append(in.substr(0, n));
      in.remove_prefix(n);
      while (auto frame = cutter.Next()) {
        Check(frame->size() >= kHeaderSize && frame->size() <= kMaxPacketSize, "frame size");
        std::string prefix = "PP\x82\x7d";
        for (int i = 0; i < 4; ++i) prefix += static_cast<char>(frame->size() >> (8 * i));
        rebuilt += prefix + *frame;
        if (auto packet = Decode(*frame)) {
          // 0x0000 and 0xFFFF are the same one's-complement sum, so only the checksum may differ.
          const std::string again = Encode(*packet);
          Check(again.substr(4) == frame->substr(4) && again.substr(0, 2) == frame->substr(0, 2),
                "decode changed bytes");
          Check(Decode(again) == packet, "a re-encoded packet does not decode");
        }
      }
    }
  } catch (const T4StreamError&) {
    return 0;  // out of step: the connection is dropped
  }
  Check(rebuilt.size() + cutter.Buffered() == fed.size(), "bytes lost or invented");
  Check(fed.compare(0, rebuilt.size(), rebuilt) == 0, "frames do not spell the stream");
  return 0;
}
