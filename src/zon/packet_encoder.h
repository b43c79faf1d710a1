// The lines a Zon/Tranz terminal sends, built from their parts: header, punch data packets, the
// two end packets and the hours request. The program reads these lines; the simulators and the
// tests write them, so both sides share one layout and one block check.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/date_time.h"
#include "zon/zon_header_packet.h"

namespace clockcomm::zon {

// The body, its block check and CR LF.
std::string WithBlockCheck(std::string_view body);
// STX "1" FS "[" FS application FS clock name FS clock number FS upload type FS FF, checked.
std::string EncodeHeader(const ZonHeaderPacket& header);
// The thirteen punch fields as given, checked.
std::string EncodeData(std::string_view punch_fields);
// "00" FS EOT CR LF: the batch is complete (no block check).
std::string EncodeEndOfTransmission();
// "00" FS ENQ CR LF: the batch is complete and the terminal wants its validation tables.
std::string EncodeEndOfUpload();
// ENQ "HRS" FS badge FS yymmddhhmm CR LF.
std::string EncodeHoursRequest(int32_t badge, const core::DateTime& when);

}  // namespace clockcomm::zon
