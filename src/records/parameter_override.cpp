#include "records/parameter_override.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>

#include "core/date_time.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::records {
namespace {

constexpr int kDefaultSerialPortRate = 9600;
constexpr int kMinSerialPortRate = 300;
constexpr int kMaxSerialPortRate = 19200;
constexpr int kDefaultHostCycleMs = 30000;
constexpr int kMinHostCycleMs = 30000;
constexpr int kMaxHostCycleMs = 86400000;  // one day
constexpr int kDefaultEotQuantity = 1;
constexpr int kMaxEotQuantity = 100;
constexpr double kDefaultEotInterval = 0.1;
constexpr double kMaxEotInterval = 30;

}  // namespace

ParameterOverride::ParameterOverride(const std::filesystem::path& program_folder) {
  Load(program_folder / kSettingsOverrideFile);
}

void ParameterOverride::Load(const std::filesystem::path& file) {
  values_.clear();
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) return;
  std::ifstream in(file, std::ios::binary);
  if (!in) throw core::SystemError::FromErrno(errno ? errno : EACCES, file.string());
  std::ostringstream text;
  text << in.rdbuf();
  LoadText(text.str());
}

void ParameterOverride::LoadText(std::string_view text) {
  for (std::string line : core::Split(text, '\n')) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t comment = line.find(';');
    if (comment != std::string::npos) line.erase(comment);
    if (core::TrimView(line).empty()) continue;
    const auto parts = core::Split(line, '=');
    if (parts.size() != 2) continue;
    std::string key = core::ToLower(core::Trim(parts[0]));
    if (key.empty()) continue;
    values_[std::move(key)] = core::Trim(parts[1]);
  }
}

std::string ParameterOverride::GetValue(std::string_view key,
                                        std::string_view default_value) const {
  auto it = values_.find(core::ToLower(key));
  return it == values_.end() ? std::string(default_value) : it->second;
}

bool ParameterOverride::GetBool(std::string_view key, bool default_value) const {
  auto it = values_.find(core::ToLower(key));
  if (it == values_.end()) return default_value;
  const std::string v = core::ToLower(it->second);
  return v == "yes" || v == "on" || v == "true" || v == "1";
}

int ParameterOverride::SerialPortRate() const {
  const double rate = core::LeadingNumber(GetValue("serialportrate", "9600"));
  if (rate < kMinSerialPortRate || rate > kMaxSerialPortRate) return kDefaultSerialPortRate;
  return static_cast<int>(rate);
}

int ParameterOverride::HostCycleInterval() const {
  const std::string value = GetValue("HostCycleInterval", "30000");
  // A plain number is milliseconds; a time of day such as "0:01:30" is that many seconds.
  double ms;
  if (core::ParseNumber(value)) {
    ms = *core::ParseNumber(value);
  } else if (auto t = core::ParseTime(value)) {
    ms = t->TotalSeconds() * 1000.0;
  } else {
    ms = core::LeadingNumber(value);
  }
  ms = std::clamp(ms, static_cast<double>(kMinHostCycleMs), static_cast<double>(kMaxHostCycleMs));
  return static_cast<int>(ms);
}

int ParameterOverride::EOTQuantity() const {
  const double n = core::LeadingNumber(GetValue("eotquantity", "1"));
  if (n < 1 || n > kMaxEotQuantity) return kDefaultEotQuantity;
  return static_cast<int>(n);
}

double ParameterOverride::EOTInterval() const {
  const double v = core::LeadingNumber(GetValue("eotinterval", "0.1"));
  return v > kMaxEotInterval ? kDefaultEotInterval : v;
}

bool ParameterOverride::AssignHomeDept() const { return GetBool("assignhomedept", false); }
bool ParameterOverride::AssignDefaultJob() const { return GetBool("assigndefaultjob", false); }
std::string ParameterOverride::DuplicateTCD() const { return GetValue("duplicatetcdfile", ""); }
bool ParameterOverride::ATSUpdate() const { return GetBool("atsupdate", false); }

}  // namespace clockcomm::records
