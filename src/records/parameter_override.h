// The site's "SettingsOverride.txt" of key = value lines: a few communication settings and the
// two punch-time assignment switches, each typed and range-checked.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace clockcomm::records {

inline constexpr const char* kSettingsOverrideFile = "SettingsOverride.txt";

class ParameterOverride {
 public:
  // Every setting at its default.
  ParameterOverride() = default;
  // Reads "SettingsOverride.txt" of the program folder; a missing file leaves the defaults.
  explicit ParameterOverride(const std::filesystem::path& program_folder);

  // Reads the file now (replacing what was read before). Throws core::SystemError when the
  // file exists but cannot be read.
  void Load(const std::filesystem::path& file);
  // Sets settings from text in the file's format.
  void LoadText(std::string_view text);

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

 private:
  bool GetBool(std::string_view key, bool default_value) const;
  std::map<std::string, std::string> values_;
};

}  // namespace clockcomm::records
