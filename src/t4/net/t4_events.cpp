#include "t4/net/t4_events.h"

#include <cstdlib>

#include "t4/net/t4_bytes.h"

namespace clockcomm::t4::net {
namespace {

constexpr size_t kPartLength = 52;

T4AttEvent DecodeStringEvent(std::string_view p) {
  return {GetText(p, 0, 24), GetU8(p, 24), GetU8(p, 25), DecodeTime6(p.substr(26, 6)),
          p.size() == 36 ? GetU32(p, 32) : 0};
}

}  // namespace

std::vector<T4AttEvent> DecodeAttEvents(std::string_view p) {
  switch (p.size()) {
    case 10:
    case 14:
      return {{std::to_string(GetU16(p, 0)), GetU8(p, 2), GetU8(p, 3), DecodeTime6(p.substr(4, 6)),
               p.size() == 14 ? GetU32(p, 10) : 0}};
    case 12:
      return {
          {std::to_string(GetU32(p, 0)), GetU8(p, 4), GetU8(p, 5), DecodeTime6(p.substr(6, 6)), 0}};
    case 32:
    case 36:
    case 37:
      return {DecodeStringEvent(p)};
    default:
      break;
  }
  if (p.size() < kPartLength) return {};
  if (p.size() % kPartLength != 0) return {DecodeStringEvent(p.substr(0, 32))};
  std::vector<T4AttEvent> events;
  for (size_t at = 0; at < p.size(); at += kPartLength) {
    events.push_back(DecodeStringEvent(p.substr(at, 32)));
  }
  return events;
}

std::string EncodeAttEvent(const T4AttEvent& e, size_t length) {
  std::string p;
  const auto number = static_cast<uint32_t>(std::strtoul(e.user_id.c_str(), nullptr, 10));
  if (length == 10 || length == 14) {
    PutU16(p, static_cast<uint16_t>(number));
    PutU8(p, e.verify);
    PutU8(p, e.state);
    p += EncodeTime6(e.time);
    if (length == 14) PutU32(p, e.work_code);
  } else if (length == 12) {
    PutU32(p, number);
    PutU8(p, e.verify);
    PutU8(p, e.state);
    p += EncodeTime6(e.time);
  } else {
    PutText(p, e.user_id, 24);
    PutU8(p, e.verify);
    PutU8(p, e.state);
    p += EncodeTime6(e.time);
    if (length == 36) PutU32(p, e.work_code);
    p.resize(length, '\0');
  }
  return p;
}

}  // namespace clockcomm::t4::net
