#include "ats/ats_models.h"

#include <fmt/format.h>

#include <array>
#include <vector>

#include "ats/ats_frame.h"
#include "core/errors.h"

namespace clockcomm::ats {
namespace {

using enum PunchType;

// E-Series: the digit at frame position 14, right after "PN" and the record number.
constexpr std::array<KindKey, 6> kESeriesKinds = {{
    {'0', kIn}, {'1', kOut}, {'2', kLunchOut}, {'3', kBreakOut}, {'4', kBreakIn}, {'5', kSwitch},
}};

// CyberSeries and Prodigy: a letter first in field 1. R is the return from lunch, E the end of a
// break, C a completed job.
constexpr std::array<KindKey, 8> kCyberSeriesKinds = {{
    {'I', kIn},
    {'O', kOut},
    {'L', kLunchOut},
    {'R', kLunchIn},
    {'B', kBreakOut},
    {'E', kBreakIn},
    {'S', kSwitch},
    {'C', kComplete},
}};
constexpr std::array<KindKey, 8> kProdigyKinds = kCyberSeriesKinds;

constexpr std::array<FieldTag, 3> kTags = {{
    {'A', TagTarget::kBadge},
    {'B', TagTarget::kDepartment},
    {'C', TagTarget::kJob},
}};

// E-Series: "PN" nnn k RS badge RS yyMMddHHmm RS department [RS job].
constexpr AtsModel kESeries{Series::kESeries, "eseries", "PN", {0, 2}, 3, {0, 5}, kESeriesKinds,
                            kIn, {2, 0}, 10, 1, 3, 4, {}, false};
// CyberSeries: "PB" yyMMddHHmmss, then tagged fields, the first of which starts with the kind
// letter and the record number ("I001A=1234").
constexpr AtsModel kCyberSeries{Series::kCyberSeries, "cyberseries", "PB", {1, 1}, 3, {1, 0},
                                kCyberSeriesKinds, kIn, {0, 2}, 12, -1, -1, -1, kTags, true};
constexpr AtsModel kProdigy{Series::kProdigy, "prodigy", "PK", {1, 1}, 3, {1, 0}, kProdigyKinds,
                            kIn, {0, 2}, 12, -1, -1, -1, kTags, true};

constexpr std::array<const AtsModel*, 3> kModels = {&kESeries, &kCyberSeries, &kProdigy};

// Writes text at the spot, growing the field (and the packet) with blanks as needed.
void Put(std::vector<std::string>& fields, FieldSpot spot, std::string_view text) {
  const auto index = static_cast<size_t>(spot.field);
  if (fields.size() <= index) fields.resize(index + 1);
  std::string& field = fields[index];
  if (field.size() < spot.offset + text.size()) field.resize(spot.offset + text.size(), ' ');
  field.replace(spot.offset, text.size(), text);
}

}  // namespace

const AtsModel& ModelOf(Series series) { return *kModels.at(static_cast<size_t>(series)); }

Series SeriesFromName(std::string_view name) {
  for (const AtsModel* model : kModels) {
    if (model->name == name) return model->series;
  }
  throw core::ArgumentException(fmt::format("Unknown ATS series \"{}\".", name), "series");
}

std::string_view SeriesName(Series series) { return ModelOf(series).name; }

Series SeriesOf(terminal::TerminalType type) {
  using terminal::TerminalType;
  switch (type) {
    case TerminalType::kAtsESeries:
    case TerminalType::kAtsMaximus:
    case TerminalType::kAtsOptimus:
      return Series::kESeries;
    case TerminalType::kAtsCyberSeries:
      return Series::kCyberSeries;
    case TerminalType::kAtsProdigy:
      return Series::kProdigy;
    default:
      throw core::ArgumentException(
          fmt::format("Terminal type {} is not an ATS terminal.", static_cast<int>(type)), "type");
  }
}

char KindKeyOf(const AtsModel& model, PunchType type) {
  for (const KindKey& k : model.kinds) {
    if (k.type == type) return k.key;
  }
  throw core::ArgumentException(
      fmt::format("An {} terminal has no {} punch.", model.name, TcdCode(type)), "type");
}

std::string BuildPunchPacket(const AtsModel& model, int record_number, const TCDPacket& punch) {
  std::vector<std::string> fields;
  Put(fields, {0, 0}, model.punch_type);
  const std::string record =
      fmt::format("{:0{}}", record_number % 1000, model.record_number_digits);
  const std::string kind(1, KindKeyOf(model, punch.PunchType));
  const std::string stamp =
      punch.Timestamp.Format("yymmddHHnnss").substr(0, model.date_digits);
  Put(fields, model.date, stamp);
  const std::string department =
      punch.DepartmentCode ? std::to_string(*punch.DepartmentCode) : std::string();
  if (model.tags.empty()) {
    Put(fields, model.record_number, record);
    Put(fields, model.kind, kind);
    Put(fields, {model.badge_field, 0}, std::to_string(punch.BadgeId));
    Put(fields, {model.department_field, 0}, department);
    if (!punch.JobCode.empty()) Put(fields, {model.job_field, 0}, punch.JobCode);
  } else {
    // Every tagged field carries the same header: the kind key, then the record number.
    std::vector<std::string> header(1);
    Put(header, {0, static_cast<size_t>(model.kind.offset)}, kind);
    Put(header, {0, model.record_number.offset}, record);
    header[0].resize(kTagHeaderLength, ' ');
    for (const FieldTag& t : model.tags) {
      std::string value;
      if (t.target == TagTarget::kBadge) value = std::to_string(punch.BadgeId);
      if (t.target == TagTarget::kDepartment) {
        if (!punch.DepartmentCode) continue;
        value = department;
      }
      if (t.target == TagTarget::kJob) {
        if (punch.JobCode.empty()) continue;
        value = punch.JobCode;
      }
      fields.push_back(header[0] + t.tag + kTagSeparator + value);
    }
  }
  std::string packet;
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) packet += kRs;
    packet += fields[i];
  }
  return packet;
}

}  // namespace clockcomm::ats
