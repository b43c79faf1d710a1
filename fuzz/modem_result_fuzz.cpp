// What a modem says back, in any pieces: a command's answer is nothing or one whole result line,
// and a CONNECT line always gives a speed to run the call at.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "comm/hayes_modem.h"
#include "comm/stub_connection.h"
#include "comm/terminal_line.h"
#include "core/clock.h"
#include "core/text.h"

// Input: the modem's bytes; a 0x01 byte splits them into the pieces the reads return.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> pieces;
  for (const std::string& piece : core::Split(input, '\x01')) {
    if (!piece.empty()) pieces.push_back(piece);
  }
  core::ManualClock clock;
  comm::StubConnection line(pieces, &clock);
  comm::HayesModem modem(line, clock, std::chrono::seconds(5), comm::WakeSet{});
  for (const char* command : {"ATZ", "ATDT5551234"}) {
    const std::string result = modem.Command(command);
    if (result.empty()) continue;
    if (!comm::HayesModem::IsResultCode(result)) abort();
    if (result.find_first_of("\r\n") != std::string::npos) abort();
    if (result.rfind("CONNECT", 0) == 0) {
      const std::string speed = comm::ConnectSpeed(result);
      if (speed.empty() || speed.find_first_not_of("0123456789") != std::string::npos ||
          std::stoll(speed) <= 0) {
        abort();
      }
    }
  }
  modem.TakeLeftover();
  return 0;
}
