#include "web/rule_files_api.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "core/durable_file.h"
#include "core/line_problem.h"
#include "core/text.h"
#include "records/parameter_override.h"
#include "t4/clock_assignments.h"
#include "t4/punch_type_rules.h"
#include "web/api_reply.h"
#include "web/api_request.h"

namespace clockcomm::web {
namespace {

using httplib::Request;
using httplib::Response;
namespace fs = std::filesystem;

std::vector<core::LineProblem> SettingsOverrideProblems(std::string_view text) {
  records::ParameterOverride reader;
  reader.LoadText(text);
  return reader.Problems();
}

struct RuleFile {
  const char* name;
  std::vector<core::LineProblem> (*problems)(std::string_view text);
};

const std::array<RuleFile, 3> kRuleFiles = {{
    {records::kSettingsOverrideFile, &SettingsOverrideProblems},
    {t4::kPunchTypeRulesFile, &t4::PunchTypeRules::Problems},
    {t4::kClockAssignmentsFile, &t4::ClockAssignments::Problems},
}};

// The rule file of that name (exactly); otherwise nothing, with the 404 in res.
const RuleFile* Find(const std::string& name, Response& res) {
  for (const RuleFile& file : kRuleFiles) {
    if (name == file.name) return &file;
  }
  ReplyError(res, 404,
             "No rule file \"" + Printable(name) + "\"; the rule files are " + kRuleFiles[0].name +
                 ", " + kRuleFiles[1].name + " and " + kRuleFiles[2].name + ".");
  return nullptr;
}

bool IsFile(const fs::path& path) {
  std::error_code ec;
  return fs::is_regular_file(path, ec);
}

size_t LineCount(std::string_view text) {
  size_t lines = std::count(text.begin(), text.end(), '\n');
  return lines + (!text.empty() && text.back() != '\n' ? 1 : 0);
}

}  // namespace

void RuleFilesApi::Register(httplib::Server& server, ApiGate& gate) {
  server.Get("/api/v1/rule-files", [this, &gate](const Request& req, Response& res) {
    if (!gate.Allow(req, res, Role::kViewer)) return;
    nlohmann::json files = nlohmann::json::array();
    for (const RuleFile& file : kRuleFiles) {
      files.push_back({{"name", file.name}, {"exists", IsFile(program_folder_ / file.name)}});
    }
    ReplyJson(res, 200, {{"files", std::move(files)}});
  });
  server.Get("/api/v1/rule-files/([^/]+)", [this, &gate](const Request& req, Response& res) {
    if (!gate.Allow(req, res, Role::kViewer)) return;
    const RuleFile* file = Find(req.matches[1], res);
    if (!file) return;
    const fs::path path = program_folder_ / file->name;
    const bool exists = IsFile(path);
    // A missing file is an empty one to its reader: no rules, every default.
    const std::string text = exists ? core::ReadWholeFile(path) : std::string();
    ReplyJson(res, 200,
              {{"name", file->name}, {"exists", exists}, {"text", core::Utf8FromAnsi(text)}});
  });
  server.Put("/api/v1/rule-files/([^/]+)",
             [this, &gate](const Request& req, Response& res) { Save(req, res, gate); });
}

void RuleFilesApi::Save(const Request& req, Response& res, ApiGate& gate) {
  const auto session = gate.Allow(req, res, Role::kAdministrator);
  if (!session) return;
  const RuleFile* file = Find(req.matches[1], res);
  if (!file) return;
  const auto body = JsonBody(req, res);
  if (!body) return;
  const auto text = AnsiField(*body, "text", res);
  if (!text) return;
  const auto problems = file->problems(*text);
  if (!problems.empty()) {
    nlohmann::json all = nlohmann::json::array();
    for (const core::LineProblem& p : problems) {
      all.push_back({{"line", p.line}, {"error", core::Utf8FromAnsi(p.what)}});
    }
    const core::LineProblem& first = problems.front();
    return ReplyJson(res, 400,
                     {{"error", core::Utf8FromAnsi(std::string(file->name) + " line " +
                                                   std::to_string(first.line) + ": " + first.what)},
                      {"line", first.line},
                      {"problems", std::move(all)}});
  }
  std::lock_guard lock(mutex_);
  core::WriteFileAtomically(program_folder_ / file->name, *text);
  log_.Event("Rule file saved", session->who.name + ": " + file->name + " (" +
                                    std::to_string(LineCount(*text)) + " lines)");
  ReplyJson(res, 200,
            {{"name", file->name}, {"exists", true}, {"text", core::Utf8FromAnsi(*text)}});
}

}  // namespace clockcomm::web
