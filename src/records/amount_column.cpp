#include "records/amount_column.h"

namespace clockcomm::records {
namespace {

// The punch type of each column of kAmountColumns; '~' stands for none (Quantity).
constexpr std::string_view kAmountTypes = "~TAXSVPBH";

}  // namespace

size_t AmountColumnIndex(std::string_view punch_type) {
  if (punch_type.size() != 1 || punch_type == "~") return 0;
  const size_t pos = kAmountTypes.find(punch_type);
  return pos == std::string_view::npos ? 0 : pos;
}

}  // namespace clockcomm::records
