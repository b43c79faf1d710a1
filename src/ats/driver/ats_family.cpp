#include "ats/driver/ats_family.h"

#include "ats/driver/ats_driver.h"

// The punch parsers come with their own change; until they are in the tree no punch reader
// exists and every punch is refused (it stays on the terminal) rather than guessed at.
#if __has_include("ats/ats_parsers.h")
#include "ats/ats_parsers.h"
#define CLOCKCOMM_ATS_PARSERS 1
#endif

namespace clockcomm::ats {
namespace {

PunchReader ReaderFor([[maybe_unused]] terminal::TerminalType type) {
#ifdef CLOCKCOMM_ATS_PARSERS
  std::shared_ptr<const IATSPacketParser> parser = ATSParserFactory::NewParser(type);
  return [parser](const std::string& frame, int sequence) -> std::optional<records::TcdRecord> {
    const auto packet = parser->Parse(frame);
    if (!packet) return std::nullopt;
    return ToTcdRecord(*packet, sequence);
  };
#else
  return {};
#endif
}

}  // namespace

terminal::TerminalFamily ATSFamily() {
  using terminal::TerminalType;
  return {"ATS",
          {TerminalType::kAtsESeries, TerminalType::kAtsCyberSeries, TerminalType::kAtsProdigy,
           TerminalType::kAtsMaximus, TerminalType::kAtsOptimus},
          [](terminal::DriverContext context) {
            PunchReader reader = ReaderFor(context.settings.terminal_type);
            return std::make_unique<ATSDriver>(std::move(context), std::move(reader));
          }};
}

}  // namespace clockcomm::ats
