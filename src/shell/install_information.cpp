#include "shell/install_information.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::shell {
namespace fs = std::filesystem;

std::string WithTrailingSeparator(std::string dir) {
  if (!dir.empty() && dir.back() != fs::path::preferred_separator) {
    dir += fs::path::preferred_separator;
  }
  return dir;
}

bool InstallInformation::LessIgnoreCase::operator()(const std::string& a,
                                                    const std::string& b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) <
           std::tolower(static_cast<unsigned char>(y));
  });
}

InstallInformation::InstallInformation(fs::path working_directory) {
  if (working_directory.empty()) working_directory = fs::current_path();
  working_directory_ = WithTrailingSeparator(fs::absolute(working_directory).string());
}

std::string InstallInformation::InstallDataKey(std::string_view version) {
  return std::string(kProductKey) + "\\" + std::string(version) + "\\Install Data";
}

fs::path InstallInformation::RegistryFile() const {
  return fs::path(working_directory_) / kRegistryFile;
}

void InstallInformation::SetProgramDirectory(const std::string& dir) {
  program_directory_ = WithTrailingSeparator(dir);
}

void InstallInformation::SetDataDirectory(const std::string& dir) {
  data_directory_ = WithTrailingSeparator(dir);
}

std::string InstallInformation::Value(const std::string& section, const std::string& name) const {
  auto s = sections_.find(section);
  if (s == sections_.end()) return {};
  auto v = s->second.find(name);
  return v == s->second.end() ? std::string() : v->second.value;
}

void InstallInformation::SetValue(const std::string& section, const std::string& name,
                                  const std::string& value) {
  if (!value.empty()) {
    sections_[section][name] = Stored{value, 0};
    return;
  }
  auto s = sections_.find(section);
  if (s == sections_.end()) return;
  s->second.erase(name);
  if (s->second.empty()) sections_.erase(s);
}

std::vector<InstallInformation::Entry> InstallInformation::Values(
    const std::string& section) const {
  std::vector<Entry> entries;
  auto s = sections_.find(section);
  if (s == sections_.end()) return entries;
  for (const auto& [name, stored] : s->second) entries.push_back({name, stored.value, stored.line});
  return entries;
}

void InstallInformation::Load() {
  sections_.clear();
  warnings_.clear();
  const fs::path file = RegistryFile();
  std::error_code ec;
  if (fs::exists(file, ec)) {
    std::istringstream in(core::ReadWholeFile(file));
    std::string line;
    std::string section_name;
    Section* current = nullptr;
    int number = 0;
    auto warn = [&](const std::string& what) {
      warnings_.push_back(fmt::format("{} line {}: {}", file.string(), number, what));
    };
    while (std::getline(in, line)) {
      ++number;
      if (!line.empty() && line.back() == '\r') line.pop_back();  // written on Windows
      std::string_view text = core::TrimView(line);
      if (text.empty() || text.front() == ';' || text.front() == '#') continue;
      if (text.front() == '[' && text.back() == ']') {
        section_name = core::Trim(text.substr(1, text.size() - 2));
        current = &sections_[section_name];
        continue;
      }
      const size_t eq = text.find('=');
      if (eq == std::string_view::npos) {
        warn(fmt::format("\"{}\" is neither [section] nor name=value; the line is ignored", text));
        continue;
      }
      if (current == nullptr) {
        warn(fmt::format("\"{}\" comes before any [section]; the line is ignored", text));
        continue;
      }
      std::string name = core::Trim(text.substr(0, eq));
      if (name.empty()) {
        warn(fmt::format("\"{}\" has no value name; the line is ignored", text));
        continue;
      }
      if (auto earlier = current->find(name); earlier != current->end()) {
        warn(fmt::format("{} is set again in [{}]; line {} no longer counts", name, section_name,
                         earlier->second.line));
      }
      (*current)[name] = Stored{core::Trim(text.substr(eq + 1)), number};
    }
  }
  current_version_ = Value(kProductKey, "CurrentVersion");
  if (current_version_.empty()) current_version_ = kDefaultVersion;
  const std::string key = InstallDataKey(current_version_);
  program_directory_ = WithTrailingSeparator(Value(key, "ProgramDir"));
  data_directory_ = WithTrailingSeparator(Value(key, "DataDir"));
}

void InstallInformation::Save() const {
  auto sections = sections_;
  sections[kProductKey]["CurrentVersion"].value = current_version_;
  Section& install = sections[InstallDataKey(current_version_)];
  install["ProgramDir"].value = program_directory_;
  install["DataDir"].value = data_directory_;
  std::string out;
  for (const auto& [name, values] : sections) {
    if (!out.empty()) out += "\n";
    out += "[" + name + "]\n";
    for (const auto& [key, stored] : values) out += key + "=" + stored.value + "\n";
  }
  core::WriteFileAtomically(RegistryFile(), out);
}

}  // namespace clockcomm::shell
