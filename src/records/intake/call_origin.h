// Who a call is from, as the terminal announced itself.
#pragma once

#include <string>

namespace clockcomm::records {

struct CallOrigin {
  std::string clock_name;
  int clock_number = 0;
  std::string upload_type;  // "W" makes a ".WHO" file, which is transferred but not archived
};

}  // namespace clockcomm::records
