// Which column of [Clock Data Table] receives a punch's amount.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::records {

// By exact punch type: T Tips, A Advances, X Other, S Sick, V Vacation, P Personal, B Bonus,
// H Holiday; any other type Quantity.
const char* AmountColumnForPunchType(std::string_view punch_type);

}  // namespace clockcomm::records
