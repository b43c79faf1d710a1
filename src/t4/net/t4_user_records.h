// The terminal's user table as a buffered read delivers it: a 4-byte length, then 28-byte
// (numeric) or 72-byte (colour-screen) user records.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace clockcomm::t4::net {

struct T4UserRecord {
  uint16_t uid = 0;  // the terminal's internal number, local to it
  uint8_t privilege = 0;
  std::string password;
  std::string name;
  uint32_t card = 0;
  uint8_t group = 0;
  std::string user_id;  // the enrolment number (text, or the number in decimal on numeric ones)

  bool operator==(const T4UserRecord&) const = default;
};

inline constexpr size_t kNumericUserSize = 28;
inline constexpr size_t kStringUserSize = 72;

// Throws T4DataError when the lengths disagree or the record size is neither 28 nor 72.
std::vector<T4UserRecord> DecodeUsers(std::string_view dataset, uint32_t user_count);
std::string EncodeUsers(const std::vector<T4UserRecord>& users, size_t record_size);

}  // namespace clockcomm::t4::net
