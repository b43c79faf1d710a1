#include "core/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace clockcomm::core {

std::string_view TrimView(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

std::string Trim(std::string_view s) { return std::string(TrimView(s)); }

char ToLowerChar(char c) {
  const auto u = static_cast<unsigned char>(c);
  if ((u >= 'A' && u <= 'Z') || (u >= 0xC0 && u <= 0xDE && u != 0xD7))
    return static_cast<char>(u + 0x20);
  switch (u) {
    case 0x8A:
    case 0x8C:
    case 0x8E:
      return static_cast<char>(u + 0x10);
    case 0x9F:
      return static_cast<char>(0xFF);
    default:
      return c;
  }
}

char ToUpperChar(char c) {
  const auto u = static_cast<unsigned char>(c);
  if ((u >= 'a' && u <= 'z') || (u >= 0xE0 && u <= 0xFE && u != 0xF7))
    return static_cast<char>(u - 0x20);
  switch (u) {
    case 0x9A:
    case 0x9C:
    case 0x9E:
      return static_cast<char>(u - 0x10);
    case 0xFF:
      return static_cast<char>(0x9F);
    default:
      return c;
  }
}

std::string ToLower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = ToLowerChar(c);
  return out;
}

std::string ToUpper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = ToUpperChar(c);
  return out;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (ToLowerChar(a[i]) != ToLowerChar(b[i])) return false;
  }
  return true;
}

bool StartsWithIgnoreCase(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && EqualsIgnoreCase(s.substr(0, prefix.size()), prefix);
}

std::vector<std::string> Split(std::string_view s, char separator) {
  std::vector<std::string> out;
  size_t start = 0;
  for (size_t i = 0; i <= s.size(); ++i) {
    if (i == s.size() || s[i] == separator) {
      out.emplace_back(s.substr(start, i - start));
      start = i + 1;
    }
  }
  return out;
}

std::string Join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += separator;
    out += parts[i];
  }
  return out;
}

std::string ReplaceAll(std::string s, std::string_view from, std::string_view to) {
  if (from.empty()) return s;
  size_t pos = 0;
  while ((pos = s.find(from, pos)) != std::string::npos) {
    s.replace(pos, from.size(), to);
    pos += to.size();
  }
  return s;
}

double LeadingNumber(std::string_view s) {
  s = TrimView(s);
  size_t i = 0;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) ++i;
  bool digits = false;
  while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i]))) {
    ++i;
    digits = true;
  }
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i]))) {
      ++i;
      digits = true;
    }
  }
  if (!digits) return 0;
  const std::string_view number = s.substr(0, i);
  if (number.find('.') == std::string_view::npos && number.size() <= 16) {
    // A whole number, the usual case: exact in a double, and no copy for strtod.
    const bool negative = number.front() == '-';
    int64_t value = 0;
    for (char c : number.substr(number.front() == '-' || number.front() == '+' ? 1 : 0)) {
      value = value * 10 + (c - '0');
    }
    return negative ? -static_cast<double>(value) : static_cast<double>(value);
  }
  return std::strtod(std::string(number).c_str(), nullptr);
}

int32_t LeadingInt32(std::string_view s) {
  double v = std::nearbyint(LeadingNumber(s));
  if (!std::isfinite(v)) return 0;
  if (v > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (v < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(v);
}

std::optional<double> ParseNumber(std::string_view s) {
  s = TrimView(s);
  if (s.empty() || s.size() > 64) return std::nullopt;
  if (s.front() == '+') s.remove_prefix(1);
  // A whole number of up to 15 digits, the usual case, is exact without the floating conversion.
  const bool negative = !s.empty() && s.front() == '-';
  const std::string_view digits = s.substr(negative ? 1 : 0);
  if (!digits.empty() && digits.size() <= 15 &&
      std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    int64_t whole = 0;
    for (char c : digits) whole = whole * 10 + (c - '0');
    return negative ? -static_cast<double>(whole) : static_cast<double>(whole);
  }
  double value = 0;
  auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (ec != std::errc() || ptr != s.data() + s.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::optional<int> ParseInt(std::string_view s) {
  s = TrimView(s);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  int value = 0;
  auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (s.empty() || ec != std::errc() || ptr != s.data() + s.size()) return std::nullopt;
  return value;
}

std::string NumberText(double value) {
  if (value == std::floor(value) && std::fabs(value) < 1e15) {
    return fmt::format("{}", static_cast<long long>(value));
  }
  return fmt::format("{}", value);
}

bool HasControlCharacter(std::string_view s) {
  for (unsigned char c : s) {
    if (c < 0x20 || c == 0x7F) return true;
  }
  return false;
}

std::string Printable(std::string_view s) {
  static const char* kNames[32] = {"NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL",
                                   "BS",  "HT",  "LF",  "VT",  "FF",  "CR",  "SO",  "SI",
                                   "DLE", "DC1", "DC2", "DC3", "DC4", "NAK", "SYN", "ETB",
                                   "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US"};
  std::string out;
  for (unsigned char c : s) {
    if (c < 32) {
      out += '<';
      out += kNames[c];
      out += '>';
    } else if (c == 127 || c >= 128) {
      out += fmt::format("<{:02X}>", c);
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

namespace {

// The characters Windows-1252 puts at 0x80-0x9F (0: unassigned, kept as U+FFFD).
constexpr char16_t kHighControls[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

}  // namespace

std::string Utf8FromAnsi(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char32_t code = byte;
    if (byte < 0x80) {
      out += c;
      continue;
    }
    if (byte < 0xA0) code = kHighControls[byte - 0x80] != 0 ? kHighControls[byte - 0x80] : 0xFFFD;
    if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
    } else {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    }
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
  return out;
}

std::optional<std::string> AnsiFromUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    size_t length = 1;
    char32_t code = lead;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      code = lead & 0x0F;
    } else if (lead >= 0x80) {
      return std::nullopt;  // a stray continuation byte, an overlong lead, or beyond U+FFFF
    }
    if (i + length > text.size()) return std::nullopt;
    for (size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return std::nullopt;
      code = (code << 6) | (next & 0x3F);
    }
    if (length == 3 && code < 0x800) return std::nullopt;  // overlong
    i += length;
    if (code < 0x80 || (code >= 0xA0 && code <= 0xFF)) {
      out += static_cast<char>(code);
      continue;
    }
    const auto* found = std::find(std::begin(kHighControls), std::end(kHighControls), code);
    if (found == std::end(kHighControls)) return std::nullopt;
    out += static_cast<char>(0x80 + (found - std::begin(kHighControls)));
  }
  return out;
}

}  // namespace clockcomm::core
