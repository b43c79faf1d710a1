// The communications settings of the parameter file "clockcomm.dta": fourteen comma-separated
// fields in a fixed order, written by `settings set` and read at start-up.
#pragma once

#include <filesystem>
#include <string>

namespace clockcomm::shell {

inline constexpr const char* kDefaultModemInit = "ATE1Q0V1X4S0=1";
inline constexpr const char* kParameterFile = "clockcomm.dta";

struct CommSettings {
  int comm_port = 1;                          // 1-based
  int connection_type = 2;                    // 1 Modem, 2 Serial, 3 LAN
  int auto_start_mode = 1;                    // 1 none
  std::string begin_time = "NONE";            // a time of day, or "NONE"
  std::string end_time = "NONE";              // a time of day, or "NONE"
  std::string modem_init = kDefaultModemInit;
  std::string export_format = "Clockwyn 3.0";
  int response_wait = 3;                      // seconds (PauseSec)
  int second_pause = 1;                       // seconds
  std::string program_folder;                 // the folder of the parameter file
  int terminal_count = 1;                     // 1..96
  int terminal_type = 1;                      // 1 "ZON / Tranz"
  double lan_delay_ms = 0;
  bool auto_shutdown = false;
};

}  // namespace clockcomm::shell
