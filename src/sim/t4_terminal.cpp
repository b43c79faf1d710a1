#include "sim/t4_terminal.h"

#include <algorithm>
#include <utility>

#include "sim/t4_sim_data.h"
#include "t4/net/t4_auth_key.h"
#include "t4/net/t4_bytes.h"
#include "t4/net/t4_events.h"
#include "t4/net/t4_time_code.h"

namespace clockcomm::sim {

using t4::net::T4Packet;
using t4::net::T4Record;
namespace cmd = t4::net::cmd;
namespace reply = t4::net::reply;

namespace {

constexpr char kVersion[] = "Ver 6.60 Apr 28 2015";

std::string WithNul(std::string text) {
  text.push_back('\0');
  return text;
}

}  // namespace

T4Terminal::T4Terminal(T4SimConfig config, core::Clock& clock)
    : config_(std::move(config)),
      clock_(clock),
      event_length_(config_.event_length ? config_.event_length
                                         : DefaultEventLength(config_.record_size)),
      faults_(config_.faults) {
  const size_t user_count = config_.users ? config_.users : (config_.records ? 10 : 0);
  users_ = GenerateT4Users(user_count);
  log_ = GenerateT4Records(config_.records, users_, clock_.Now());
  if (config_.bad_records) {
    for (auto& r : BadT4Records(config_.record_size, clock_.Now())) log_.push_back(std::move(r));
  }
  options_ =
      T4OptionTable(config_.record_size, config_.serial_number, config_.faults.contradict_options);
}

T4Packet T4Terminal::Reply(const Session& session, uint16_t code, uint16_t id,
                           std::string data) const {
  return T4Packet{code, session.id, id, std::move(data)};
}

std::vector<T4Outgoing> T4Terminal::Handle(std::string_view bytes, const T4Link& link) {
  std::lock_guard lock(mutex_);
  const auto request = t4::net::Decode(bytes);
  if (!request) {
    ++stats_.bad_checksums;
    return {};
  }
  if (request->code == cmd::kConnect) return OnConnect(*request, link);
  const auto it = sessions_.find(request->session);
  if (it == sessions_.end() || it->second.link.id != link.id ||
      (link.id == 0 && !(it->second.link.peer == link.peer))) {
    ++stats_.unknown_sessions;
    return {};
  }
  Session& s = it->second;
  const uint16_t session_id = it->first;
  const uint16_t id = request->reply_id;
  // Events held back by the fault go out just before whatever answers this request.
  auto with_events = [&](Answer reply_packets) {
    if (!faults_.events_before_answer) return reply_packets;
    Answer answer = TakeEventsLocked(link.id);
    for (auto& out : reply_packets) answer.push_back(std::move(out));
    return answer;
  };
  if (request->code == reply::kOk) {  // a client acknowledging an event
    OnEventAck(s, id);
    return with_events({});
  }
  if (s.has_last && id == s.last_id) {
    // A command the terminal never answers stays unanswered when asked again.
    if (faults_.no_reply_command == request->code && faults_.no_reply_times < 0) {
      ++stats_.replies_lost;
      return {};
    }
    ++stats_.remembered_replies;
    if (!s.remembered) return with_events({});
    return with_events({{*s.remembered, s.link.peer}});
  }
  if (s.has_last && id < s.last_id && s.last_id != 0xFFFF) {
    ++stats_.stale_ids;
    return {};
  }
  s.has_last = true;
  s.last_id = id;
  EnableIfIdleLocked();
  if (disabled_by_ == session_id) last_activity_ = clock_.Steady();
  ++stats_.commands[request->code];

  Answer reply_packets;
  if (!s.authed && request->code != cmd::kAuth && request->code != cmd::kExit) {
    reply_packets.push_back({Reply(s, reply::kUnauth, id)});
  } else {
    reply_packets = Dispatch(*request, s, id);
  }
  for (auto& out : reply_packets) out.peer = s.link.peer;
  if (!reply_packets.empty()) s.remembered = reply_packets.back().packet;

  if (faults_.no_reply_command == request->code && faults_.no_reply_times != 0) {
    if (faults_.no_reply_times > 0 && --faults_.no_reply_times == 0)
      faults_.no_reply_command.reset();
    ++stats_.replies_lost;
    reply_packets.clear();
  }
  if (faults_.bad_checksum_command == request->code && !reply_packets.empty()) {
    faults_.bad_checksum_command.reset();
    reply_packets.front().corrupt = true;
  }
  Answer answer = with_events(std::move(reply_packets));
  if (request->code == cmd::kExit) EndSession(session_id);
  return answer;
}

T4Terminal::Answer T4Terminal::OnConnect(const T4Packet& request, const T4Link& link) {
  if (faults_.busy_menu) {
    ++stats_.ignored_connects;
    return {};
  }
  auto session_id = static_cast<uint16_t>(clock_.Now().Seconds() & 0xFFFF);
  while (session_id == 0 || sessions_.count(session_id)) ++session_id;
  Session& s = sessions_[session_id];
  s.id = session_id;
  s.link = link;
  s.authed = config_.comm_key == 0;
  s.has_last = true;
  s.last_id = request.reply_id;
  s.remembered = T4Packet{s.authed ? reply::kOk : reply::kUnauth, session_id, request.reply_id, {}};
  ++stats_.sessions_opened;
  ++stats_.commands[cmd::kConnect];
  return {{*s.remembered, link.peer}};
}

void T4Terminal::OnEventAck(Session& s, uint16_t id) {
  if (s.has_last && id < s.last_id && s.last_id != 0xFFFF) {
    ++stats_.stale_ids;  // the monotonic rule holds for acknowledgements too
    return;
  }
  ++stats_.events_acked;
  if (config_.resend_events) s.acked_once = true;
  const auto it = std::find_if(s.events.begin(), s.events.end() - static_cast<long>(s.unsent),
                               [&](const T4Packet& e) { return e.reply_id == id; });
  if (it != s.events.end() - static_cast<long>(s.unsent)) s.events.erase(it);
}

T4Terminal::Answer T4Terminal::Dispatch(const T4Packet& r, Session& s, uint16_t id) {
  using t4::net::GetU32;
  const uint16_t session_id = s.id;
  auto ok = [&](std::string data = {}) {
    return Answer{{Reply(s, reply::kOk, id, std::move(data))}};
  };
  auto error = [&] { return Answer{{Reply(s, reply::kError, id)}}; };
  switch (r.code) {
    case cmd::kAuth:
      if (r.data.size() == 4 && !faults_.refuse_key_scheme &&
          t4::net::AuthTokenMatches(r.data, config_.comm_key, session_id)) {
        s.authed = true;
        return ok();
      }
      ++stats_.key_refusals;
      return {{Reply(s, reply::kUnauth, id)}};
    case cmd::kExit:
    case cmd::kRefreshData:
    case cmd::kRefreshOption:
      return ok();
    case cmd::kEnableDevice:
      enabled_ = true;
      disabled_by_.reset();
      return ok();
    case cmd::kDisableDevice: {
      enabled_ = false;
      const uint32_t seconds = r.data.size() >= 4 ? GetU32(r.data, 0) : 0;
      disable_timeout_ = seconds ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
      disabled_by_ = session_id;
      last_activity_ = clock_.Steady();
      return ok();
    }
    case cmd::kGetFreeSizes:
      return OnFreeSizes(r, s, id);
    case cmd::kOptionsRead: {
      const std::string name = r.data.substr(0, r.data.find('\0'));
      const auto it = options_.find(name);
      if (it == options_.end()) return error();
      return ok(WithNul(name + "=" + it->second));
    }
    case cmd::kOptionsWrite: {
      const std::string text = r.data.substr(0, r.data.find('\0'));
      const auto eq = text.find('=');
      if (eq == std::string::npos || eq == 0) return error();
      options_[text.substr(0, eq)] = text.substr(eq + 1);
      return ok();
    }
    case cmd::kGetVersion:
      return ok(WithNul(kVersion));
    case cmd::kStateRead:
      return {{T4Packet{reply::kOk, 0, id, {}}}};  // state 0, idle, in the session field
    case cmd::kGetPinWidth:
      return ok(std::string(1, config_.record_size >= t4::net::kStringRecordSize ? 9 : 5));
    case cmd::kGetTime: {
      std::string data;
      t4::net::PutU32(data, faults_.invalid_time ? (24 * 372 + 31 + 29) * 86400u
                                                 : t4::net::EncodeTimeCode(DeviceTimeLocked()));
      return ok(std::move(data));
    }
    case cmd::kSetTime: {
      if (r.data.size() < 4) return error();
      const auto time = t4::net::DecodeTimeCode(GetU32(r.data, 0)).ToDateTime();
      if (!time) return error();
      time_offset_ = core::SecondsBetween(clock_.Now(), *time);
      return ok();
    }
    case cmd::kRegEvent:
      if (r.data.size() < 4) return error();
      s.event_mask = GetU32(r.data, 0);
      if (!(s.event_mask & t4::net::kEventAttLog)) {
        s.events.clear();
        s.unsent = 0;
      }
      return ok();
    case cmd::kClearAttLog:
      ClearLog();
      return ok();
    case cmd::kClearData:
      if (r.data.empty() || r.data[0] == 1) ClearLog();
      if (r.data.empty() || r.data[0] == 5) users_.clear();  // no data: users and templates too
      return ok();
    case cmd::kFreeData:
      s.buffer.reset();
      return ok();
    case cmd::kPrepareBuffer:
      return OnPrepareBuffer(r, s, id);
    case cmd::kReadBuffer:
      return OnReadBuffer(r, s, id);
    case cmd::kAttLogRead:
      return OnAttLogRead(s, id);
    default:
      return {{Reply(s, reply::kUnknown, id)}};
  }
}

std::vector<T4Outgoing> T4Terminal::TakeEvents(int link_id) {
  std::lock_guard lock(mutex_);
  return TakeEventsLocked(link_id);
}

std::vector<T4Outgoing> T4Terminal::TakeEventsLocked(int link_id) {
  std::vector<T4Outgoing> out;
  for (auto& [id, s] : sessions_) {
    if (s.link.id != link_id || s.events.empty()) continue;
    for (const auto& e : s.events) out.push_back({e, s.link.peer});
    stats_.events_sent += s.events.size();
    s.unsent = 0;
    if (!s.acked_once) s.events.clear();  // send-once until the session has acknowledged one
  }
  return out;
}

void T4Terminal::EndLink(int link_id) {
  std::lock_guard lock(mutex_);
  std::erase_if(sessions_, [&](const auto& entry) { return entry.second.link.id == link_id; });
  if (sessions_.empty()) enabled_ = true;
}

void T4Terminal::EndSession(uint16_t session_id) {
  sessions_.erase(session_id);
  if (sessions_.empty()) enabled_ = true;  // the last session to go re-enables the terminal
}

bool T4Terminal::Punch(T4Record record) {
  std::lock_guard lock(mutex_);
  EnableIfIdleLocked();
  if (!enabled_) {
    ++stats_.punches_refused;
    return false;
  }
  for (const auto& u : users_) {
    if (config_.record_size == t4::net::kCompactRecordSize ? u.uid == record.uid
                                                           : u.user_id == record.user_id) {
      record.uid = u.uid;
      record.user_id = u.user_id;
      break;
    }
  }
  log_.push_back(record);
  ++stats_.punches_stored;
  PushEventLocked(record);
  return true;
}

bool T4Terminal::PunchNext() {
  T4Record r;
  {
    std::lock_guard lock(mutex_);
    if (users_.empty()) users_ = GenerateT4Users(1);
    const auto& user = users_[next_punch_ % users_.size()];
    r.uid = user.uid;
    r.user_id = user.user_id;
    r.verify = 1;
    r.state = static_cast<uint8_t>(next_punch_ / users_.size() % 2);
    r.time = t4::net::EncodeTimeCode(DeviceTimeLocked());
    ++next_punch_;
  }
  return Punch(std::move(r));
}

void T4Terminal::PushEventLocked(const T4Record& record) {
  const t4::net::T4AttEvent event{record.user_id, record.verify, record.state,
                                  t4::net::DecodeTimeCode(record.time), record.work_code};
  const std::string payload = t4::net::EncodeAttEvent(event, event_length_);
  for (auto& [id, s] : sessions_) {
    if (!(s.event_mask & t4::net::kEventAttLog)) continue;
    s.events.push_back(T4Packet{reply::kEvent, t4::net::kEventAttLog,
                                static_cast<uint16_t>(s.events.size()), payload});
    ++s.unsent;
    if (s.link.wake && !faults_.events_before_answer) s.link.wake->Request();
  }
}

void T4Terminal::ClearLog() {
  log_.clear();
  ++stats_.clears;
}

void T4Terminal::EnableIfIdleLocked() const {
  if (!enabled_ && disable_timeout_ && clock_.Steady() - last_activity_ >= *disable_timeout_) {
    enabled_ = true;
  }
}

core::DateTime T4Terminal::DeviceTimeLocked() const {
  return clock_.Now().AddSeconds(time_offset_);
}

core::DateTime T4Terminal::DeviceTime() const {
  std::lock_guard lock(mutex_);
  return DeviceTimeLocked();
}

std::vector<T4Record> T4Terminal::Log() const {
  std::lock_guard lock(mutex_);
  return log_;
}

size_t T4Terminal::RecordCount() const {
  std::lock_guard lock(mutex_);
  return log_.size();
}

bool T4Terminal::Enabled() const {
  std::lock_guard lock(mutex_);
  EnableIfIdleLocked();
  return enabled_;
}

std::vector<t4::net::T4UserRecord> T4Terminal::Users() const {
  std::lock_guard lock(mutex_);
  return users_;
}

void T4Terminal::SetFaults(const T4SimFaults& faults) {
  std::lock_guard lock(mutex_);
  faults_ = faults;
}

void T4Terminal::UpdateFaults(const std::function<void(T4SimFaults&)>& change) {
  std::lock_guard lock(mutex_);
  change(faults_);
}

T4SimFaults T4Terminal::Faults() const {
  std::lock_guard lock(mutex_);
  return faults_;
}

T4SimStats T4Terminal::Stats() const {
  std::lock_guard lock(mutex_);
  return stats_;
}

void T4Terminal::Count(size_t T4SimStats::*counter) {
  std::lock_guard lock(mutex_);
  ++(stats_.*counter);
}

}  // namespace clockcomm::sim
