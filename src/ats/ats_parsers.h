// Punch packets of the ATS terminals read into TCDPackets, one parser per model, each driven by
// its model's table (ats_models.h).
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "ats/ats_models.h"
#include "ats/tcd_packet.h"
#include "terminal/terminal_type.h"

namespace clockcomm::ats {

class IATSPacketParser {
 public:
  virtual ~IATSPacketParser() = default;
  // frame: a whole data frame, SOH to EOT. Nothing when it is not a punch (frame position 9 is
  // not 'P'); core::FormatException naming the fault for a punch that cannot be read. The
  // packet's clockId is the frame's terminal address.
  virtual std::optional<TCDPacket> Parse(std::string_view frame) const = 0;
};

// Reads the punches of one model by its table.
class ATSModelParser : public IATSPacketParser {
 public:
  explicit ATSModelParser(Series series) : model_(ModelOf(series)) {}
  std::optional<TCDPacket> Parse(std::string_view frame) const override;
  const AtsModel& Model() const { return model_; }

 private:
  const AtsModel& model_;
};

class ATSESeriesParser : public ATSModelParser {
 public:
  ATSESeriesParser() : ATSModelParser(Series::kESeries) {}
};
class ATSCyberSeriesParser : public ATSModelParser {
 public:
  ATSCyberSeriesParser() : ATSModelParser(Series::kCyberSeries) {}
};
class ATSProdigyParser : public ATSModelParser {
 public:
  ATSProdigyParser() : ATSModelParser(Series::kProdigy) {}
};

class ATSParserFactory {
 public:
  // E-Series for E-Series, Maximus and Optimus; CyberSeries; Prodigy. Throws
  // core::ArgumentException for a terminal type that is not an ATS one.
  static std::unique_ptr<IATSPacketParser> NewParser(terminal::TerminalType type);
};

}  // namespace clockcomm::ats
