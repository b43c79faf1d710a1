#include "zon/protocol_char.h"

namespace clockcomm::zon {

const ProtocolChar& ProtocolChar::Shared() {
  static const ProtocolChar instance;
  return instance;
}

}  // namespace clockcomm::zon
