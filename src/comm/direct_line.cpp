#include "comm/direct_line.h"

namespace clockcomm::comm {

void DirectLine::Open() {
  if (!options_.port_settings.empty()) line_.SetSettings(options_.port_settings);
  line_.Open(options_.device);
  line_.SetDtr(true);
}

LineEvent DirectLine::WaitForCall(SteadyTime deadline, const WakeSet& wake) {
  if (line_.WaitForInput(deadline, wake) != WaitResult::kReadable) return {};
  LineEvent event{LineEvent::Kind::kInput};
  event.data = line_.Read();
  return event;
}

}  // namespace clockcomm::comm
