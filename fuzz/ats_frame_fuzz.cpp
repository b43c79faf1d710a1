// Any bytes as the start of what a terminal sent: the frame check must answer 0, -1 or a length
// that fits the input and ends at an EOT, and the type is read only from what is there.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "ats/ats_frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm::ats;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const int length = CheckDataFrame(text);
  if (length > 0 && (static_cast<size_t>(length) > size || text[length - 1] != kEot ||
                     text[0] != kSoh)) {
    fprintf(stderr, "ats_frame_fuzz: bad frame length %d\n", length);
    abort();
  }
  if (length < -1) abort();
  const auto type = PacketType(text);
  if (!type.empty() && type.size() != 2) abort();
  return 0;
}
