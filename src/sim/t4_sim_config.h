// Settings, faults and counters of the simulated T4 terminal. The defaults follow a normal
// terminal: every fault is off.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace clockcomm::sim {

// Faults, each settable while the terminal runs. "Once" faults disarm themselves when they fire.
struct T4SimFaults {
  // Connection and session.
  bool busy_menu = false;          // someone uses the terminal's menu: CONNECT is ignored
  bool refuse_key_scheme = false;  // AUTH is always answered ACK_UNAUTH, even with the right key
  bool second_client_hangs =
      false;  // a second TCP client is accepted and never served (else closed)
  // Counts and options.
  bool free_sizes_80 = false;       // GET_FREE_SIZES answers the older 80-byte form
  int32_t miscount = 0;             // added to the attendance count that GET_FREE_SIZES reports
  bool contradict_options = false;  // ~SSR, ~Platform, ~ExtendFmt claim the other kind of ids
                                    // (read once, when the terminal starts)
  bool invalid_time = false;        // GET_TIME answers 30 February (a code that is no date)
  // Bulk reads.
  bool refuse_buffered = false;  // PREPARE_BUFFER answers ACK_ERROR: the client must read legacy
  bool descriptor_mismatch =
      false;  // the descriptor announces 48 bytes more than the dataset holds
  bool prepare_small_chunks = false;  // chunks of 1,024 bytes or less also get PREPARE_DATA..ACK_OK
  bool clear_after_count = false;     // once: someone clears the log right after GET_FREE_SIZES
  std::optional<size_t> udp_drop;     // once: the UDP DATA datagram of this index is not sent
  std::optional<size_t> udp_swap;     // once: UDP DATA datagrams of this index and the next swap
  // Replies.
  std::optional<uint16_t> bad_checksum_command;  // once: the answer to it has a wrong checksum
  std::optional<uint16_t> no_reply_command;      // it runs but its answer is lost...
  int no_reply_times = 1;                        // ...this many times (negative: always)
  // TCP writes.
  bool split_frames = false;     // each frame written in pieces, the first cut inside the prefix
  bool coalesce_frames = false;  // a whole answer in one write
  bool bad_prefix_once = false;  // once: a frame goes out with a wrong prefix
  bool coalesce_events = false;  // events waiting together go out in one write
  // Events.
  bool events_before_answer = false;  // events wait for the next request and go just before
                                      // its answer
};

struct T4SimConfig {
  size_t record_size = 40;        // 40 | 49 | 16 | 8, with the matching options
  uint32_t comm_key = 0;          // 0: no key
  size_t records = 0, users = 0;  // generated log and user table (10 users when records but none)
  std::chrono::milliseconds pace{0};  // between every written frame of an answer
  size_t max_data_packet = 65528;     // largest DATA on TCP (1008, 1024, 65528, 65536); UDP 1024
  std::chrono::milliseconds punch_every{0};  // >0: a generated punch at that rate
  std::string serial_number = "SIM0001";
  size_t event_length = 0;      // EF_ATTLOG payload; 0: 36 for 40/49, 12 for 16, 10 for 8
  bool resend_events = true;    // after the first accepted ACK, events go again until acked
  bool bad_records = false;     // seed the log with the bad records of SeedBadRecords
  bool tcp = true, udp = true;  // which transports the terminal answers
  T4SimFaults faults;
};

struct T4SimStats {
  size_t connections_accepted = 0;
  size_t connections_refused = 0;  // second TCP clients closed at once
  size_t connections_hung = 0;     // second TCP clients (fault) or late first frames, never served
  size_t sessions_opened = 0;
  size_t bad_checksums = 0;       // requests dropped for their checksum
  size_t unknown_sessions = 0;    // requests of no live session (or another UDP peer), dropped
  size_t stale_ids = 0;           // requests with a reply id lower than the last, dropped
  size_t remembered_replies = 0;  // same reply id: the remembered packet sent again
  size_t ignored_connects = 0;    // CONNECT while the menu is in use
  size_t key_refusals = 0;        // AUTH answered ACK_UNAUTH
  size_t clears = 0;              // the log emptied by CLEAR_ATTLOG or CLEAR_DATA
  size_t reads_served = 0;        // READ_BUFFER chunks, inline answers and legacy reads
  size_t events_sent = 0;         // event packets written, resends included
  size_t events_acked = 0;
  size_t punches_stored = 0;
  size_t punches_refused = 0;           // made while disabled: refused, not held
  size_t replies_lost = 0;              // answers withheld by the no-reply fault
  size_t stream_errors = 0;             // TCP input out of step: connection closed
  std::map<uint16_t, size_t> commands;  // requests executed, by command code
  std::chrono::nanoseconds paced{0};    // time paused between written frames: the pacing floor
};

}  // namespace clockcomm::sim
