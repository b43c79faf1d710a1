// /api/v1/settings: the fourteen communications settings of the parameter file, read by any
// operator and changed by an administrator with the setup screen's checks and messages (those of
// `clockcomm settings set`).
#pragma once

#include <filesystem>
#include <mutex>

#include "core/log_sink.h"
#include "shell/comm_settings.h"
#include "web/api_gate.h"

namespace clockcomm::web {

class SettingsApi : public ApiArea {
 public:
  SettingsApi(std::filesystem::path program_folder, core::LogSink& log)
      : program_folder_(std::move(program_folder)), log_(log) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  void Change(const httplib::Request& req, httplib::Response& res, ApiGate& gate);

  std::filesystem::path program_folder_;
  core::LogSink& log_;
  std::mutex mutex_;  // one change at a time: each reads the file, changes it and writes it
};

}  // namespace clockcomm::web
