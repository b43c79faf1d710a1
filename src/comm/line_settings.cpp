#include "comm/line_settings.h"

#include <fmt/format.h>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::comm {

namespace {

constexpr const char* kParam = "Settings";

}  // namespace

bool LineSettings::IsSupportedRate(int baud) {
  for (int rate : {110, 300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200}) {
    if (rate == baud) return true;
  }
  return false;
}

LineSettings LineSettings::Parse(std::string_view text) {
  auto fields = core::Split(text, ',');
  auto fail = [&](const std::string& what) -> core::ArgumentException {
    return core::ArgumentException(
        fmt::format("Invalid settings \"{}\": {}.", core::Printable(text), what), kParam);
  };
  if (fields.size() != 4) throw fail("expected rate,parity,data bits,stop bits");
  LineSettings s;
  auto baud = core::ParseInt(fields[0]);
  if (!baud || !IsSupportedRate(*baud)) throw fail("unsupported rate \"" + fields[0] + "\"");
  s.baud = *baud;
  std::string parity = core::ToUpper(core::Trim(fields[1]));
  if (parity != "N" && parity != "O" && parity != "E") {
    throw fail("parity must be N, O or E");
  }
  s.parity = parity[0];
  auto data_bits = core::ParseInt(fields[2]);
  if (!data_bits || *data_bits < 5 || *data_bits > 8) throw fail("data bits must be 5 to 8");
  s.data_bits = *data_bits;
  auto stop_bits = core::ParseInt(fields[3]);
  if (!stop_bits || (*stop_bits != 1 && *stop_bits != 2)) throw fail("stop bits must be 1 or 2");
  s.stop_bits = *stop_bits;
  return s;
}

std::string LineSettings::ToString() const {
  return fmt::format("{},{},{},{}", baud, parity, data_bits, stop_bits);
}

std::chrono::milliseconds LineSettings::TransmitTime(size_t bytes) const {
  const long long bits_per_byte = 1 + data_bits + (parity == 'N' ? 0 : 1) + stop_bits;
  const long long bits = static_cast<long long>(bytes) * bits_per_byte;
  return std::chrono::milliseconds((bits * 1000 + baud - 1) / baud);
}

}  // namespace clockcomm::comm
