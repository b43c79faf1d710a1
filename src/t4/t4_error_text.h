// The texts of the terminal operations' error codes, as GetLastError reports them.
#pragma once

#include <string>

namespace clockcomm::t4 {

// "Operation is correct" for 1, ..., "Unexpected Error Code '{0}'" for a code not in the table.
std::string ErrorText(int error_code);

}  // namespace clockcomm::t4
