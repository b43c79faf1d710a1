#include "t4/net/t4_net_device.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "t4/net/t4_bytes.h"
#include "t4/net/t4_time_code.h"
#include "t4/net/t4_user_records.h"

namespace clockcomm::t4::net {
namespace {

// PREPARE_BUFFER's data for the attendance log.
const std::string kAttendanceTable("\x01\x0d\x00\x00\x00\x00\x00\x00\x00\x00\x00", 11);

// GetDeviceStatus's status numbers and where GET_FREE_SIZES answers them.
std::optional<size_t> StatusOffset(int status) {
  static constexpr std::pair<int, size_t> kOffsets[] = {
      {1, 48}, {2, 16}, {3, 24},  {4, 52},  {5, 40},  {6, 32},  {7, 56},
      {8, 60}, {9, 64}, {10, 68}, {11, 72}, {12, 76}, {21, 80}, {22, 88}};
  for (const auto& [number, offset] : kOffsets) {
    if (number == status) return offset;
  }
  return std::nullopt;
}

}  // namespace

T4NetDevice::T4NetDevice(T4NetOptions options, core::LogSink& log)
    : options_(std::move(options)), log_(log) {}

T4NetDevice::~T4NetDevice() { Disconnect(); }

std::string T4NetDevice::Describe() const { return session_ ? session_->Describe() : address_; }

void T4NetDevice::Fail(int code, std::string why) {
  last_error_ = code;
  last_failure_ = std::move(why);
}

bool T4NetDevice::Run(std::string_view operation, int refused_code,
                      const std::function<void()>& body) {
  if (!session_ || session_->Lost()) {
    Fail(kNeedsReconnect, fmt::format("{}: not connected", operation));
    return false;
  }
  try {
    body();
    last_error_ = kOk;
    last_failure_.clear();
    return true;
  } catch (const T4ReplyError& e) {
    const bool refused = e.Code() == reply::kError;
    Fail(refused ? refused_code : e.Code(), e.what());
  } catch (const T4DataError& e) {
    Fail(kDataLength, fmt::format("{}: {}", operation, e.what()));
  } catch (const std::exception& e) {
    // A time-out, a dropped connection or a stream out of step: the session is gone.
    Fail(kNeedsReconnect, e.what());
  }
  return false;
}

bool T4NetDevice::Connect_Net(const std::string& ip, int port) {
  Disconnect();
  address_ = fmt::format("{}:{}", ip, port);
  auto open = [&](T4TransportKind kind) {
    // A stream out of step is dropped and opened afresh, once.
    for (int attempt = 0;; ++attempt) {
      auto session = std::make_unique<T4Session>(
          OpenT4Transport(kind, ip, static_cast<uint16_t>(port), {stop_}), options_.timeouts,
          comm::WakeSet{stop_});
      try {
        session->Open(options_.key);
        session_ = std::move(session);
        return;
      } catch (const core::TimeoutException&) {
        if (!session->OutOfStep() || attempt > 0) throw;
      }
    }
  };
  try {
    try {
      open(options_.transport);
    } catch (const core::SystemError&) {
      // Some terminals answer on UDP only: a refused TCP connection is tried there.
      if (options_.transport != T4TransportKind::kTcp) throw;
      open(T4TransportKind::kUdp);
      log_.Debug(options_.clock_name, address_ + " refused TCP; it answers on UDP.");
    }
    Probe();
  } catch (const T4KeyRefused& e) {
    Fail(reply::kUnauth, std::string(e.what()) + ": check the key in the clock list");
    session_.reset();
    return false;
  } catch (const core::TimeoutException& e) {
    // Silence to CONNECT on both transports: maybe not a terminal of this protocol at all.
    const std::string why = e.what();
    const bool unanswered =
        why.find("CONNECT") != std::string::npos || why.find("nobody listens") != std::string::npos;
    Fail(kNeedsReconnect,
         why + (unanswered ? "; a terminal that answers neither TCP nor UDP here may speak "
                             "another protocol"
                           : ""));
    session_.reset();
    return false;
  } catch (const std::exception& e) {
    Fail(kNeedsReconnect, e.what());
    session_.reset();
    return false;
  }
  last_error_ = kOk;
  last_failure_.clear();
  return true;
}

std::optional<std::string> T4NetDevice::ReadOption(const std::string& name) {
  try {
    const T4Packet answer = session_->Request(cmd::kOptionsRead, name + '\0');
    const std::string text = GetText(answer.data, 0, answer.data.size());
    const size_t equals = text.find('=');
    if (equals == std::string::npos) return std::nullopt;
    return text.substr(equals + 1);
  } catch (const T4ReplyError&) {
    return std::nullopt;  // an option this terminal does not have
  }
}

void T4NetDevice::Probe() {
  const auto platform = ReadOption("~Platform");
  const auto ssr = ReadOption("~SSR");
  const auto extend = ReadOption("~ExtendFmt");
  string_ids_ = ssr == "1" || (platform && platform->ends_with("_TFT"));
  if (string_ids_) {
    layout_hint_ = kStringRecordSize;
  } else if (extend) {
    layout_hint_ = *extend == "1" ? kExtendedRecordSize : kCompactRecordSize;
  }
  log_.Debug(options_.clock_name,
             fmt::format("{}: platform {}, string ids {}, extended format {}", Describe(),
                         platform.value_or("?"), string_ids_ ? "yes" : "no", extend.value_or("?")));
}

void T4NetDevice::Disconnect() {
  if (session_) session_->Close();
  session_.reset();
}

bool T4NetDevice::IsTFTMachine(int) { return string_ids_; }

void T4NetDevice::FreeBuffer() {
  try {
    session_->Request(cmd::kFreeData);
  } catch (const T4ReplyError&) {
    // No buffer to free: nothing was left.
  }
}

std::string T4NetDevice::ReadTable(std::string_view prepare, bool legacy_fallback) {
  FreeBuffer();  // a stale buffer left by an earlier client
  T4Packet first;
  try {
    first = session_->Request(cmd::kPrepareBuffer, prepare);
  } catch (const T4ReplyError& e) {
    if (!legacy_fallback || (e.Code() != reply::kError && e.Code() != reply::kUnknown)) throw;
    log_.Debug(options_.clock_name, Describe() +
                                        " refused the buffered read; reading the whole "
                                        "log at once.");
    return session_->RequestData(cmd::kAttLogRead, {}, 0);
  }
  if (first.code == reply::kData) return first.data;  // small enough to come inline
  if (first.data.size() < 5) throw T4DataError("PREPARE_BUFFER's answer has no size");
  const uint32_t total = GetU32(first.data, 1);
  const uint32_t chunk = session_->Kind() == T4TransportKind::kTcp ? kTcpChunk : kUdpChunk;
  std::string dataset;
  dataset.reserve(total);
  for (uint32_t offset = 0; offset < total; offset += chunk) {
    const uint32_t length = std::min(chunk, total - offset);
    std::string request;
    PutU32(request, offset);
    PutU32(request, length);
    dataset += session_->RequestData(cmd::kReadBuffer, request, length);
  }
  FreeBuffer();
  if (dataset.size() >= 4 && GetU32(dataset, 0) + 4 != total) {
    throw T4DataError(fmt::format("the terminal announced {} bytes and its data says {}", total,
                                  GetU32(dataset, 0) + 4));
  }
  return dataset;
}

bool T4NetDevice::ReadGeneralLogData(int) {
  dataset_ = {};
  cursor_ = 0;
  return Run("ReadGeneralLogData", kFailedOrNoData, [&] {
    dataset_ = DecodeAttendance(ReadTable(kAttendanceTable, true), last_count_, layout_hint_);
    if (dataset_.record_size == 0) return;
    if (dataset_.StringIds() != string_ids_) {
      log_.Debug(
          options_.clock_name,
          fmt::format("{}: its log holds {}-byte records, so its ids are {}; reading them "
                      "so.",
                      Describe(), dataset_.record_size, dataset_.StringIds() ? "text" : "numbers"));
      string_ids_ = dataset_.StringIds();
    }
    enrolment_by_uid_.clear();
    if (dataset_.record_size == kCompactRecordSize) {
      for (const auto& user : ReadUserTable()) enrolment_by_uid_[user.uid] = user.user_id;
    }
  });
}

std::string T4NetDevice::EnrolmentOf(const T4Record& record) const {
  if (dataset_.record_size != kCompactRecordSize) return record.user_id;
  const auto found = enrolment_by_uid_.find(record.uid);
  // Not a number, so the clock logs it as unreadable instead of taking it as badge 0.
  return found != enrolment_by_uid_.end() ? found->second
                                          : fmt::format("uid {} (no such user)", record.uid);
}

const T4Record* T4NetDevice::NextRecord() {
  while (cursor_ < dataset_.records.size()) {
    const T4Record& record = dataset_.records[cursor_++];
    const T4Time time = DecodeTimeCode(record.time);
    if (time.ToDateTime()) return &record;
    log_.Event("Error",
               fmt::format("Clock: {}, a record with an impossible time skipped - Badge: "
                           "\"{}\", Time: {} (code {:#010x})",
                           options_.clock_name, EnrolmentOf(record), time.ToString(), record.time));
  }
  return nullptr;
}

bool T4NetDevice::SSR_GetGeneralLogData(int, std::string& enroll_number, int& verify_mode,
                                        int& in_out_mode, int& year, int& month, int& day,
                                        int& hour, int& minute, int& second, int& work_code) {
  const T4Record* r = NextRecord();
  if (r == nullptr) {
    Fail(kNotFound, "no more records");
    return false;
  }
  const T4Time t = DecodeTimeCode(r->time);
  enroll_number = EnrolmentOf(*r);
  verify_mode = r->verify;
  in_out_mode = r->state;
  year = t.year, month = t.month, day = t.day, hour = t.hour, minute = t.minute, second = t.second;
  work_code = static_cast<int>(r->work_code);
  last_error_ = kOk;
  return true;
}

bool T4NetDevice::GetGeneralExtLogData(int machine, long& enroll_number, int& verify_mode,
                                       int& in_out_mode, int& year, int& month, int& day, int& hour,
                                       int& minute, int& second, int& work_code, int& reserved) {
  std::string text;
  reserved = 0;
  while (SSR_GetGeneralLogData(machine, text, verify_mode, in_out_mode, year, month, day, hour,
                               minute, second, work_code)) {
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), enroll_number);
    if (error == std::errc() && end == text.data() + text.size()) return true;
    log_.Event("Error", fmt::format("Clock: {}, a record whose id is not a number skipped - Badge: "
                                    "\"{}\"",
                                    options_.clock_name, text));
  }
  return false;
}

bool T4NetDevice::GetDeviceStatus(int, int status, int& value) {
  const auto offset = StatusOffset(status);
  if (!offset) {
    Fail(kBadParameter, fmt::format("no status number {}", status));
    return false;
  }
  return Run("GetDeviceStatus", kFailedOrNoData, [&] {
    const T4Packet answer = session_->Request(cmd::kGetFreeSizes);
    if (answer.data.size() < *offset + 4) {
      throw T4DataError(fmt::format("the status answer has {} bytes", answer.data.size()));
    }
    value = static_cast<int>(GetU32(answer.data, *offset));
    if (status == kAttendanceRecordCount) last_count_ = static_cast<uint32_t>(value);
  });
}

bool T4NetDevice::ClearGLog(int) {
  return Run("ClearGLog", kFailedOrNoData, [&] { session_->Request(cmd::kClearAttLog); });
}

bool T4NetDevice::ClearSLog(int) {
  Fail(kNotSupported, "the terminals' protocol has no known command to clear the operation log");
  return false;
}

bool T4NetDevice::EnableDevice(int, bool enabled) {
  return Run("EnableDevice", kFailedOrNoData, [&] {
    if (enabled) {
      session_->Request(cmd::kEnableDevice);
    } else {
      std::string seconds;
      PutU32(seconds, static_cast<uint32_t>(options_.disable_timeout.count()));
      session_->Request(cmd::kDisableDevice, seconds);
    }
  });
}

bool T4NetDevice::GetDeviceTime(int, core::DateTime& time) {
  return Run("GetDeviceTime", kFailedOrNoData, [&] {
    const T4Packet answer = session_->Request(cmd::kGetTime);
    if (answer.data.size() < 4) throw T4DataError("the time answer has no time");
    const T4Time decoded = DecodeTimeCode(GetU32(answer.data, 0));
    const auto valid = decoded.ToDateTime();
    if (!valid) throw T4DataError("the terminal's clock reads " + decoded.ToString());
    time = *valid;
  });
}

bool T4NetDevice::SetDeviceTime2(int, const core::DateTime& time) {
  const int year = time.GetDate().Year();
  if (year < 2000 || year > 2099) {
    Fail(kBadParameter, fmt::format("the terminal's clock cannot show {}", time.ToString()));
    return false;
  }
  return Run("SetDeviceTime", kBadParameter, [&] {
    std::string code;
    PutU32(code, EncodeTimeCode(time));
    session_->Request(cmd::kSetTime, code);
  });
}

bool T4NetDevice::RegEvent(int, int event_mask) {
  // Only attendance events are asked for, whatever the mask: the others are of no use here.
  return Run("RegEvent", kFailedOrNoData, [&] {
    std::string mask;
    PutU32(mask, event_mask != 0 ? kEventAttLog : 0);
    session_->Request(cmd::kRegEvent, mask);
  });
}

void T4NetDevice::SetAttTransactionHandler(AttTransactionHandler handler) {
  handler_ = std::move(handler);
}

PumpResult T4NetDevice::PumpEvents(comm::SteadyTime deadline, const comm::WakeSet& wake) {
  if (!session_ || session_->Lost()) {
    Fail(kNeedsReconnect, "not connected");
    return PumpResult::kSessionLost;
  }
  try {
    for (;;) {
      for (const auto& raw : session_->TakeUnknownEvents()) {
        log_.Event("Error", fmt::format("Clock: {}, an event of a layout no terminal is known to "
                                        "send was skipped: {}",
                                        options_.clock_name, raw));
      }
      for (const auto& e : session_->TakeEvents()) {
        if (!handler_) continue;
        handler_(AttTransaction{e.user_id, (e.state & 0x80) == 0, e.state, e.verify, e.time.year,
                                e.time.month, e.time.day, e.time.hour, e.time.minute, e.time.second,
                                static_cast<int>(e.work_code)});
      }
      if (wake.AnyRequested()) return PumpResult::kWoken;
      const auto now = std::chrono::steady_clock::now();
      if (now >= deadline) return PumpResult::kDeadline;
      const auto keep_alive = session_->LastHeard() + options_.keep_alive;
      if (now >= keep_alive) {
        session_->Request(cmd::kGetTime);  // a dead link shows as a time-out here
        continue;
      }
      if (!session_->WaitForEvents(std::min(deadline, keep_alive), wake)) {
        return PumpResult::kWoken;
      }
    }
  } catch (const T4ReplyError&) {
    return PumpResult::kDeadline;  // the terminal is there; it disliked the keep-alive
  } catch (const std::exception& e) {
    Fail(kNeedsReconnect, e.what());
    return PumpResult::kSessionLost;
  }
}

}  // namespace clockcomm::t4::net
