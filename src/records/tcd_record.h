// One punch as the terminals deliver it: fourteen fields in TCD line order. Optional values are
// null (std::nullopt), never sentinel numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/date_time.h"

namespace clockcomm::records {

inline constexpr int kTcdFieldCount = 14;
inline constexpr int64_t kMaxDepartment = 999999999;
inline constexpr size_t kMaxJobNumberLength = 13;
inline constexpr const char* kDepartmentRangeMessage =
    "Department must be between 0 and 999999999.";
inline constexpr const char* kJobNumberLengthMessage = "JobNumber cannot exceed 13 characters.";

class TcdRecord {
 public:
  TcdRecord() = default;
  // Trims the text fields and the punch type; the department goes through its setter (range
  // check applies), the job number does not get the 13-character check.
  TcdRecord(std::string_view clock_number, int32_t sequence_number, int32_t badge_id,
            std::optional<int64_t> department, std::string_view job_number, std::string_view level4,
            std::string_view level5, std::string_view punch_type, std::optional<core::Date> date_in,
            std::optional<core::TimeOfDay> time_in, std::optional<core::Date> date_out,
            std::optional<core::TimeOfDay> time_out, std::optional<float> amount,
            std::string_view punch_class, bool include_seconds = false);

  const std::string& ClockNumber() const { return clock_number_; }
  void SetClockNumber(std::string_view v) { clock_number_ = std::string(v); }
  int32_t SequenceNumber() const { return sequence_number_; }
  void SetSequenceNumber(int32_t v) { sequence_number_ = v; }
  int32_t BadgeId() const { return badge_id_; }
  void SetBadgeId(int32_t v) { badge_id_ = v; }

  std::optional<int32_t> Department() const { return department_; }
  // Throws ArgumentException (kDepartmentRangeMessage) outside 0..999999999; the old value stays.
  void SetDepartment(std::optional<int64_t> v);
  // Numeric text becomes the department (fractions rounded), anything else null.
  void SetDepartmentText(std::string_view text);

  const std::string& JobNumber() const { return job_number_; }
  // Throws ArgumentException (kJobNumberLengthMessage) beyond 13 characters.
  void SetJobNumber(std::string_view v);

  const std::string& Level4() const { return level4_; }
  void SetLevel4(std::string_view v) { level4_ = std::string(v); }
  const std::string& Level5() const { return level5_; }
  void SetLevel5(std::string_view v) { level5_ = std::string(v); }
  const std::string& PunchType() const { return punch_type_; }
  void SetPunchType(std::string_view v) { punch_type_ = std::string(v); }

  const std::optional<core::Date>& DateIn() const { return date_in_; }
  void SetDateIn(std::optional<core::Date> v) { date_in_ = v; }
  // Text the lenient date conversion accepts gives its date; anything else null.
  void SetDateInText(std::string_view text);
  const std::optional<core::TimeOfDay>& TimeIn() const { return time_in_; }
  void SetTimeIn(std::optional<core::TimeOfDay> v) { time_in_ = v; }
  void SetTimeInText(std::string_view text);
  const std::optional<core::Date>& DateOut() const { return date_out_; }
  void SetDateOut(std::optional<core::Date> v) { date_out_ = v; }
  void SetDateOutText(std::string_view text);
  const std::optional<core::TimeOfDay>& Timeout() const { return time_out_; }
  void SetTimeout(std::optional<core::TimeOfDay> v) { time_out_ = v; }
  void SetTimeoutText(std::string_view text);

  const std::optional<float>& Amount() const { return amount_; }
  void SetAmount(std::optional<float> v) { amount_ = v; }
  // Numeric text becomes the amount; anything else, the empty text included, null.
  void SetAmountText(std::string_view text);

  const std::string& PunchClass() const { return punch_class_; }
  void SetPunchClass(std::string_view v) { punch_class_ = std::string(v); }

  bool IncludeSeconds() const { return include_seconds_; }
  void SetIncludeSeconds(bool v) { include_seconds_ = v; }
  // The TCD line without line end; quoting == 1 puts every field in double quotes.
  std::string ToTcdString(int quoting) const;
  // The same line appended to out, for writers that reuse one buffer.
  void AppendTcdString(std::string& out, int quoting) const;
  std::string ToString() const { return ToTcdString(0); }

 private:
  std::string clock_number_;
  int32_t sequence_number_ = 0;
  int32_t badge_id_ = 0;
  std::optional<int32_t> department_;
  std::string job_number_;
  std::string level4_;
  std::string level5_;
  std::string punch_type_;
  std::optional<core::Date> date_in_;
  std::optional<core::TimeOfDay> time_in_;
  std::optional<core::Date> date_out_;
  std::optional<core::TimeOfDay> time_out_;
  std::optional<float> amount_;
  std::string punch_class_;
  bool include_seconds_ = false;
};

}  // namespace clockcomm::records
