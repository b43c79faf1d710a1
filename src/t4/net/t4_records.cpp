#include "t4/net/t4_records.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

#include "t4/net/t4_bytes.h"
#include "t4/net/t4_time_code.h"

namespace clockcomm::t4::net {
namespace {

T4Record DecodeRecord(std::string_view bytes, size_t size) {
  T4Record r;
  if (size >= kStringRecordSize) {
    r.uid = GetU16(bytes, 0);
    r.user_id = GetText(bytes, 2, 24);
    r.verify = GetU8(bytes, 26);
    r.time = GetU32(bytes, 27);
    r.state = GetU8(bytes, 31);
    r.work_code = GetU32(bytes, 32);
    r.extra = std::string(bytes.substr(36, size - 36));
  } else if (size == kExtendedRecordSize) {
    r.user_id = std::to_string(GetU32(bytes, 0));
    r.time = GetU32(bytes, 4);
    r.state = GetU8(bytes, 8);
    r.verify = GetU8(bytes, 9);
    r.extra = std::string(bytes.substr(10, 2));
    r.work_code = GetU32(bytes, 12);
  } else {
    r.uid = GetU16(bytes, 0);
    r.verify = GetU8(bytes, 2);
    r.time = GetU32(bytes, 3);
    r.state = GetU8(bytes, 7);
  }
  return r;
}

bool SmallCode(uint8_t value, uint8_t largest) { return value <= largest || value == 255; }

// A record that decodes sensibly in this size: a date that exists, verify and state bytes that are
// small numbers or 255 (a state may carry the rejected bit), an id of printable characters.
bool Plausible(const T4Record& r) {
  if (!DecodeTimeCode(r.time).ToDateTime()) return false;
  if (!std::all_of(r.user_id.begin(), r.user_id.end(),
                   [](char c) { return c >= 0x20 && c < 0x7F; })) {
    return false;
  }
  return SmallCode(r.verify, 63) && SmallCode(static_cast<uint8_t>(r.state & 0x7F), 15);
}

// The share of a spread sample of the records that decodes sensibly in this size, 0 when the size
// does not divide the log. Records with the empty time 0 tell nothing (zeros decode as anything)
// and are left out of the sample.
double SampleScore(std::string_view records, size_t size) {
  if (size == 0 || records.size() % size != 0) return 0;
  const size_t count = records.size() / size;
  const size_t step = std::max<size_t>(1, count / 64);
  size_t sampled = 0, good = 0;
  for (size_t i = 0; i < count; i += step) {
    const T4Record r = DecodeRecord(records.substr(i * size, size), size);
    if (r.time == 0) continue;
    ++sampled;
    if (Plausible(r)) ++good;
  }
  return sampled == 0 ? 0 : static_cast<double>(good) / static_cast<double>(sampled);
}

bool KnownSize(size_t size) {
  return size == kCompactRecordSize || size == kExtendedRecordSize || size >= kStringRecordSize;
}

size_t ChooseSize(std::string_view records, uint32_t count, std::optional<size_t> hint) {
  const size_t length = records.size();
  std::optional<size_t> by_count;
  if (count > 0 && length % count == 0 && KnownSize(length / count)) by_count = length / count;
  if (by_count && SampleScore(records, *by_count) >= 0.5) return *by_count;
  // The size whose records decode best; the terminal's hint breaks a tie, then this order.
  size_t best = 0;
  double best_score = 0.5;  // at least half of the sample must make sense
  for (size_t size :
       {kStringRecordSize, kExtendedRecordSize, kCompactRecordSize, kLongStringRecordSize}) {
    const double score = SampleScore(records, size);
    if (score > best_score || (score == best_score && best != 0 && hint == size)) {
      best = size;
      best_score = score;
    }
  }
  if (best != 0) return best;
  // Nothing decodes sensibly: the count still says how the log is cut, and each record is then
  // judged (and refused) on its own.
  if (by_count) return *by_count;
  throw T4DataError(
      fmt::format("no record size fits the {}-byte attendance log of {} records", length, count));
}

}  // namespace

T4Dataset DecodeAttendance(std::string_view dataset, uint32_t count, std::optional<size_t> hint) {
  if (dataset.size() < 4) {
    throw T4DataError(fmt::format("the attendance log is {} bytes long, too short for its length",
                                  dataset.size()));
  }
  const uint32_t length = GetU32(dataset, 0);
  if (static_cast<uint64_t>(length) + 4 != dataset.size()) {
    throw T4DataError(
        fmt::format("the attendance log says {} bytes and {} came", length, dataset.size() - 4));
  }
  T4Dataset result;
  if (length == 0) return result;
  const std::string_view records = dataset.substr(4);
  result.record_size = ChooseSize(records, count, hint);
  result.records.reserve(records.size() / result.record_size);
  for (size_t at = 0; at < records.size(); at += result.record_size) {
    result.records.push_back(
        DecodeRecord(records.substr(at, result.record_size), result.record_size));
  }
  return result;
}

std::string EncodeRecord(const T4Record& r, size_t size) {
  std::string bytes;
  bytes.reserve(size);
  if (size >= kStringRecordSize) {
    PutU16(bytes, r.uid);
    PutText(bytes, r.user_id, 24);
    PutU8(bytes, r.verify);
    PutU32(bytes, r.time);
    PutU8(bytes, r.state);
    PutU32(bytes, r.work_code);
    if (r.extra.size() == size - 36) {
      bytes += r.extra;
    } else {
      bytes += std::string("\xff\0\0\0", 4);  // the reserved bytes as terminals fill them
      bytes.append(size - 40, '\0');
    }
  } else if (size == kExtendedRecordSize) {
    PutU32(bytes, static_cast<uint32_t>(std::strtoul(r.user_id.c_str(), nullptr, 10)));
    PutU32(bytes, r.time);
    PutU8(bytes, r.state);
    PutU8(bytes, r.verify);
    PutU16(bytes, 0);
    PutU32(bytes, r.work_code);
  } else {
    PutU16(bytes, r.uid);
    PutU8(bytes, r.verify);
    PutU32(bytes, r.time);
    PutU8(bytes, r.state);
  }
  return bytes;
}

std::string EncodeAttendance(const std::vector<T4Record>& records, size_t size) {
  std::string bytes;
  bytes.reserve(4 + records.size() * size);
  PutU32(bytes, static_cast<uint32_t>(records.size() * size));
  for (const auto& r : records) bytes += EncodeRecord(r, size);
  return bytes;
}

}  // namespace clockcomm::t4::net
