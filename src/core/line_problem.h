// A line of a site's settings file that its reader leaves out, or reads otherwise than written.
#pragma once

#include <string>

namespace clockcomm::core {

struct LineProblem {
  int line = 0;      // from 1
  std::string what;  // the reason, without the file and line

  friend bool operator==(const LineProblem&, const LineProblem&) = default;
};

}  // namespace clockcomm::core
