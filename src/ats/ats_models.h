// What differs between the ATS terminal models, as data: the punch packet's type, where its punch
// kind, record number and date travel, the kind table, and how badge, department and job are
// found. The parsers read punches with these tables and the simulator builds its packets with the
// same ones, so the two cannot drift apart.
//
// A packet is the text from the type (frame position 9) to the ETX, cut at each RS into fields:
// field 0 begins with the type, fields 1.. follow the RS characters.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "ats/tcd_packet.h"
#include "terminal/terminal_type.h"

namespace clockcomm::ats {

enum class Series { kESeries, kCyberSeries, kProdigy };

// A place in a packet: the field and the offset in it (from 0).
struct FieldSpot {
  int field;
  size_t offset;
};

struct KindKey {
  char key;
  PunchType type;
};

enum class TagTarget { kBadge, kDepartment, kJob };
struct FieldTag {
  char tag;
  TagTarget target;
};

// A tagged field: a four-character header, the tag letter (position 5 of the field counting from
// 1), the separator (position 6), and the value from position 7 on.
inline constexpr size_t kTagHeaderLength = 4;
inline constexpr size_t kTagOffset = 4;
inline constexpr char kTagSeparator = '=';
inline constexpr size_t kTagValueOffset = 6;

struct AtsModel {
  Series series;
  std::string_view name;         // for messages and the command line
  std::string_view punch_type;   // the two letters at frame position 9
  FieldSpot record_number;       // where the three-digit record number travels
  size_t record_number_digits;
  FieldSpot kind;                // the character looked up in kinds
  std::span<const KindKey> kinds;
  PunchType unknown_kind;        // a key not in the table
  FieldSpot date;                // two digits each: year, month, day, hour, minute[, second]
  size_t date_digits;            // 10 (to the minute) or 12 (to the second)
  // Positional models: the field of each value (department and job may be missing or empty).
  int badge_field;
  int department_field;
  int job_field;
  // Tagged models: every field from 1 on is a tagged field, its tag choosing the value.
  std::span<const FieldTag> tags;
  // The answer to the "what are you" command: a bare EOT, or else an "SR" data frame.
  bool status_answer_is_eot;
};

const AtsModel& ModelOf(Series series);
// "eseries", "cyberseries", "prodigy"; throws core::ArgumentException for anything else.
Series SeriesFromName(std::string_view name);
std::string_view SeriesName(Series series);

// The model whose packets a terminal type sends: Maximus and Optimus speak the E-Series punch
// packet. Throws core::ArgumentException for a type that is not an ATS terminal.
Series SeriesOf(terminal::TerminalType type);

// The key of a punch type in the model's kind table (the first one that maps to it); throws
// core::ArgumentException when the model has none for it.
char KindKeyOf(const AtsModel& model, PunchType type);

// The packet (type and data, no frame) a terminal of the model sends for the punch; the clockId
// is not part of it (the address is). Seconds travel only when the model's date has them.
std::string BuildPunchPacket(const AtsModel& model, int record_number, const TCDPacket& punch);

}  // namespace clockcomm::ats
