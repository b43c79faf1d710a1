// The site's "SettingsOverride.txt" of key = value lines: a few communication settings and the
// two punch-time assignment switches, each typed and range-checked.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/line_problem.h"

namespace clockcomm::records {

inline constexpr const char* kSettingsOverrideFile = "SettingsOverride.txt";

// One setting as it is in effect: the key as the file's readers know it, the value as text, and
// whether that value is the default (the key is absent, or its value was refused).
struct OverrideSetting {
  std::string key;
  std::string value;
  bool is_default = true;

  friend bool operator==(const OverrideSetting&, const OverrideSetting&) = default;
};

class ParameterOverride {
 public:
  // Every setting at its default.
  ParameterOverride() = default;
  // Reads "SettingsOverride.txt" of the program folder; a missing file leaves the defaults.
  explicit ParameterOverride(const std::filesystem::path& program_folder);

  // Reads the file now (replacing what was read before). Throws core::SystemError when the
  // file exists but cannot be read.
  void Load(const std::filesystem::path& file);
  // Sets settings from text in the file's format; source names the text in the warnings.
  void LoadText(std::string_view text, std::string_view source = kSettingsOverrideFile);

  int SerialPortRate() const;
  int HostCycleInterval() const;  // milliseconds
  int EOTQuantity() const;
  double EOTInterval() const;  // seconds
  bool AssignHomeDept() const;
  bool AssignDefaultJob() const;
  std::string DuplicateTCD() const;
  // Off unless the site switches it on: an ATS update sends data to terminals, which should be
  // something a site asks for.
  bool ATSUpdate() const;

  // The stored text for a key (any case), or the default.
  std::string GetValue(std::string_view key, std::string_view default_value) const;

  // One text per line that was ignored, or whose value was refused or changed, as
  // "<file> line <n>: <what>, <what is used instead>". The reading itself never fails on them:
  // the setting keeps its default (or the nearest bound), as it always has.
  const std::vector<std::string>& Warnings() const { return warnings_; }
  // The same, each with its line number and without the file.
  const std::vector<core::LineProblem>& Problems() const { return problems_; }
  // Every setting of the file, in the order of the properties above, with the value in effect.
  std::vector<OverrideSetting> Effective() const;

 private:
  std::map<std::string, std::string> values_;
  std::vector<std::string> warnings_;
  std::vector<core::LineProblem> problems_;
};

}  // namespace clockcomm::records
