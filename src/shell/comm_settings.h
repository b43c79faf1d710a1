// The communications settings of the parameter file "clockcomm.dta": fourteen comma-separated
// fields in a fixed order, written by `settings set` and read at start-up.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "comm/connection_type.h"
#include "core/errors.h"
#include "terminal/terminal_type.h"

namespace clockcomm::shell {

inline constexpr const char* kDefaultModemInit = "ATE1Q0V1X4S0=1";
inline constexpr const char* kParameterFile = "clockcomm.dta";
inline constexpr const char* kNoTime = "NONE";
inline constexpr int kMaxCommPort = 256;
inline constexpr const char* kTerminalCountMessage =
    "Please enter a value between 1 and 96 for Terminal Count";

// The export formats offered for field 7, in list order.
inline constexpr std::array<const char*, 6> kExportFormats = {
    "Clockwyn 3.0",    "Lorvanette 1.5x",    "Lorvanette 2.x",
    "Lorvanette 2000", "ASCII BR/PD Format", "NONE"};

struct CommSettings {
  int comm_port = 1;  // 1-based
  comm::ConnectionType connection_type = comm::ConnectionType::kSerial;
  int auto_start_mode = 1;           // 1 none
  std::string begin_time = kNoTime;  // "HH:nn", or "NONE"
  std::string end_time = kNoTime;    // "HH:nn", or "NONE"
  std::string modem_init = kDefaultModemInit;
  std::string export_format = "Clockwyn 3.0";
  int response_wait = 3;       // seconds (PauseSec)
  int second_pause = 1;        // seconds between two tries of one step
  std::string program_folder;  // the folder of the parameter file
  int terminal_count = 1;      // 1..96
  terminal::TerminalType terminal_type = terminal::TerminalType::kZonTranz;
  double lan_delay_ms = 0;
  bool auto_shutdown = false;

  friend bool operator==(const CommSettings&, const CommSettings&) = default;
};

// The setting names of `settings set`, in file order.
inline constexpr std::array<const char*, 14> kSettingKeys = {
    "comm_port",      "connection_type", "auto_start_mode", "begin_time",   "end_time",
    "modem_init",     "export_format",   "response_wait",   "second_pause", "program_folder",
    "terminal_count", "terminal_type",   "lan_delay_ms",    "auto_shutdown"};

// Sets one setting from text. Throws ArgumentException naming the key for an unknown key or a
// value that is not acceptable ("Please enter a value between 1 and 96 for Terminal Count" for
// the terminal count).
void ApplySetting(CommSettings& settings, std::string_view key, std::string_view value);
// The text of one setting as `settings show` prints it and ApplySetting accepts it.
std::string SettingText(const CommSettings& settings, std::string_view key);
// The checks of the setup screen's Save. Throws ArgumentException naming the field at fault.
void ValidateCommSettings(const CommSettings& settings);
// "Communications set for: Comm Port 1, Serial", plus ", starting at 08:00, ending at 17:00."
// when a begin time is set.
std::string DescribeCommSettings(const CommSettings& settings);

// The parameter file of a program folder.
std::filesystem::path ParameterFilePath(const std::filesystem::path& program_folder);

// The file could not be written: the message is the three lines the operator is shown.
class ParameterFileError : public core::Error {
 public:
  ParameterFileError(const core::SystemError& cause, const std::filesystem::path& file);
};

// Reads the fourteen fields. A missing file gives the defaults (program_folder set to the
// folder). Throws FormatException naming the file and the field for a malformed file.
CommSettings ReadCommSettings(const std::filesystem::path& program_folder);
// Validates, fills an empty modem string with the default, and replaces the file in one step.
// Throws ArgumentException (invalid) or ParameterFileError (cannot write); the old file is then
// left as it was.
void WriteCommSettings(const std::filesystem::path& program_folder, CommSettings settings);
// The file's text: one line of fourteen comma-separated fields, strings in double quotes,
// booleans as #TRUE# / #FALSE#.
std::string FormatCommSettings(const CommSettings& settings);
CommSettings ParseCommSettings(std::string_view text, const std::string& file_name);

}  // namespace clockcomm::shell
