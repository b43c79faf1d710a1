#include "ats/ats_parsers.h"

#include <fmt/format.h>

#include <vector>

#include "ats/ats_frame.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::ats {
namespace {

// More digits than this cannot be a badge or a department of any terminal.
constexpr size_t kMaxNumberDigits = 10;

bool AllDigits(std::string_view s) {
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return !s.empty();
}

std::vector<std::string_view> SplitFields(std::string_view packet) {
  std::vector<std::string_view> fields;
  size_t start = 0;
  for (;;) {
    const size_t rs = packet.find(kRs, start);
    fields.push_back(packet.substr(start, rs == std::string_view::npos ? rs : rs - start));
    if (rs == std::string_view::npos) return fields;
    start = rs + 1;
  }
}

struct Reader {
  const AtsModel& model;
  std::vector<std::string_view> fields;

  [[noreturn]] void Fail(std::string_view what) const {
    throw core::FormatException(fmt::format("ATS {} punch: {}.", model.name, what));
  }

  std::string_view At(FieldSpot spot, size_t length, std::string_view what) const {
    if (spot.field < 0 || static_cast<size_t>(spot.field) >= fields.size() ||
        fields[static_cast<size_t>(spot.field)].size() < spot.offset + length) {
      Fail(fmt::format("no {}", what));
    }
    return fields[static_cast<size_t>(spot.field)].substr(spot.offset, length);
  }

  int64_t Number(std::string_view text, std::string_view what) const {
    if (!AllDigits(text) || text.size() > kMaxNumberDigits) {
      Fail(fmt::format("bad {} \"{}\"", what, core::Printable(text)));
    }
    return std::stoll(std::string(text));
  }

  PunchType Kind() const {
    const char key = At(model.kind, 1, "punch kind")[0];
    for (const KindKey& k : model.kinds) {
      if (k.key == key) return k.type;
    }
    return model.unknown_kind;
  }

  core::DateTime Timestamp() const {
    const std::string_view digits = At(model.date, model.date_digits, "date");
    if (!AllDigits(digits)) Fail(fmt::format("bad date \"{}\"", core::Printable(digits)));
    int part[6] = {0, 0, 0, 0, 0, 0};
    for (size_t i = 0; i < model.date_digits / 2; ++i) {
      part[i] = (digits[2 * i] - '0') * 10 + (digits[2 * i + 1] - '0');
    }
    auto when = core::DateTime::FromParts(core::ExpandTwoDigitYear(part[0]), part[1], part[2],
                                          part[3], part[4], part[5]);
    if (!when) Fail(fmt::format("impossible date \"{}\"", digits));
    return *when;
  }

  void Positional(TCDPacket& p) const {
    const auto badge = static_cast<size_t>(model.badge_field);
    if (badge >= fields.size()) Fail("no badge");
    p.BadgeId = Number(fields[badge], "badge");
    const auto dept = static_cast<size_t>(model.department_field);
    if (dept < fields.size() && !fields[dept].empty()) {
      p.DepartmentCode = Number(fields[dept], "department");
    }
    const auto job = static_cast<size_t>(model.job_field);
    if (job < fields.size()) p.JobCode = std::string(fields[job]);
  }

  void Tagged(TCDPacket& p) const {
    bool badge = false;
    for (size_t i = 1; i < fields.size(); ++i) {
      const std::string_view f = fields[i];
      if (f.size() < kTagValueOffset || f[kTagOffset + 1] != kTagSeparator) {
        Fail(fmt::format("field {} has no tag", i));
      }
      const std::string_view value = f.substr(kTagValueOffset);
      for (const FieldTag& t : model.tags) {
        if (t.tag != f[kTagOffset]) continue;
        switch (t.target) {
          case TagTarget::kBadge:
            p.BadgeId = Number(value, "badge");
            badge = true;
            break;
          case TagTarget::kDepartment:
            if (!value.empty()) p.DepartmentCode = Number(value, "department");
            break;
          case TagTarget::kJob:
            p.JobCode = std::string(value);
            break;
        }
      }
    }
    if (!badge) Fail("no badge");
  }
};

}  // namespace

std::optional<TCDPacket> ATSModelParser::Parse(std::string_view frame) const {
  if (frame.size() <= kTypeOffset || frame[kTypeOffset] != 'P') return std::nullopt;
  const size_t etx = frame.find(kEtx, kTypeOffset);
  if (etx == std::string_view::npos) {
    throw core::FormatException(fmt::format("ATS {} punch: no ETX.", model_.name));
  }
  const std::string_view packet = frame.substr(kTypeOffset, etx - kTypeOffset);
  if (packet.substr(0, 2) != model_.punch_type) {
    throw core::FormatException(fmt::format("ATS {} punch: unexpected packet type \"{}\".",
                                            model_.name,
                                            core::Printable(packet.substr(0, 2))));
  }
  Reader reader{model_, SplitFields(packet)};
  TCDPacket p;
  p.clockId = frame.size() > kAddressOffset ? AddressOf(frame[kAddressOffset]) : 0;
  p.PunchType = reader.Kind();
  p.Timestamp = reader.Timestamp();
  if (model_.tags.empty()) {
    reader.Positional(p);
  } else {
    reader.Tagged(p);
  }
  return p;
}

std::unique_ptr<IATSPacketParser> ATSParserFactory::NewParser(terminal::TerminalType type) {
  switch (SeriesOf(type)) {
    case Series::kESeries:
      return std::make_unique<ATSESeriesParser>();
    case Series::kCyberSeries:
      return std::make_unique<ATSCyberSeriesParser>();
    case Series::kProdigy:
      return std::make_unique<ATSProdigyParser>();
  }
  return nullptr;
}

}  // namespace clockcomm::ats
