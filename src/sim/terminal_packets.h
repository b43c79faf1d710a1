// The lines a Zon/Tranz terminal sends: header, punch data packets, end packets and the hours
// request, each ended by CRLF, the checked ones with their block check character.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/date_time.h"

namespace clockcomm::sim {

// Exclusive-or of every byte of the text.
char BlockCheck(std::string_view text);

// STX "1" FS "[" FS app FS name FS number FS type FS FF bcc CRLF.
std::string HeaderPacket(std::string_view application, std::string_view clock_name,
                         int32_t clock_number, std::string_view upload_type);
// The thirteen punch fields as given, then the block check and CRLF.
std::string DataPacket(std::string_view punch_fields);
// "00" FS EOT CRLF: the batch is complete.
std::string EndOfTransmissionPacket();
// "00" FS ENQ CRLF: the batch is complete and the terminal wants its validation tables.
std::string EndOfUploadPacket();
// ENQ "HRS" FS badge FS yymmddhhmm CRLF.
std::string HoursRequestLine(int32_t badge, const core::DateTime& when);

// The same packet with its block check character flipped, so that the check fails.
std::string WithBadBlockCheck(std::string packet);

}  // namespace clockcomm::sim
