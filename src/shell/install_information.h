// Where the program is installed and where its data lives, kept in the program folder's
// "registry.ini": sections are registry key paths, values are the registry value names.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace clockcomm::shell {

class InstallInformation {
 public:
  static constexpr const char* kRegistryFile = "registry.ini";
  static constexpr const char* kDefaultVersion = "3.0";

  // The working directory is the program folder the program was started with.
  explicit InstallInformation(std::filesystem::path working_directory = {});

  // Reads CurrentVersion, then ProgramDir and DataDir from that version's "Install Data" key.
  void Load();
  // Writes them back (creating registry.ini when needed).
  void Save() const;

  // Directories always end with the platform's separator ("/").
  const std::string& ProgramDirectory() const { return program_directory_; }
  void SetProgramDirectory(const std::string& dir);
  const std::string& DataDirectory() const { return data_directory_; }
  void SetDataDirectory(const std::string& dir);
  const std::string& CurrentVersion() const { return current_version_; }
  const std::string& WorkingDirectory() const { return working_directory_; }

  // Any value of registry.ini, e.g. ("Ports", "COM3") for a port's device path.
  std::string Value(const std::string& section, const std::string& name) const;

 private:
  std::string working_directory_;
  std::string program_directory_;
  std::string data_directory_;
  std::string current_version_ = kDefaultVersion;
  std::map<std::string, std::map<std::string, std::string>> sections_;
};

// Appends the separator when the text does not already end with one.
std::string WithTrailingSeparator(std::string dir);

}  // namespace clockcomm::shell
