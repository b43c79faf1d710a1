// Small text helpers over single-byte (Windows-1252) strings. Nothing here converts encodings.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace clockcomm::core {

std::string_view TrimView(std::string_view s);
std::string Trim(std::string_view s);
// Letter case in Windows-1252: ASCII, the accented letters 0xC0-0xDE <-> 0xE0-0xFE (less the
// signs 0xD7 and 0xF7), and the pairs 0x8A/0x9A, 0x8C/0x9C, 0x8E/0x9E, 0x9F/0xFF. Every other
// byte is its own case. Independent of the C locale.
char ToLowerChar(char c);
char ToUpperChar(char c);
std::string ToLower(std::string_view s);
std::string ToUpper(std::string_view s);
bool EqualsIgnoreCase(std::string_view a, std::string_view b);
bool StartsWithIgnoreCase(std::string_view s, std::string_view prefix);
// Splits at every occurrence of the separator, keeping empty fields ("a,,b" gives three).
std::vector<std::string> Split(std::string_view s, char separator);
std::string Join(const std::vector<std::string>& parts, std::string_view separator);
std::string ReplaceAll(std::string s, std::string_view from, std::string_view to);
// The number a text begins with, after leading blanks: "12abc" gives 12, "abc" gives 0, "-3" -3,
// "2.5x" 2.5. Like the classic BASIC Val().
double LeadingNumber(std::string_view s);
// LeadingNumber rounded to a 32-bit integer, saturating instead of overflowing.
int32_t LeadingInt32(std::string_view s);
// The whole text as a number (blanks around allowed), or nothing.
std::optional<double> ParseNumber(std::string_view s);
// The whole text as a 32-bit integer, or nothing.
std::optional<int> ParseInt(std::string_view s);
// A number as its ordinary shortest text: 6 as "6", 2.5 as "2.5".
std::string NumberText(double value);
// Whether the text holds a byte below 0x20 or DEL: what may not go into a packet's text field.
bool HasControlCharacter(std::string_view s);
// Shows control characters as <STX>, <FS> ... so packets can be logged readably.
std::string Printable(std::string_view s);

// Windows-1252 text as UTF-8, for what must be UTF-8 (the journal, JSON); the five unassigned
// bytes become U+FFFD.
std::string Utf8FromAnsi(std::string_view text);
// UTF-8 text as Windows-1252, for what a client sends; nothing when the text is not valid UTF-8
// or holds a character Windows-1252 lacks.
std::optional<std::string> AnsiFromUtf8(std::string_view text);

}  // namespace clockcomm::core
