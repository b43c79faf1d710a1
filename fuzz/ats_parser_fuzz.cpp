// Any bytes through each model's punch parser: a punch that cannot be read may only raise the
// program's own errors, and a punch read must make a TCD record or say why not.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "ats/ats_parsers.h"
#include "core/errors.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm::ats;
  const std::string_view frame(reinterpret_cast<const char*>(data), size);
  static const ATSESeriesParser eseries;
  static const ATSCyberSeriesParser cyber;
  static const ATSProdigyParser prodigy;
  for (const IATSPacketParser* parser :
       {static_cast<const IATSPacketParser*>(&eseries), static_cast<const IATSPacketParser*>(&cyber),
        static_cast<const IATSPacketParser*>(&prodigy)}) {
    try {
      if (auto punch = parser->Parse(frame)) ToTcdRecord(*punch, 1).ToTcdString(0);
    } catch (const clockcomm::core::Error&) {
    }
  }
  return 0;
}
