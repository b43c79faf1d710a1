#include "web/event_log_api.h"

#include <fstream>
#include <memory>

#include "core/text.h"
#include "shell/event_log.h"
#include "shell/event_log_report.h"
#include "shell/text_logs.h"
#include "web/api_reply.h"
#include "web/api_request.h"
#include "web/query_params.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;

// Text logs and the report are the site's single-byte text, sent as they are.
constexpr const char* kAnsiText = "text/plain; charset=windows-1252";
constexpr size_t kFileChunk = 64 * 1024;

nlohmann::json EventJson(const shell::EventLogEntry& e) {
  return {{"counter", e.counter},
          {"time", e.date_time.ToString()},
          {"clock", core::Utf8FromAnsi(e.clock_name)},
          {"clock_number", e.clock_number},
          {"type", core::Utf8FromAnsi(e.event_type)},
          {"description", core::Utf8FromAnsi(e.description)}};
}

// The purge goes on only when the body says {"confirm": true}; a missing body is the question.
bool Confirmed(const Request& req, Response& res) {
  if (req.body.empty()) return false;
  const auto body = JsonBody(req, res);
  if (!body) return false;
  const auto it = body->find("confirm");
  return it != body->end() && it->is_boolean() && it->get<bool>();
}

// The day a text log's name ends with (" - yyyy-mm-dd.log").
std::optional<core::Date> DayOfTextLog(std::string_view name) {
  constexpr std::string_view kEnd = ".log";
  constexpr size_t kDate = 10;
  if (name.size() < kDate + kEnd.size() || !name.ends_with(kEnd)) return std::nullopt;
  return core::ParseIsoDate(name.substr(name.size() - kEnd.size() - kDate, kDate));
}

}  // namespace

void EventLogApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/events", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) List(req, res);
  });
  server.Delete("/api/v1/events", [this, &gate](const Request& req, Response& res) {
    if (const auto session = gate.Allow(req, res, Role::kAdministrator))
      Purge(req, res, session->who.name);
  });
  server.Get("/api/v1/events/report", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) Report(req, res);
  });
  server.Get("/api/v1/text-logs", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) TextLogList(req, res);
  });
  server.Get(R"(/api/v1/text-logs/(.+))", [this, &gate](const Request& req, Response& res) {
    if (gate.Allow(req, res, Role::kViewer)) TextLogFile(req, res);
  });
}

void EventLogApi::List(const Request& req, Response& res) {
  QueryParams params(req);
  const auto [from, to] = params.Period(clock_.Now().GetDate());
  const shell::EventQuery query{.from = from,
                                .to = to,
                                .clock_name = params.Text("clock"),
                                .event_type = params.Text("type")};
  const Paging paging = params.Page();
  if (params.Refused(res)) return;

  const auto log = shell::EventLog::Open(paths_.EventLogDatabase());
  nlohmann::json events = nlohmann::json::array();
  for (const auto& e : log->Find(query, paging.Offset(), paging.page_size)) {
    events.push_back(EventJson(e));
  }
  nlohmann::json types = nlohmann::json::array();
  for (const auto& type : log->EventTypes({.from = from, .to = to})) {
    types.push_back(core::Utf8FromAnsi(type));
  }
  ReplyJson(res, 200,
            {{"from", from.ToString()},
             {"to", to.ToString()},
             {"events", std::move(events)},
             {"page", paging.page},
             {"page_size", paging.page_size},
             {"total", log->Count(query)},
             {"types", std::move(types)}});
}

void EventLogApi::Purge(const Request& req, Response& res, const std::string& who) {
  QueryParams params(req);
  params.Require("from");
  params.Require("to");
  const auto [from, to] = params.Period(clock_.Now().GetDate());
  if (params.Refused(res)) return;
  if (!Confirmed(req, res)) {
    if (res.body.empty()) {
      ReplyJson(res, 400,
                {{"error", shell::PurgeQuestion(from, to)}, {"title", shell::kPurgeTitle}});
    }
    return;
  }
  const int64_t purged = shell::EventLog::Open(paths_.EventLogDatabase())->Purge(from, to);
  // Written after the purge, so that a period ending today keeps the record of its own purge.
  log_.Event("Event log purged", "From " + from.Format(core::kFormatSqlDate) + " to " +
                                     to.Format(core::kFormatSqlDate) + ": " +
                                     std::to_string(purged) + " events deleted by " + who);
  ReplyJson(res, 200, {{"purged", purged}, {"from", from.ToString()}, {"to", to.ToString()}});
}

void EventLogApi::Report(const Request& req, Response& res) {
  QueryParams params(req);
  const auto [from, to] = params.Period(clock_.Now().GetDate());
  if (params.Refused(res)) return;

  std::shared_ptr<shell::EventLog> log = shell::EventLog::Open(paths_.EventLogDatabase());
  auto reader = std::make_shared<shell::EventLogReportReader>(*log, from, to);
  ReplyStream(
      res, kAnsiText, "event-report-" + from.ToString() + "-" + to.ToString() + ".txt",
      [log, reader] { return reader->Next(); }, log_, "Console event report");
}

void EventLogApi::TextLogList(const Request& req, Response& res) {
  QueryParams params(req);
  const core::Date day = params.Date("date").value_or(clock_.Now().GetDate());
  if (params.Refused(res)) return;
  log_.Flush();  // the lines still buffered belong in the sizes
  nlohmann::json files = nlohmann::json::array();
  for (const auto& file : shell::TextLogFilesOf(paths_.DebugLogDirectory(), day)) {
    files.push_back({{"name", core::Utf8FromAnsi(file.name)}, {"size", file.size}});
  }
  ReplyJson(res, 200, {{"date", day.ToString()}, {"files", std::move(files)}});
}

void EventLogApi::TextLogFile(const Request& req, Response& res) {
  // The name is only looked up among the files the listing of its day gives: nothing the client
  // sends becomes part of a path.
  const std::string& wanted = req.matches[1].str();
  std::optional<shell::TextLogFile> found;
  if (const auto day = DayOfTextLog(wanted)) {
    log_.Flush();
    for (auto& file : shell::TextLogFilesOf(paths_.DebugLogDirectory(), *day)) {
      if (core::Utf8FromAnsi(file.name) == wanted) found = std::move(file);
    }
  }
  if (!found) {
    ReplyError(res, 404,
               "No text log named \"" + Printable(wanted, 200) +
                   "\"; GET /api/v1/text-logs?date=YYYY-MM-DD lists a day's logs.");
    return;
  }
  auto in =
      std::make_shared<std::ifstream>(paths_.DebugLogDirectory() / found->name, std::ios::binary);
  if (!*in) {
    ReplyError(res, 404, "The text log \"" + Printable(wanted, 200) + "\" is gone.");
    return;
  }
  // What the file holds now: lines written meanwhile wait for the next request.
  in->seekg(0, std::ios::end);
  const auto size = static_cast<size_t>(in->tellg());
  in->seekg(0);
  if (size == 0) {  // a provider of no bytes ends the connection without an answer
    res.set_content("", kAnsiText);
    return;
  }
  res.set_content_provider(size, kAnsiText,
                           [in](size_t offset, size_t length, httplib::DataSink& sink) {
                             std::string chunk(std::min(length, kFileChunk), '\0');
                             in->seekg(static_cast<std::streamoff>(offset));
                             in->read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
                             if (in->gcount() != static_cast<std::streamsize>(chunk.size()))
                               return false;
                             return sink.write(chunk.data(), chunk.size());
                           });
}

}  // namespace clockcomm::web
