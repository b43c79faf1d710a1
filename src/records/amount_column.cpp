#include "records/amount_column.h"

namespace clockcomm::records {
namespace {

constexpr std::string_view kAmountTypes = "~TAXSVPBH";
constexpr const char* kAmountColumns[] = {"Quantity", "Tips",     "Advances", "Other",  "Sick",
                                          "Vacation", "Personal", "Bonus",    "Holiday"};

}  // namespace

const char* AmountColumnForPunchType(std::string_view punch_type) {
  if (punch_type.size() != 1 || punch_type == "~") return kAmountColumns[0];
  const size_t pos = kAmountTypes.find(punch_type);
  return pos == std::string_view::npos ? kAmountColumns[0] : kAmountColumns[pos];
}

}  // namespace clockcomm::records
