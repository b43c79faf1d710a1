// The attendance log as a download delivers it: a 4-byte length, then records of one fixed size.
// Colour-screen terminals write 40 bytes (49 on newer firmware) with the enrolment number as
// text; numeric terminals write 16 bytes with it as a number, or 8 bytes with only the
// terminal's internal user number, which the user table maps.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace clockcomm::t4::net {

// The dataset cannot be trusted: its lengths disagree or no record size fits.
class T4DataError : public std::runtime_error {
 public:
  explicit T4DataError(const std::string& message) : std::runtime_error(message) {}
};

struct T4Record {
  uint16_t uid = 0;     // the terminal's internal user number (40/49 and 8 bytes)
  std::string user_id;  // the enrolment number: the text (40/49) or the number in decimal (16)
  uint8_t verify = 0;   // how the user verified
  uint8_t state = 0;    // the in/out state, raw (255: none chosen)
  uint32_t time = 0;    // encoded time
  uint32_t work_code = 0;
  std::string extra;  // bytes past the known fields, kept as they are

  bool operator==(const T4Record&) const = default;
};

inline constexpr size_t kStringRecordSize = 40;
inline constexpr size_t kLongStringRecordSize = 49;
inline constexpr size_t kExtendedRecordSize = 16;
inline constexpr size_t kCompactRecordSize = 8;

struct T4Dataset {
  size_t record_size = 0;  // 0 for an empty log
  std::vector<T4Record> records;

  bool StringIds() const { return record_size >= kStringRecordSize; }
};

// Decodes a whole dataset. `count` is the record count the terminal reported (0 when unknown);
// `hint` the record size its options suggest, used only to break a tie. Throws T4DataError when
// the length prefix disagrees with the bytes or no record size decodes sensibly.
T4Dataset DecodeAttendance(std::string_view dataset, uint32_t count,
                           std::optional<size_t> hint = std::nullopt);

// One record in the given size; 49-byte records take their extra bytes (zeros when none).
std::string EncodeRecord(const T4Record& record, size_t record_size);
// The length prefix and the records.
std::string EncodeAttendance(const std::vector<T4Record>& records, size_t record_size);

}  // namespace clockcomm::t4::net
