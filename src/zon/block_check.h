// Tests applied to each packet a Zon/Tranz terminal sends during an upload.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::zon {

// "00", FS, EOT, CR LF in a row: the terminal has sent everything.
bool IsEndOfTransmission(std::string_view packet);
// "00", FS, ENQ, CR LF in a row: the terminal has sent everything and wants the tables.
bool IsEndOfUpload(std::string_view packet);
// The exclusive-or of every byte of the text.
char BlockCheckOf(std::string_view text);
// A packet (with its CR LF) is good when the character before CR LF is the exclusive-or of every
// character before it.
bool PacketCheckOk(std::string_view packet_with_crlf);
// The packet without its block check and CR LF.
std::string_view PacketBody(std::string_view packet_with_crlf);

}  // namespace clockcomm::zon
