#include "comm/modem_strings.h"

namespace clockcomm::comm {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsBlankOrLineEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

std::string AutoAnswerOffInit(std::string_view init) {
  while (!init.empty() && IsBlankOrLineEnd(init.back())) init.remove_suffix(1);
  if (init.empty()) return kAutoAnswerOffInit;

  std::string out;
  out.reserve(init.size() + 4);
  bool found = false;
  for (size_t i = 0; i < init.size();) {
    // "S0=" and its digits (none means 0 to a modem); "S10=2" or "S0?" are other registers or
    // queries and stay.
    if ((init[i] == 'S' || init[i] == 's') && init.compare(i + 1, 2, "0=") == 0) {
      size_t end = i + 3;
      while (end < init.size() && IsDigit(init[end])) ++end;
      out += "S0=0";
      found = true;
      i = end;
      continue;
    }
    out += init[i++];
  }
  if (!found) out += "S0=0";
  return out;
}

}  // namespace clockcomm::comm
