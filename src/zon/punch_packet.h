// A Zon/Tranz data packet's body as a punch: the TCD fields without the clock number, which the
// call's header gave.
#pragma once

#include <string_view>

#include "records/tcd_record.h"

namespace clockcomm::zon {

// Parses the body (block check and CR LF already removed). A dash before a closing quote is keypad
// filler and is dropped. Throws what the TCD parser throws for a malformed line.
records::TcdRecord ParsePunchPacket(std::string_view body, int clock_number);

}  // namespace clockcomm::zon
