// Which column of [Clock Data Table] receives a punch's amount.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace clockcomm::records {

inline constexpr std::array<const char*, 9> kAmountColumns = {
    "Quantity", "Tips", "Advances", "Other", "Sick", "Vacation", "Personal", "Bonus", "Holiday"};

// By exact punch type: T Tips, A Advances, X Other, S Sick, V Vacation, P Personal, B Bonus,
// H Holiday; any other type Quantity. The index is into kAmountColumns.
size_t AmountColumnIndex(std::string_view punch_type);
inline const char* AmountColumnForPunchType(std::string_view punch_type) {
  return kAmountColumns[AmountColumnIndex(punch_type)];
}

}  // namespace clockcomm::records
