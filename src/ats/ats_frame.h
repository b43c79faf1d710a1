// The ATS terminals' frames: the LRC of two digits from '0' (10 to 15 are ":" to "?", not hex
// letters), the command frame, the two five-character frames (enquiry and reply), and the check
// of a received data frame. Terminal and source addresses travel as one character, 32 + address.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::ats {

inline constexpr char kSoh = 0x01;
inline constexpr char kStx = 0x02;
inline constexpr char kEtx = 0x03;
inline constexpr char kEot = 0x04;
inline constexpr char kEnq = 0x05;
inline constexpr char kAck = 0x06;
inline constexpr char kNak = 0x15;
inline constexpr char kGs = 0x1D;
inline constexpr char kRs = 0x1E;

// The letters of the enquiry frame.
inline constexpr char kStatusEnquiry = 'S';  // "are you ready?"
inline constexpr char kPollEnquiry = 'P';    // "send your next packet"

// Addresses 0..95 travel as the characters " " to the last printable one.
char AddressChar(int address);
int AddressOf(char c);

// XOR of every byte of text, as two characters '0' + high nibble, '0' + low nibble.
std::string ATSLRCGen(std::string_view text);

// SOH, source, terminal, STX, "\A", terminal, GS, command, ETX, LRC of all of it, EOT.
std::string CommandFrame(int source, int terminal, std::string_view command);
// ENQ, source, terminal, letter, EOT.
std::string EnquiryFrame(int source, int terminal, char letter);
// SOH, source, terminal, ACK or NAK, EOT.
std::string ReplyFrame(int source, int terminal, bool ack);

// A data frame as a terminal sends it (the command frame's layout, its command the packet's type
// and data): SOH at 1, STX at 4, ETX followed by the two LRC characters of SOH..ETX and EOT.
// Returns the frame's length when text begins with one whole good frame, 0 when more bytes could
// still make one, and -1 when it cannot (a bad LRC, a broken layout, or no SOH first).
int CheckDataFrame(std::string_view text);

// Where the packet type starts in a frame (position 9 counting from 1), and the frame's terminal
// address (position 3).
inline constexpr size_t kTypeOffset = 8;
inline constexpr size_t kAddressOffset = 2;
// The packet type: the two characters at position 9, or empty for a frame too short to have one.
std::string PacketType(std::string_view frame);

}  // namespace clockcomm::ats
