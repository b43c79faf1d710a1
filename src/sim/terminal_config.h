// What a simulated Zon/Tranz terminal is: its identity, how it ends an upload, how long it waits
// for the program, and the faults it can be told to commit.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "comm/line_settings.h"

namespace clockcomm::sim {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

// Each fault fires once in the terminal's life, so that the next call goes through cleanly.
struct TerminalFaults {
  // The packet sent with a wrong block check: 0 is the header, n the n-th data packet.
  std::optional<int> corrupt_packet;
  // After this many data packets were acknowledged the terminal stops sending (mid-call).
  std::optional<int> silent_after;
  // After this many data packets were acknowledged the terminal closes the line.
  std::optional<int> drop_after;
  // Sends the header a second time after the first data packet.
  bool second_header = false;
  // The n-th table row of a download (counted over all tables, from 1) is answered NAK.
  std::optional<int> nak_row;
  // The program's EOT is not seen, as if the line dropped right after it: the terminal keeps its
  // punches and sends the whole batch again in its next call.
  bool miss_eot = false;
  // The ACK of data packet n is lost: the terminal waits its ACK wait and sends the packet again.
  std::optional<int> lose_ack;
  // Line noise turns the ACK of data packet n into a NAK: the packet is sent again at once.
  std::optional<int> stray_nak;
};

struct TerminalTimeouts {
  // The program answers a packet as soon as it has parsed and written it. Shorter than the
  // program's 10 s packet time-out, so that a resend after a lost ACK still finds it waiting.
  std::chrono::milliseconds ack_wait = 5s;
  // Before EOT the program closes, flushes and syncs the call's file.
  std::chrono::milliseconds eot_wait = 30s;
  // The program's ENQ after the terminal's call-in ENQ CRLF.
  std::chrono::milliseconds answer_wait = 10s;
  // Between the steps of a poll (ENQ, header request, ENQ): the program waits its response wait
  // (whole seconds, set up by the operator) before it tries again.
  std::chrono::milliseconds poll_step_wait = 30s;
  // Between download frames the program reads the company database.
  std::chrono::milliseconds download_wait = 30s;
  // The reply to an hours request comes after a database look-up.
  std::chrono::milliseconds hours_wait = 10s;
};

struct TerminalConfig {
  std::string clock_name = "DEMODATA";
  int32_t clock_number = 101;
  std::string application = "TC28";
  std::string upload_type = "F";  // "F", "P" or "W"
  // The id a poll's header request must carry; empty answers any id.
  std::string terminal_id;
  // End with "00" FS ENQ and take the validation tables, instead of "00" FS EOT.
  bool end_with_upload = false;
  // Times one packet is sent again after NAK before the terminal gives the call up.
  int max_resends = 5;
  // When set, bytes leave no faster than a line of these settings carries them.
  std::optional<comm::LineSettings> pace;
  TerminalFaults faults;
  TerminalTimeouts timeouts;
};

}  // namespace clockcomm::sim
