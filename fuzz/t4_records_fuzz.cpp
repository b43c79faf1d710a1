// Attendance datasets, user tables and event payloads as a terminal might send them: the decoders
// either refuse the data with T4DataError or return records that cover the data exactly and
// re-encode to the same bytes in their size.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "t4/net/t4_events.h"
#include "t4/net/t4_records.h"
#include "t4/net/t4_user_records.h"

namespace {

void Check(bool ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "t4_records_fuzz: %s\n", what);
    abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm::t4::net;
  if (size < 2) return 0;
  const uint8_t count = data[0];
  std::string_view in(reinterpret_cast<const char*>(data) + 1, size - 1);
  for (const auto& e : DecodeAttEvents(in)) {
    Check(e.user_id.size() <= 24, "an event id longer than its field");
    (void)e.time.ToDateTime();
  }
  try {
    const T4Dataset log = DecodeAttendance(in, count);
    Check(log.records.size() * log.record_size + 4 == in.size(), "records do not cover the log");
    for (size_t i = 0; i < log.records.size() && i < 64; ++i) {
      const std::string bytes = EncodeRecord(log.records[i], log.record_size);
      const std::string_view original = in.substr(4 + i * log.record_size, log.record_size);
      // Ids are read up to their first NUL, so only records padded with NULs re-encode exactly.
      if (log.record_size == kCompactRecordSize) Check(bytes == original, "8-byte record changed");
    }
  } catch (const T4DataError&) {
  }
  try {
    const auto users = DecodeUsers(in, count);
    Check(!users.empty() || in.size() == 4, "an empty user table with data");
  } catch (const T4DataError&) {
  }
  return 0;
}
