#include "t4/net/t4_session.h"

#include <fmt/format.h>

#include <map>
#include <utility>

#include "t4/net/t4_auth_key.h"
#include "t4/net/t4_bytes.h"
#include "t4/net/t4_records.h"

namespace clockcomm::t4::net {
namespace {

using Clock = std::chrono::steady_clock;

std::string HexOf(std::string_view bytes) {
  std::string text;
  for (unsigned char c : bytes) text += fmt::format("{}{:02x}", text.empty() ? "" : " ", c);
  return text;
}

bool Success(uint16_t code) { return code == reply::kOk || code == reply::kData; }

}  // namespace

T4ReplyError::T4ReplyError(uint16_t command, uint16_t code, const std::string& where)
    : core::Error(fmt::format("{} answered {} to command {}", where, ReplyName(code),
                              CommandName(command))),
      command_(command),
      code_(code) {}

T4KeyRefused::T4KeyRefused(const std::string& where)
    : core::Error(where + " refused the communication key") {}

T4Session::T4Session(std::unique_ptr<T4Transport> transport, T4Timeouts timeouts,
                     comm::WakeSet wake)
    : transport_(std::move(transport)),
      timeouts_(timeouts),
      wake_(std::move(wake)),
      last_heard_(Clock::now()) {}

void T4Session::Open(uint32_t key) {
  session_ = 0;
  reply_id_ = 0;
  Send(cmd::kConnect, 0, {});
  // CONNECT is answered like any command, under reply id 0.
  std::optional<T4Packet> answer;
  for (int attempt = 0; attempt < timeouts_.tries && !answer; ++attempt) {
    if (attempt > 0) Send(cmd::kConnect, 0, {});
    answer = NextReply(0, Clock::now() + timeouts_.reply);
  }
  if (!answer) {
    LoseSession(fmt::format("no answer to command CONNECT from {} within {} s", Describe(),
                            timeouts_.reply.count() * timeouts_.tries / 1000.0));
  }
  session_ = answer->session;
  if (answer->code == reply::kOk) return;
  if (answer->code != reply::kUnauth) throw T4ReplyError(cmd::kConnect, answer->code, Describe());
  const T4Packet proof = Exchange(cmd::kAuth, AuthToken(key, session_), true);
  if (proof.code == reply::kUnauth) throw T4KeyRefused(Describe());
}

void T4Session::Close() {
  if (lost_) return;
  try {
    const uint16_t id = NextId();
    Send(cmd::kExit, id, {});
    NextReply(id, Clock::now() + std::chrono::milliseconds(500));
  } catch (const std::exception&) {
    // The terminal ends an idle session by itself; there is nothing left to do.
  }
  lost_ = true;
}

T4Packet T4Session::Request(uint16_t command, std::string_view data) {
  return Exchange(command, data, false);
}

T4Packet T4Session::Exchange(uint16_t command, std::string_view data, bool unauth_answers) {
  CheckUsable();
  const uint16_t id = NextId();
  for (int attempt = 0; attempt < timeouts_.tries; ++attempt) {
    Send(command, id, data);  // the same id again: "send me your answer again"
    const auto answer = NextReply(id, Clock::now() + timeouts_.reply);
    if (!answer) continue;
    if (Success(answer->code) || (unauth_answers && answer->code == reply::kUnauth)) {
      return *answer;
    }
    throw T4ReplyError(command, answer->code, Describe());
  }
  LoseSession(fmt::format("no answer to command {} from {} within {} s", CommandName(command),
                          Describe(), timeouts_.reply.count() * timeouts_.tries / 1000.0));
}

std::string T4Session::RequestData(uint16_t command, std::string_view data, size_t expected) {
  CheckUsable();
  std::string why;
  for (int attempt = 0; attempt < timeouts_.chunk_tries; ++attempt) {
    const uint16_t id = NextId();  // a new id: the terminal sends the data again
    Send(command, id, data);
    try {
      if (auto answer = Collect(command, id, expected)) return *answer;
      why = fmt::format("silence of {} s", timeouts_.data_silence.count() / 1000.0);
    } catch (const T4DataError& e) {
      why = e.what();
    }
  }
  LoseSession(fmt::format("command {} to {} failed {} times, last: {}", CommandName(command),
                          Describe(), timeouts_.chunk_tries, why));
}

std::optional<std::string> T4Session::Collect(uint16_t command, uint16_t id, size_t expected) {
  std::optional<uint32_t> announced;
  std::map<uint16_t, std::string> parts;  // by packet index: datagrams may come out of order
  size_t received = 0;
  auto whole = [&]() -> std::optional<std::string> {
    if (!announced || received != *announced) return std::nullopt;
    if (parts.size() == 1 && parts.begin()->first == 0) return std::move(parts.begin()->second);
    std::string answer;
    answer.reserve(received);
    uint16_t next = 0;
    for (auto& [index, part] : parts) {
      if (index != next++) return std::nullopt;
      answer += part;
    }
    return answer;
  };
  for (;;) {
    auto packet = NextReply(id, Clock::now() + timeouts_.data_silence);
    if (!packet) return whole();  // the closing ACK_OK may be all that was lost
    switch (packet->code) {
      case reply::kData:
        if (!announced) {
          // The whole answer in one packet, unless its PREPARE_DATA was lost on the way.
          if (expected == 0 || packet->data.size() == expected) return packet->data;
          throw T4DataError(
              fmt::format("a DATA packet of {} bytes came unannounced where {} "
                          "were asked",
                          packet->data.size(), expected));
        }
        if (const size_t size = packet->data.size();
            parts.emplace(packet->session, std::move(packet->data)).second) {
          received += size;
        }
        if (received > *announced) {
          throw T4DataError(
              fmt::format("{} bytes came where {} were announced", received, *announced));
        }
        break;
      case reply::kPrepareData:
        if (packet->data.size() < 4) throw T4DataError("PREPARE_DATA without a length");
        announced = GetU32(packet->data, 0);
        if (expected != 0 && *announced != expected) {
          throw T4DataError(
              fmt::format("{} bytes announced where {} were asked", *announced, expected));
        }
        break;
      case reply::kOk:
        if (!announced) return std::string();  // a zero-length answer
        if (auto answer = whole()) return answer;
        throw T4DataError(
            fmt::format("{} of {} bytes came, in {} packets", received, *announced, parts.size()));
      default:
        throw T4ReplyError(command, packet->code, Describe());
    }
  }
}

std::optional<T4Packet> T4Session::NextReply(uint16_t id, comm::SteadyTime deadline) {
  for (;;) {
    std::optional<T4Packet> packet;
    try {
      packet = transport_->Receive(deadline, wake_);
    } catch (const T4StreamError& e) {
      out_of_step_ = true;
      LoseSession(e.what());
    } catch (const std::exception& e) {
      LoseSession(e.what());
    }
    if (!packet) {
      if (wake_.AnyRequested()) LoseSession("stopped while waiting for " + Describe());
      return std::nullopt;
    }
    last_heard_ = Clock::now();
    if (packet->code == reply::kEvent) {
      OnEvent(*packet);
      continue;
    }
    if (packet->reply_id == id) return packet;
    // A late answer to an earlier try: ignored.
  }
}

bool T4Session::WaitForEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) {
  CheckUsable();
  for (;;) {
    std::optional<T4Packet> packet;
    try {
      packet = transport_->Receive(deadline, wake);
    } catch (const std::exception& e) {
      LoseSession(e.what());
    }
    if (!packet) return !wake.AnyRequested();
    last_heard_ = Clock::now();
    if (packet->code == reply::kEvent) {
      OnEvent(*packet);
      if (!events_.empty()) return true;
    }
  }
}

void T4Session::OnEvent(const T4Packet& packet) {
  T4Packet ack{reply::kOk, session_, packet.reply_id, {}};
  transport_->Send(ack);
  if (packet.session != kEventAttLog) return;  // only attendance events are asked for
  // A terminal that resends until acknowledged may repeat an event whose ACK it missed.
  const std::string identity = std::to_string(packet.reply_id) + ":" + packet.data;
  if (identity == last_event_ && packet.reply_id != 0) return;
  last_event_ = identity;
  auto events = DecodeAttEvents(packet.data);
  if (events.empty()) unknown_events_.push_back(HexOf(packet.data));
  for (auto& e : events) events_.push_back(std::move(e));
}

std::deque<T4AttEvent> T4Session::TakeEvents() { return std::exchange(events_, {}); }

std::deque<std::string> T4Session::TakeUnknownEvents() {
  return std::exchange(unknown_events_, {});
}

void T4Session::Send(uint16_t command, uint16_t id, std::string_view data) {
  try {
    transport_->Send({command, session_, id, std::string(data)});
  } catch (const std::exception& e) {
    LoseSession(e.what());
  }
}

void T4Session::CheckUsable() const {
  if (lost_) throw comm::ConnectionClosedError("the session with " + Describe() + " is lost");
}

void T4Session::LoseSession(const std::string& why) {
  lost_ = true;
  throw core::TimeoutException(why);
}

}  // namespace clockcomm::t4::net
