#include "zon/hours_request_packet.h"

#include <optional>

#include "core/text.h"
#include "zon/protocol_char.h"

namespace clockcomm::zon {

namespace {

std::optional<core::DateTime> ParseStamp(std::string_view digits) {
  if (digits.size() != 10) return std::nullopt;
  int parts[5];
  for (int i = 0; i < 5; ++i) {
    char hi = digits[2 * i];
    char lo = digits[2 * i + 1];
    if (hi < '0' || hi > '9' || lo < '0' || lo > '9') return std::nullopt;
    parts[i] = (hi - '0') * 10 + (lo - '0');
  }
  return core::DateTime::FromParts(core::ExpandTwoDigitYear(parts[0]), parts[1], parts[2], parts[3],
                                   parts[4], 0);
}

}  // namespace

bool HoursRequestPacket::Parse(std::string_view text) {
  if (!core::StartsWithIgnoreCase(text, "HRS")) return false;
  auto fields = core::Split(text, ProtocolChar::kFs);
  if (fields.size() != 3) return false;
  auto badge = core::ParseInt(fields[1]);
  auto stamp = ParseStamp(fields[2]);
  if (!badge || !stamp) return false;
  badge_number_ = *badge;
  timestamp_ = *stamp;
  return true;
}

}  // namespace clockcomm::zon
