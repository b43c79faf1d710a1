#include "t4/net/t4_bytes.h"
#include "t4/net/t4_net_device.h"
#include "t4/net/t4_user_records.h"

// The terminal's users: read from its user table; writing them is not part of the protocol.
namespace clockcomm::t4::net {
namespace {

// PREPARE_BUFFER's data for the user table.
const std::string kUserTable("\x01\x09\x00\x05\x00\x00\x00\x00\x00\x00\x00", 11);

}  // namespace

std::vector<T4UserRecord> T4NetDevice::ReadUserTable() {
  const T4Packet sizes = session_->Request(cmd::kGetFreeSizes);
  const uint32_t users = sizes.data.size() >= 20 ? GetU32(sizes.data, 16) : 0;
  return DecodeUsers(ReadTable(kUserTable, false), users);
}

bool T4NetDevice::GetUser(int, const std::string& enroll_number, T4User& user) {
  bool found = false;
  const bool read = Run("GetUser", kFailedOrNoData, [&] {
    for (const auto& record : ReadUserTable()) {
      if (record.user_id != enroll_number) continue;
      found = true;
      user = T4User{record.user_id,
                    record.name,
                    record.password,
                    (record.privilege >> 1) & 7,
                    (record.privilege & 1) == 0,
                    {}};
    }
  });
  if (read && !found) {
    Fail(kNotFound, "the terminal has no user " + enroll_number);
    return false;
  }
  return read;
}

bool T4NetDevice::SetUser(int, const T4User& user) {
  Fail(kNotSupported, "writing user " + user.enroll_number +
                          " to the terminal is not part of the protocol this program speaks");
  return false;
}

bool T4NetDevice::DeleteUser(int, const std::string& enroll_number) {
  Fail(kNotSupported, "deleting user " + enroll_number +
                          " from the terminal is not part of the protocol this program speaks");
  return false;
}

}  // namespace clockcomm::t4::net
