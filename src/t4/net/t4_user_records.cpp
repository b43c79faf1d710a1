#include "t4/net/t4_user_records.h"

#include <fmt/format.h>

#include <cstdlib>

#include "t4/net/t4_bytes.h"
#include "t4/net/t4_records.h"

namespace clockcomm::t4::net {
namespace {

T4UserRecord DecodeUser(std::string_view b, size_t size) {
  T4UserRecord u;
  u.uid = GetU16(b, 0);
  u.privilege = GetU8(b, 2);
  if (size == kNumericUserSize) {
    u.password = GetText(b, 3, 5);
    u.name = GetText(b, 8, 8);
    u.card = GetU32(b, 16);
    u.group = GetU8(b, 21);
    u.user_id = std::to_string(GetU32(b, 24));
  } else {
    u.password = GetText(b, 3, 8);
    u.name = GetText(b, 11, 24);
    u.card = GetU32(b, 35);
    u.group = GetU8(b, 39);
    u.user_id = GetText(b, 48, 24);
  }
  return u;
}

}  // namespace

std::vector<T4UserRecord> DecodeUsers(std::string_view dataset, uint32_t user_count) {
  if (dataset.size() < 4 || static_cast<uint64_t>(GetU32(dataset, 0)) + 4 != dataset.size()) {
    throw T4DataError(
        fmt::format("the user table's length disagrees with its {} bytes", dataset.size()));
  }
  const std::string_view records = dataset.substr(4);
  if (records.empty()) return {};
  size_t size = 0;
  if (user_count > 0 && records.size() == user_count * kStringUserSize) size = kStringUserSize;
  if (user_count > 0 && records.size() == user_count * kNumericUserSize) size = kNumericUserSize;
  if (size == 0) size = records.size() % kStringUserSize == 0 ? kStringUserSize : 0;
  if (size == 0) size = records.size() % kNumericUserSize == 0 ? kNumericUserSize : 0;
  if (size == 0) {
    throw T4DataError(fmt::format("no user record size fits the {}-byte user table of {} users",
                                  records.size(), user_count));
  }
  std::vector<T4UserRecord> users;
  for (size_t at = 0; at < records.size(); at += size) {
    users.push_back(DecodeUser(records.substr(at, size), size));
  }
  return users;
}

std::string EncodeUsers(const std::vector<T4UserRecord>& users, size_t size) {
  std::string b;
  PutU32(b, static_cast<uint32_t>(users.size() * size));
  for (const auto& u : users) {
    PutU16(b, u.uid);
    PutU8(b, u.privilege);
    if (size == kNumericUserSize) {
      PutText(b, u.password, 5);
      PutText(b, u.name, 8);
      PutU32(b, u.card);
      PutU8(b, 0);
      PutU8(b, u.group);
      PutU16(b, 0);  // time zone
      PutU32(b, static_cast<uint32_t>(std::strtoul(u.user_id.c_str(), nullptr, 10)));
    } else {
      PutText(b, u.password, 8);
      PutText(b, u.name, 24);
      PutU32(b, u.card);
      PutU8(b, u.group);
      b.append(8, '\0');  // time-zone flag and zones
      PutText(b, u.user_id, 24);
    }
  }
  return b;
}

}  // namespace clockcomm::t4::net
