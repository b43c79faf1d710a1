#include "core/errors.h"

#include <cstring>

namespace clockcomm::core {

SystemError::SystemError(int number, const std::string& description)
    : Error("System error " + std::to_string(number) + ": " + description),
      number_(number),
      description_(description) {}

SystemError SystemError::FromErrno(int error_number, const std::string& context) {
  std::string description = std::strerror(error_number);
  if (!context.empty()) description += " (" + context + ")";
  return SystemError(error_number, description);
}

}  // namespace clockcomm::core
