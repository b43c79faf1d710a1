#include "records/tcd_record_static.h"

#include <cmath>
#include <limits>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::records {
namespace {

std::optional<int> TwoDigits(std::string_view s) {
  if (s.size() != 2 || s[0] < '0' || s[0] > '9' || s[1] < '0' || s[1] > '9') return std::nullopt;
  return (s[0] - '0') * 10 + (s[1] - '0');
}

}  // namespace

std::string TcdRecordStatic::ConvertLettersToNumbers(std::string_view text) {
  // Index by letter A..Z; Q and Z sit on 1 as they do on the terminals' keypads.
  static constexpr char kKeypad[] = "22233344455566671778889991";
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c >= '0' && c <= '9') {
      out += c;
    } else if (c >= 'A' && c <= 'Z') {
      out += kKeypad[c - 'A'];
    } else if (c == '.') {
      out += '1';
    } else if (c == '-' || c == ' ') {
      out += '0';
    }
  }
  return out;
}

std::optional<core::Date> TcdRecordStatic::ParseDateField(std::string_view text) {
  if (auto d = core::ParseDate(text)) return d;
  if (text.size() == 6) {
    auto yy = TwoDigits(text.substr(0, 2));
    auto mm = TwoDigits(text.substr(2, 2));
    auto dd = TwoDigits(text.substr(4, 2));
    if (yy && mm && dd) return core::Date::FromYmd(core::ExpandTwoDigitYear(*yy), *mm, *dd);
  }
  return std::nullopt;
}

std::optional<core::TimeOfDay> TcdRecordStatic::ParseTimeField(std::string_view text) {
  if (auto t = core::ParseDateTime(text)) return t->GetTime();
  if (text.size() == 4) {
    auto hh = TwoDigits(text.substr(0, 2));
    auto nn = TwoDigits(text.substr(2, 2));
    if (hh && nn) return core::TimeOfDay::FromHms(*hh, *nn, 0);
  }
  return std::nullopt;
}

std::vector<std::string> TcdRecordStatic::SplitFields(std::string_view line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c != '"') {
      if (c == ',' && !quoted) {
        fields.emplace_back();
      } else {
        fields.back() += c;
      }
      continue;
    }
    if (quoted && i + 1 < line.size() && line[i + 1] == '"') {
      fields.back() += '"';  // a quote inside a quoted field is written twice
      ++i;
    } else if (quoted) {
      quoted = false;
    } else if (fields.back().empty()) {
      quoted = true;
    }
    // Any other quote is dropped, as lines of older producers carry stray ones.
  }
  return fields;
}

TcdRecord TcdRecordStatic::Parse(std::string_view line) {
  const auto fields = SplitFields(line);
  if (fields.size() < static_cast<size_t>(kTcdFieldCount)) {
    throw core::IndexOutOfRangeException();
  }
  TcdRecord record(fields[0], core::LeadingInt32(fields[1]),
                   core::LeadingInt32(ConvertLettersToNumbers(fields[2])), std::nullopt, fields[4],
                   fields[5], fields[6], fields[7], ParseDateField(fields[8]),
                   ParseTimeField(fields[9]), ParseDateField(fields[10]),
                   ParseTimeField(fields[11]), std::nullopt, fields[13], false);
  record.SetDepartmentText(ConvertLettersToNumbers(fields[3]));
  record.SetAmountText(fields[12]);
  return record;
}

}  // namespace clockcomm::records
