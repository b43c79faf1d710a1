// Where the program is installed and where its data lives, kept in the program folder's
// "registry.ini": sections are registry key paths, values are the registry value names.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace clockcomm::shell {

class InstallInformation {
 public:
  static constexpr const char* kRegistryFile = "registry.ini";
  static constexpr const char* kDefaultVersion = "3.0";
  static constexpr const char* kProductKey = "SOFTWARE\\Brenmor Time Systems\\Clockwyn";

  // The working directory is the program folder the program was started with (the current
  // directory when none is given); registry.ini lives there.
  explicit InstallInformation(std::filesystem::path working_directory = {});

  // Reads CurrentVersion, then ProgramDir and DataDir from that version's "Install Data" key.
  // A missing file or value gives version "3.0" and empty directories. Throws SystemError when
  // the file exists but cannot be read. A line that is not a comment, [section] or name=value
  // inside a section is left out, with a warning.
  void Load();
  // Writes them back (creating registry.ini when needed), keeping every other section and value.
  void Save() const;

  // Directories always end with the platform's separator ("/"); an empty one stays empty.
  const std::string& ProgramDirectory() const { return program_directory_; }
  void SetProgramDirectory(const std::string& dir);
  const std::string& DataDirectory() const { return data_directory_; }
  void SetDataDirectory(const std::string& dir);
  const std::string& CurrentVersion() const { return current_version_; }
  const std::string& WorkingDirectory() const { return working_directory_; }
  std::filesystem::path RegistryFile() const;

  // Any value of registry.ini, e.g. ("Ports", "COM3") for a port's device path; empty when
  // absent. Section and value names match without regard to case, as registry names do.
  std::string Value(const std::string& section, const std::string& name) const;
  // Sets a value, for Save to write; an empty value removes it.
  void SetValue(const std::string& section, const std::string& name, const std::string& value);
  // One value of a section as Load found it; line is 0 for a value set since.
  struct Entry {
    std::string name;
    std::string value;
    int line = 0;
  };
  // The values of a section in name order (empty when there is no such section).
  std::vector<Entry> Values(const std::string& section) const;
  // One text per line Load left out or overrode, as "<file> line <n>: <what>".
  const std::vector<std::string>& Warnings() const { return warnings_; }
  // "SOFTWARE\Brenmor Time Systems\Clockwyn\<version>\Install Data"
  static std::string InstallDataKey(std::string_view version);

 private:
  struct LessIgnoreCase {
    bool operator()(const std::string& a, const std::string& b) const;
  };
  struct Stored {
    std::string value;
    int line = 0;
  };
  using Section = std::map<std::string, Stored, LessIgnoreCase>;

  std::string working_directory_;
  std::string program_directory_;
  std::string data_directory_;
  std::string current_version_ = kDefaultVersion;
  std::map<std::string, Section, LessIgnoreCase> sections_;
  std::vector<std::string> warnings_;
};

// Appends the separator when the text does not already end with one (and is not empty).
std::string WithTrailingSeparator(std::string dir);

}  // namespace clockcomm::shell
