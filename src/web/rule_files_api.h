// /api/v1/rule-files: the site's three rule files of the program folder ("SettingsOverride.txt",
// "PunchTypeRules.txt", "ClockAssignments.txt"), read by any operator and saved by an
// administrator. A text is checked with the file's own reader first: any line the reader would
// leave out or read otherwise is refused, naming the file and line, and nothing is saved. The
// client names a file only by one of the three names, never by a path.
#pragma once

#include <filesystem>
#include <mutex>

#include "core/log_sink.h"
#include "web/api_gate.h"

namespace clockcomm::web {

class RuleFilesApi : public ApiArea {
 public:
  RuleFilesApi(std::filesystem::path program_folder, core::LogSink& log)
      : program_folder_(std::move(program_folder)), log_(log) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  void Save(const httplib::Request& req, httplib::Response& res, ApiGate& gate);

  std::filesystem::path program_folder_;
  core::LogSink& log_;
  std::mutex mutex_;  // one save at a time
};

}  // namespace clockcomm::web
