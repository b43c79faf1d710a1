#include "sim/t4_sim_data.h"

#include <algorithm>

#include "t4/net/t4_time_code.h"

namespace clockcomm::sim {

using t4::net::T4Record;
using t4::net::T4UserRecord;

std::vector<T4UserRecord> GenerateT4Users(size_t count) {
  std::vector<T4UserRecord> users;
  users.reserve(count);
  for (size_t i = 1; i <= count; ++i) {
    T4UserRecord u;
    u.uid = static_cast<uint16_t>(i);
    u.name = "User " + std::to_string(i);
    u.card = static_cast<uint32_t>(500000 + i);
    u.group = 1;
    u.user_id = std::to_string(1000 + i);
    users.push_back(std::move(u));
  }
  return users;
}

std::vector<T4Record> GenerateT4Records(size_t count, const std::vector<T4UserRecord>& users,
                                        const core::DateTime& now) {
  std::vector<T4Record> records;
  if (users.empty()) return records;
  records.reserve(count);
  // One punch every `step` seconds over all users: each user punches every users × step >= 60 s.
  const int64_t step = std::max<int64_t>(
      1, (60 + static_cast<int64_t>(users.size()) - 1) / static_cast<int64_t>(users.size()));
  const core::DateTime first = now.AddSeconds(-step * static_cast<int64_t>(count) - 60);
  for (size_t i = 0; i < count; ++i) {
    const auto& user = users[i % users.size()];
    T4Record r;
    r.uid = user.uid;
    r.user_id = user.user_id;
    r.verify = i % 5 == 4 ? 15 : 1;
    r.state = static_cast<uint8_t>(i / users.size() % 2);
    r.time = t4::net::EncodeTimeCode(first.AddSeconds(step * static_cast<int64_t>(i)));
    records.push_back(std::move(r));
  }
  return records;
}

std::vector<T4Record> BadT4Records(size_t record_size, const core::DateTime& now) {
  const uint32_t good = t4::net::EncodeTimeCode(now.AddSeconds(-3600));
  const uint32_t feb30 = ((24 * 372 + 1 * 31 + 29) * 86400u) + 8 * 3600;
  auto rec = [](uint16_t uid, std::string id, uint32_t time, uint8_t state) {
    T4Record r;
    r.uid = uid;
    r.user_id = std::move(id);
    r.verify = 1;
    r.state = state;
    r.time = time;
    return r;
  };
  std::vector<T4Record> bad = {
      rec(1, "1001", feb30, 0),                      // 2024-02-30
      rec(1, "1001", t4::net::kMaxTimeCode + 1, 0),  // 2100-01-01
      rec(1, "1001", 0, 0),                          // encoded 0
      rec(0, "0", good, 0),                          // badge 0
      rec(1, "1001", good + 120, 255),               // no state chosen
      rec(1, "1001", good + 240, 7),                 // state 7
  };
  if (record_size >= t4::net::kStringRecordSize) {
    bad.push_back(rec(1, "", good + 360, 0));
    bad.push_back(rec(2, "12AB", good + 480, 0));
    bad.push_back(rec(3, "123456789012345678901234", good + 600, 0));
    bad.push_back(rec(4, "007", good + 720, 0));
  }
  if (record_size == t4::net::kCompactRecordSize) bad.push_back(rec(9999, "", good + 840, 0));
  return bad;
}

std::map<std::string, std::string> T4OptionTable(size_t record_size,
                                                 const std::string& serial_number,
                                                 bool contradict) {
  const bool text_ids = (record_size >= t4::net::kStringRecordSize) != contradict;
  return {
      {"~Platform", text_ids ? "SIM2_TFT" : "SIM1"},
      {"~SSR", text_ids ? "1" : "0"},
      {"~ExtendFmt", (record_size == t4::net::kCompactRecordSize) == contradict ? "1" : "0"},
      {"~UserExtFmt", text_ids ? "1" : "0"},
      {"~SerialNumber", serial_number},
      {"~DeviceName", "T4 simulator"},
      {"~OS", "1"},
      {"~PIN2Width", text_ids ? "9" : "5"},
      {"~IsABCPinEnable", "0"},
      {"IsSupportABCPin", "0"},
      {"WorkCode", "0"},
      {"~ProductTime", "2015-04-28 10:00:00"},
      {"MAC", "00:17:61:00:00:01"},
      {"IPAddress", "127.0.0.1"},
      {"UDPPort", "4370"},
      {"TCPPort", "4370"},
  };
}

size_t DefaultEventLength(size_t record_size) {
  if (record_size >= t4::net::kStringRecordSize) return 36;
  return record_size == t4::net::kExtendedRecordSize ? 12 : 10;
}

size_t UserRecordSize(size_t record_size) {
  return record_size >= t4::net::kStringRecordSize ? t4::net::kStringUserSize
                                                   : t4::net::kNumericUserSize;
}

}  // namespace clockcomm::sim
