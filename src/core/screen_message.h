// The operator's screen lines are format strings: "{0}" is the date and time, "{1}", "{2}" ... the
// details in order.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "core/date_time.h"

namespace clockcomm::core {

// "{0} Opening Com Port" -> "2009-10-20 08:00:00 Opening Com Port".
std::string ScreenMessage(std::string_view format, const DateTime& now,
                          std::initializer_list<std::string_view> details = {});

}  // namespace clockcomm::core
