// The counting and reading commands of the simulated terminal: GET_FREE_SIZES, the buffered read
// (PREPARE_BUFFER, READ_BUFFER) and the legacy whole-log read.
#include <algorithm>

#include "sim/t4_sim_data.h"
#include "sim/t4_terminal.h"
#include "t4/net/t4_bytes.h"

namespace clockcomm::sim {

using t4::net::GetU16;
using t4::net::GetU32;
using t4::net::PutU32;
using t4::net::T4Packet;
namespace cmd = t4::net::cmd;
namespace reply = t4::net::reply;

namespace {

// The largest dataset PREPARE_BUFFER answers inline, and the largest single-DATA chunk.
constexpr size_t kInlineLimit = 1024;
constexpr size_t kUdpDataPacket = 1024;
constexpr uint32_t kUserCapacity = 10000, kTemplateCapacity = 3000, kLogCapacity = 100000;
// The descriptor fault: a total 48 bytes past the dataset (160 announced against 112 held).
constexpr size_t kMismatchPadding = 48;

}  // namespace

T4Terminal::Answer T4Terminal::OnFreeSizes(const T4Packet& r, Session& s, uint16_t id) {
  const auto users = static_cast<uint32_t>(users_.size());
  const auto count = static_cast<uint32_t>(
      std::max<int64_t>(0, static_cast<int64_t>(log_.size()) + faults_.miscount));
  uint32_t values[23] = {};
  values[4] = users;
  values[5] = kUserCapacity - users;
  values[6] = users;  // one template each
  values[7] = kTemplateCapacity - users;
  values[8] = count;
  values[9] = kLogCapacity - std::min(count, kLogCapacity);
  values[12] = 1;
  values[14] = kTemplateCapacity;
  values[15] = kUserCapacity;
  values[16] = kLogCapacity;
  values[17] = values[7];
  values[18] = values[5];
  values[19] = values[9];
  if (faults_.clear_after_count) {  // someone else clears the log just after the count
    faults_.clear_after_count = false;
    log_.clear();
  }
  std::string data;
  if (r.data.size() == 1) {
    const auto index = static_cast<uint8_t>(r.data[0]);
    if (index >= 23) return {{Reply(s, reply::kError, id)}};
    PutU32(data, values[index]);
  } else {
    for (size_t i = 0; i < (faults_.free_sizes_80 ? 20u : 23u); ++i) PutU32(data, values[i]);
  }
  return {{Reply(s, reply::kOk, id, std::move(data))}};
}

std::string T4Terminal::Dataset() const {
  return t4::net::EncodeAttendance(log_, config_.record_size);
}

T4Terminal::Answer T4Terminal::OnPrepareBuffer(const T4Packet& r, Session& s, uint16_t id) {
  if (r.data.size() != 11 || faults_.refuse_buffered) return {{Reply(s, reply::kError, id)}};
  const uint16_t inner = GetU16(r.data, 1);
  const uint32_t table = GetU32(r.data, 3);
  std::string dataset;
  if (inner == cmd::kAttLogRead && table == 0) {
    dataset = Dataset();
    if (faults_.descriptor_mismatch) dataset.append(kMismatchPadding, '\0');
  } else if (inner == 9 && table == 5) {
    dataset = t4::net::EncodeUsers(users_, UserRecordSize(config_.record_size));
  } else {
    return {{Reply(s, reply::kError, id)}};
  }
  if (dataset.size() <= kInlineLimit) {
    ++stats_.reads_served;
    return {{Reply(s, reply::kData, id, std::move(dataset))}};
  }
  // Clients ignore the buffer's hash; a value that changes with the buffer will do.
  const uint32_t hash = static_cast<uint32_t>(dataset.size() * 2654435761u) ^ stats_.reads_served;
  std::string descriptor(1, '\0');
  PutU32(descriptor, static_cast<uint32_t>(dataset.size()));
  PutU32(descriptor, static_cast<uint32_t>(dataset.size()));
  PutU32(descriptor, hash);
  s.buffer = std::move(dataset);
  return {{Reply(s, reply::kOk, id, std::move(descriptor))}};
}

T4Terminal::Answer T4Terminal::OnReadBuffer(const T4Packet& r, Session& s, uint16_t id) {
  if (r.data.size() < 8 || !s.buffer) return {{Reply(s, reply::kError, id)}};
  const uint64_t offset = GetU32(r.data, 0), length = GetU32(r.data, 4);
  if (offset + length > s.buffer->size()) return {{Reply(s, reply::kError, id)}};
  if (length == 0) return {{Reply(s, reply::kOk, id)}};
  ++stats_.reads_served;
  const std::string_view chunk = std::string_view(*s.buffer).substr(offset, length);
  if (length <= kInlineLimit && !faults_.prepare_small_chunks) {
    return {{Reply(s, reply::kData, id, std::string(chunk))}};
  }
  return Chunked(s, id, chunk, s.id);
}

T4Terminal::Answer T4Terminal::OnAttLogRead(Session& s, uint16_t id) {
  ++stats_.reads_served;
  const std::string dataset = Dataset();
  return Chunked(s, id, dataset, static_cast<uint16_t>(dataset.size() & 0xFFFF));
}

T4Terminal::Answer T4Terminal::Chunked(const Session& s, uint16_t id, std::string_view bytes,
                                       uint16_t closing_session) {
  const size_t packet = s.link.id > 0 ? config_.max_data_packet : kUdpDataPacket;
  Answer answer;
  std::string announce;
  PutU32(announce, static_cast<uint32_t>(bytes.size()));
  PutU32(announce, static_cast<uint32_t>(packet));
  answer.push_back({Reply(s, reply::kPrepareData, id, std::move(announce))});
  uint16_t index = 0;
  for (size_t at = 0; at < bytes.size(); at += packet, ++index) {
    answer.push_back(
        {T4Packet{reply::kData, index, id, std::string(bytes.substr(at, packet))}, {}, true});
  }
  answer.push_back({T4Packet{reply::kOk, closing_session, id, {}}});
  return answer;
}

}  // namespace clockcomm::sim
