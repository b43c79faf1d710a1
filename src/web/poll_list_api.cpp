#include "web/poll_list_api.h"

#include <charconv>

#include "core/errors.h"
#include "core/text.h"
#include "web/api_reply.h"
#include "web/api_request.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;

constexpr const char* kEvent = "Poll list changed";

nlohmann::json LocationJson(const shell::PollRow& row) {
  return {
      {"id", row.location_id},
      {"name", core::Utf8FromAnsi(row.location_name)},
      {"address", core::Utf8FromAnsi(row.location_phone)},
      {"call_time", row.dial_time ? nlohmann::json(shell::PollList::DialTimeText(*row.dial_time))
                                  : nlohmann::json(nullptr)},
      {"selected", row.select_to_dial}};
}

// The location as the event log names it.
std::string Described(const shell::PollRow& row) {
  return "\"" + row.location_name + "\" (" +
         (row.location_phone.empty() ? "no address" : row.location_phone) + ", call time " +
         (row.dial_time ? shell::PollList::DialTimeText(*row.dial_time) : "none") + ", " +
         (row.select_to_dial ? "selected" : "not selected") + ")";
}

// The location in body; otherwise nothing, with the 400 in res. A change (all) gives every field;
// an addition needs only the name (no address, no call time, selected).
std::optional<shell::PollRow> LocationOf(const nlohmann::json& body, bool all, Response& res) {
  shell::PollRow row;
  const auto name = AnsiField(body, "name", res);
  if (!name) return std::nullopt;
  row.location_name = *name;
  if (all || body.contains("address")) {
    const auto address = AnsiField(body, "address", res);
    if (!address) return std::nullopt;
    row.location_phone = *address;
  }
  const auto call_time = body.find("call_time");
  if (call_time == body.end() ? all : !call_time->is_null() && !call_time->is_string()) {
    ReplyError(res, 400, "\"call_time\" must be a time such as \"06:00\", or null for none.");
    return std::nullopt;
  }
  if (call_time != body.end() && call_time->is_string() &&
      !core::TrimView(call_time->get_ref<const std::string&>()).empty()) {
    const std::string& text = call_time->get_ref<const std::string&>();
    row.dial_time = shell::PollList::ParseDialTime(text);
    if (!row.dial_time) {
      ReplyError(res, 400,
                 "\"call_time\" \"" + Printable(text) + "\" is not a time of day (HH:MM).");
      return std::nullopt;
    }
  }
  const auto selected = body.find("selected");
  if (selected == body.end() ? all : !selected->is_boolean()) {
    ReplyError(res, 400, "\"selected\" must be true or false.");
    return std::nullopt;
  }
  if (selected != body.end()) row.select_to_dial = selected->get<bool>();
  return row;
}

// The LocationID of the path; nothing, with the 404 in res, when it is no number we keep.
std::optional<int64_t> IdOf(const Request& req, Response& res) {
  const std::string text = req.matches[1];
  int64_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size() || id <= 0) {
    ReplyError(res, 404, "The poll list has no LocationID " + Printable(text) + ".");
    return std::nullopt;
  }
  return id;
}

}  // namespace

void PollListApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/poll-list",
             [this, &gate](const Request& req, Response& res) { List(req, res, gate); });
  server.Post("/api/v1/poll-list",
              [this, &gate](const Request& req, Response& res) { Add(req, res, gate); });
  server.Put(R"(/api/v1/poll-list/(\d+))",
             [this, &gate](const Request& req, Response& res) { Change(req, res, gate); });
  server.Delete(R"(/api/v1/poll-list/(\d+))",
                [this, &gate](const Request& req, Response& res) { Remove(req, res, gate); });
}

void PollListApi::List(const Request& req, Response& res, ApiGate& gate) {
  if (!gate.Allow(req, res, Role::kViewer)) return;
  nlohmann::json locations = nlohmann::json::array();
  std::lock_guard lock(mutex_);
  for (const shell::PollRow& row : list_.ReadPollRows()) locations.push_back(LocationJson(row));
  ReplyJson(res, 200, {{"locations", std::move(locations)}});
}

void PollListApi::Add(const Request& req, Response& res, ApiGate& gate) {
  const auto session = gate.Allow(req, res, Role::kOperator);
  if (!session) return;
  const auto body = JsonBody(req, res);
  if (!body) return;
  auto row = LocationOf(*body, false, res);
  if (!row) return;
  std::lock_guard lock(mutex_);
  try {
    row->location_id = list_.Add(*row);
  } catch (const core::ArgumentException& e) {
    return ReplyError(res, 400, e.what());
  }
  log_.Event(kEvent, session->who.name + " added location " + std::to_string(row->location_id) +
                         " " + Described(*row));
  ReplyJson(res, 201, LocationJson(*list_.Find(row->location_id)));
}

void PollListApi::Change(const Request& req, Response& res, ApiGate& gate) {
  const auto session = gate.Allow(req, res, Role::kOperator);
  if (!session) return;
  const auto id = IdOf(req, res);
  if (!id) return;
  const auto body = JsonBody(req, res);
  if (!body) return;
  auto row = LocationOf(*body, true, res);
  if (!row) return;
  row->location_id = *id;
  std::lock_guard lock(mutex_);
  const auto before = list_.Find(*id);
  if (!before)
    return ReplyError(res, 404, "The poll list has no LocationID " + std::to_string(*id) + ".");
  try {
    list_.Update(*row);
  } catch (const core::ArgumentException& e) {
    return ReplyError(res, 400, e.what());
  } catch (const core::ItemNotFoundException& e) {  // removed meanwhile by the command line
    return ReplyError(res, 404, e.what());
  }
  log_.Event(kEvent, session->who.name + " changed location " + std::to_string(*id) + " " +
                         Described(*before) + " to " + Described(*row));
  ReplyJson(res, 200, LocationJson(*list_.Find(*id)));
}

void PollListApi::Remove(const Request& req, Response& res, ApiGate& gate) {
  const auto session = gate.Allow(req, res, Role::kOperator);
  if (!session) return;
  const auto id = IdOf(req, res);
  if (!id) return;
  std::lock_guard lock(mutex_);
  const auto before = list_.Find(*id);
  try {
    list_.Remove(*id);
  } catch (const core::ItemNotFoundException& e) {
    return ReplyError(res, 404, e.what());
  }
  log_.Event(kEvent, session->who.name + " removed location " + std::to_string(*id) +
                         (before ? " " + Described(*before) : ""));
  ReplyJson(res, 200, {{"removed", *id}});
}

}  // namespace clockcomm::web
