#include "t4/t4_error_text.h"

#include <array>
#include <utility>

namespace clockcomm::t4 {

std::string ErrorText(int error_code) {
  static constexpr std::array<std::pair<int, const char*>, 12> kTexts = {{
      {-100, "Operation failed or data not exist"},
      {-13, "Operation is not supported on this connection"},
      {-10, "Transmitted data length is incorrect"},
      {-5, "Data already exists"},
      {-4, "Space is not enough"},
      {-3, "Error size"},
      {-2, "Error in file read/write"},
      {-1, "SDK is not initialized and needs to be reconnected"},
      {0, "Data not found or data repeated"},
      {1, "Operation is correct"},
      {4, "Parameter is incorrect"},
      {101, "Error in allocating buffer"},
  }};
  for (const auto& [code, text] : kTexts) {
    if (code == error_code) return text;
  }
  return "Unexpected Error Code '" + std::to_string(error_code) + "'";
}

}  // namespace clockcomm::t4
