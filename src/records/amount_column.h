// Which column of [Clock Data Table] receives a punch's amount.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::records {

// By exact punch type: T Tips, A Advances, X Other, S Sick, V Vacation, P Personal, B Bonus,
// H Holiday; any other type Quantity.
const char* AmountColumnForPunchType(std::string_view punch_type);
// The INSERT text's rule: the position of the punch type text in "~TAXSVPBH". Not found, "~"
// (and the empty type, found at the start) give Quantity. A two-letter type that happens to
// occur in the string ("SV") picks the column of its first letter, as that rule always did.
const char* AmountColumnBySearch(std::string_view punch_type);

}  // namespace clockcomm::records
