#include "records/parameter_override.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>

#include "core/date_time.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::records {
namespace {

constexpr int kDefaultSerialPortRate = 9600;
constexpr int kMinSerialPortRate = 300;
constexpr int kMaxSerialPortRate = 19200;
// The rates a serial line runs at within that range. Another rate in the range is taken as
// written, but the line refuses to open at it, so the site is told at start-up.
constexpr int kLineRates[] = {300, 600, 1200, 2400, 4800, 9600, 19200};
constexpr int kDefaultHostCycleMs = 30000;
constexpr int kMinHostCycleMs = 30000;
constexpr int kMaxHostCycleMs = 86400000;  // one day
constexpr int kDefaultEotQuantity = 1;
constexpr int kMaxEotQuantity = 100;
constexpr double kDefaultEotInterval = 0.1;
constexpr double kMaxEotInterval = 30;

// A setting's value as read from its text; problem says why the text was not taken as written
// and what is used instead (empty when it was taken). is_default: the default stands in for it.
template <class T>
struct Reading {
  T value;
  std::string problem;
  bool is_default = false;
};

// Whether LeadingNumber finds a number at all ("abc" and "0" both give 0).
bool StartsWithNumber(std::string_view s) {
  s = core::TrimView(s);
  if (!s.empty() && (s.front() == '-' || s.front() == '+')) s.remove_prefix(1);
  if (!s.empty() && s.front() == '.') s.remove_prefix(1);
  return !s.empty() && std::isdigit(static_cast<unsigned char>(s.front()));
}

Reading<int> ReadSerialPortRate(std::string_view text) {
  const std::string fallback = fmt::format("; the default {} is used", kDefaultSerialPortRate);
  if (!StartsWithNumber(text)) return {kDefaultSerialPortRate, "not a number" + fallback, true};
  const double rate = core::LeadingNumber(text);
  if (rate < kMinSerialPortRate || rate > kMaxSerialPortRate) {
    return {kDefaultSerialPortRate,
            fmt::format("not from {} to {}", kMinSerialPortRate, kMaxSerialPortRate) + fallback,
            true};
  }
  const int r = static_cast<int>(rate);
  if (std::find(std::begin(kLineRates), std::end(kLineRates), r) == std::end(kLineRates)) {
    return {r, fmt::format("not a rate a serial line runs at ({}); the line will not open at {}",
                           fmt::join(kLineRates, ", "), r)};
  }
  return {r};
}

Reading<int> ReadHostCycleInterval(std::string_view text) {
  // A plain number is milliseconds; a time of day such as "0:01:30" is that many seconds.
  double ms;
  if (auto n = core::ParseNumber(text)) {
    ms = *n;
  } else if (auto t = core::ParseTime(text)) {
    ms = t->TotalSeconds() * 1000.0;
  } else if (StartsWithNumber(text)) {
    ms = core::LeadingNumber(text);
  } else {
    return {kDefaultHostCycleMs,
            fmt::format("neither milliseconds nor a time such as 0:01:30; the default {} is used",
                        kDefaultHostCycleMs),
            true};
  }
  if (ms < kMinHostCycleMs) {
    return {kMinHostCycleMs, fmt::format("below {0} ms; {0} is used", kMinHostCycleMs)};
  }
  if (ms > kMaxHostCycleMs) {
    return {kMaxHostCycleMs, fmt::format("above {0} ms (one day); {0} is used", kMaxHostCycleMs)};
  }
  return {static_cast<int>(ms)};
}

Reading<int> ReadEotQuantity(std::string_view text) {
  const std::string fallback = fmt::format("; the default {} is used", kDefaultEotQuantity);
  if (!StartsWithNumber(text)) return {kDefaultEotQuantity, "not a number" + fallback, true};
  const double n = core::LeadingNumber(text);
  if (n < 1 || n > kMaxEotQuantity) {
    return {kDefaultEotQuantity, fmt::format("not from 1 to {}", kMaxEotQuantity) + fallback, true};
  }
  return {static_cast<int>(n)};
}

Reading<double> ReadEotInterval(std::string_view text) {
  // Without a number the interval reads as 0: the EOTs go back to back.
  if (!StartsWithNumber(text)) return {0, "not a number; 0 is used"};
  const double v = core::LeadingNumber(text);
  if (v > kMaxEotInterval) {
    return {kDefaultEotInterval,
            fmt::format("above {} seconds; the default {} is used", kMaxEotInterval,
                        kDefaultEotInterval),
            true};
  }
  return {v};
}

// Every boolean of the file is off by default.
Reading<bool> ReadBool(std::string_view text) {
  const std::string v = core::ToLower(core::Trim(text));
  if (v == "yes" || v == "on" || v == "true" || v == "1") return {true};
  if (v == "no" || v == "off" || v == "false" || v == "0") return {false};
  return {false, "not yes/no, on/off, true/false or 1/0; the default no is used", true};
}

Reading<std::string> ReadText(std::string_view text) { return {std::string(text)}; }

std::string ValueText(int v) { return std::to_string(v); }
std::string ValueText(double v) { return core::NumberText(v); }
std::string ValueText(bool v) { return v ? "yes" : "no"; }

template <class T, Reading<T> (*Read)(std::string_view)>
Reading<std::string> ReadAsText(std::string_view text) {
  Reading<T> r = Read(text);
  return {ValueText(r.value), std::move(r.problem), r.is_default};
}

struct KeyRule {
  std::string_view name;  // as the file's readers know it; matched without regard to case
  std::string_view default_text;
  Reading<std::string> (*read)(std::string_view text);
};

// In the order of the properties.
const KeyRule kKeys[] = {
    {"serialportrate", "9600", &ReadAsText<int, ReadSerialPortRate>},
    {"HostCycleInterval", "30000", &ReadAsText<int, ReadHostCycleInterval>},
    {"eotquantity", "1", &ReadAsText<int, ReadEotQuantity>},
    {"eotinterval", "0.1", &ReadAsText<double, ReadEotInterval>},
    {"assignhomedept", "no", &ReadAsText<bool, ReadBool>},
    {"assigndefaultjob", "no", &ReadAsText<bool, ReadBool>},
    {"duplicatetcdfile", "", &ReadText},
    {"atsupdate", "no", &ReadAsText<bool, ReadBool>},
};

const KeyRule* FindKey(std::string_view lower_key) {
  for (const KeyRule& rule : kKeys) {
    if (core::EqualsIgnoreCase(rule.name, lower_key)) return &rule;
  }
  return nullptr;
}

std::string KnownKeys() {
  std::vector<std::string> names;
  for (const KeyRule& rule : kKeys) names.emplace_back(rule.name);
  return core::Join(names, ", ");
}

}  // namespace

ParameterOverride::ParameterOverride(const std::filesystem::path& program_folder) {
  Load(program_folder / kSettingsOverrideFile);
}

void ParameterOverride::Load(const std::filesystem::path& file) {
  values_.clear();
  warnings_.clear();
  problems_.clear();
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) return;
  std::ifstream in(file, std::ios::binary);
  if (!in) throw core::SystemError::FromErrno(errno ? errno : EACCES, file.string());
  std::ostringstream text;
  text << in.rdbuf();
  LoadText(text.str(), file.string());
}

void ParameterOverride::LoadText(std::string_view text, std::string_view source) {
  std::map<std::string, int> set_by;  // key -> the line that set it
  int number = 0;
  for (std::string line : core::Split(text, '\n')) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t comment = line.find(';');
    if (comment != std::string::npos) line.erase(comment);
    const std::string shown = core::Trim(line);
    if (shown.empty()) continue;
    auto warn = [&](const std::string& what) {
      warnings_.push_back(fmt::format("{} line {}: {}", source, number, what));
      problems_.push_back({number, what});
    };
    const auto parts = core::Split(line, '=');
    if (parts.size() != 2) {
      warn(fmt::format("\"{}\" {}; the line is ignored", shown,
                       parts.size() == 1 ? "is not key = value" : "has more than one \"=\""));
      continue;
    }
    std::string key = core::ToLower(core::Trim(parts[0]));
    if (key.empty()) {
      warn(fmt::format("\"{}\" has no key; the line is ignored", shown));
      continue;
    }
    std::string value = core::Trim(parts[1]);
    if (const KeyRule* rule = FindKey(key)) {
      if (auto earlier = set_by.find(key); earlier != set_by.end()) {
        warn(fmt::format("{} is set again; line {} no longer counts", rule->name, earlier->second));
      }
      set_by[key] = number;
      const Reading<std::string> reading = rule->read(value);
      if (!reading.problem.empty()) {
        warn(fmt::format("{} = \"{}\" is {}", rule->name, value, reading.problem));
      }
    } else {
      warn(fmt::format("unknown key \"{}\"; no setting reads it (the keys are {})",
                       core::Trim(parts[0]), KnownKeys()));
    }
    values_[std::move(key)] = std::move(value);
  }
}

std::string ParameterOverride::GetValue(std::string_view key,
                                        std::string_view default_value) const {
  auto it = values_.find(core::ToLower(key));
  return it == values_.end() ? std::string(default_value) : it->second;
}

std::vector<OverrideSetting> ParameterOverride::Effective() const {
  std::vector<OverrideSetting> settings;
  for (const KeyRule& rule : kKeys) {
    auto it = values_.find(core::ToLower(rule.name));
    const bool absent = it == values_.end();
    Reading<std::string> reading = rule.read(absent ? rule.default_text : it->second);
    settings.push_back(
        {std::string(rule.name), std::move(reading.value), absent || reading.is_default});
  }
  return settings;
}

int ParameterOverride::SerialPortRate() const {
  return ReadSerialPortRate(GetValue("serialportrate", "9600")).value;
}
int ParameterOverride::HostCycleInterval() const {
  return ReadHostCycleInterval(GetValue("HostCycleInterval", "30000")).value;
}
int ParameterOverride::EOTQuantity() const {
  return ReadEotQuantity(GetValue("eotquantity", "1")).value;
}
double ParameterOverride::EOTInterval() const {
  return ReadEotInterval(GetValue("eotinterval", "0.1")).value;
}
bool ParameterOverride::AssignHomeDept() const {
  return ReadBool(GetValue("assignhomedept", "no")).value;
}
bool ParameterOverride::AssignDefaultJob() const {
  return ReadBool(GetValue("assigndefaultjob", "no")).value;
}
std::string ParameterOverride::DuplicateTCD() const { return GetValue("duplicatetcdfile", ""); }
bool ParameterOverride::ATSUpdate() const { return ReadBool(GetValue("atsupdate", "no")).value; }

}  // namespace clockcomm::records
