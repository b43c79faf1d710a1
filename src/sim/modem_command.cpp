#include "sim/modem_command.h"

#include <cctype>

namespace clockcomm::sim {

namespace {

using Kind = AtCommand::Kind;

// Reads an optional decimal number at pos; missing means 0, as modems take "E" for "E0".
int TakeNumber(std::string_view s, size_t& pos, bool* present = nullptr) {
  int value = 0;
  bool any = false;
  while (pos < s.size() && std::isdigit(static_cast<unsigned char>(s[pos]))) {
    value = value * 10 + (s[pos] - '0');
    if (value > 255 * 1000) return -1;
    ++pos;
    any = true;
  }
  if (present != nullptr) *present = any;
  return value;
}

}  // namespace

std::optional<std::vector<AtCommand>> ParseAtCommands(std::string_view s) {
  std::vector<AtCommand> commands;
  size_t pos = 0;
  while (pos < s.size()) {
    char c = static_cast<char>(std::toupper(static_cast<unsigned char>(s[pos++])));
    if (c == ' ') continue;
    AtCommand command;
    switch (c) {
      case 'D':
        command.kind = Kind::kDial;
        command.text = DialedNumber(s.substr(pos));
        commands.push_back(command);
        return commands;  // the rest of the line is the dial string
      case 'S': {
        bool present = false;
        command.register_number = TakeNumber(s, pos, &present);
        if (!present || command.register_number < 0 || command.register_number > 255 ||
            pos >= s.size()) {
          return std::nullopt;
        }
        if (s[pos] == '?') {
          ++pos;
          command.kind = Kind::kQueryRegister;
        } else if (s[pos] == '=') {
          ++pos;
          command.kind = Kind::kSetRegister;
          command.value = TakeNumber(s, pos);
          if (command.value < 0 || command.value > 255) return std::nullopt;
        } else {
          return std::nullopt;
        }
        commands.push_back(command);
        continue;
      }
      case '&':
        if (pos >= s.size() || !std::isalpha(static_cast<unsigned char>(s[pos]))) {
          return std::nullopt;
        }
        command.text = std::string("&") +
                       static_cast<char>(std::toupper(static_cast<unsigned char>(s[pos++])));
        command.value = TakeNumber(s, pos);
        commands.push_back(command);
        continue;
      default:
        break;
    }
    if (!std::isalpha(static_cast<unsigned char>(c))) return std::nullopt;
    command.value = TakeNumber(s, pos);
    if (command.value < 0) return std::nullopt;
    switch (c) {
      case 'Z':
        command.kind = Kind::kReset;
        break;
      case 'E':
        command.kind = Kind::kEcho;
        break;
      case 'Q':
        command.kind = Kind::kQuiet;
        break;
      case 'V':
        command.kind = Kind::kVerbose;
        break;
      case 'H':
        command.kind = Kind::kHangUp;
        break;
      case 'A':
        command.kind = Kind::kAnswer;
        break;
      case 'O':
        command.kind = Kind::kOnline;
        break;
      default:
        command.text = std::string(1, c);
        break;
    }
    commands.push_back(command);
  }
  return commands;
}

std::string DialedNumber(std::string_view dial_string) {
  std::string digits;
  for (char c : dial_string) {
    if (std::isdigit(static_cast<unsigned char>(c)) || c == '*' || c == '#') digits += c;
  }
  return digits;
}

std::string FormatResult(ResultCode code, bool verbose, std::optional<int> speed) {
  const char* word = "OK";
  int number = 0;
  switch (code) {
    case ResultCode::kOk:
      break;
    case ResultCode::kConnect:
      word = "CONNECT";
      number = !speed ? 1 : *speed == 1200 ? 5 : *speed == 2400 ? 10 : 1;
      break;
    case ResultCode::kRing:
      word = "RING";
      number = 2;
      break;
    case ResultCode::kNoCarrier:
      word = "NO CARRIER";
      number = 3;
      break;
    case ResultCode::kError:
      word = "ERROR";
      number = 4;
      break;
    case ResultCode::kNoDialtone:
      word = "NO DIALTONE";
      number = 6;
      break;
    case ResultCode::kBusy:
      word = "BUSY";
      number = 7;
      break;
  }
  if (!verbose) return std::to_string(number) + "\r";
  std::string text = word;
  if (code == ResultCode::kConnect && speed) text += " " + std::to_string(*speed);
  return "\r\n" + text + "\r\n";
}

}  // namespace clockcomm::sim
