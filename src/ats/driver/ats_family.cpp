#include "ats/driver/ats_family.h"

#include "ats/ats_parsers.h"
#include "ats/driver/ats_driver.h"

namespace clockcomm::ats {
namespace {

// The parser of the polled terminal's model reads its punches.
std::optional<records::TcdRecord> ReadPunch(terminal::TerminalType type, const std::string& frame,
                                            int sequence) {
  const auto packet = ATSParserFactory::NewParser(type)->Parse(frame);
  if (!packet) return std::nullopt;
  return ToTcdRecord(*packet, sequence);
}

}  // namespace

terminal::TerminalFamily ATSFamily() {
  using terminal::TerminalType;
  return {"ATS",
          {TerminalType::kAtsESeries, TerminalType::kAtsCyberSeries, TerminalType::kAtsProdigy,
           TerminalType::kAtsMaximus, TerminalType::kAtsOptimus},
          [](terminal::DriverContext context) {
            return std::make_unique<ATSDriver>(std::move(context), ReadPunch);
          },
          /*takes_calls=*/false};
}

}  // namespace clockcomm::ats
