// GET /api/v1/terminals: every terminal of the site with its last contact and punches.
#pragma once

#include <functional>

#include "shell/site_status.h"
#include "web/api_gate.h"

namespace clockcomm::web {

class TerminalsApi : public ApiArea {
 public:
  explicit TerminalsApi(std::function<shell::SiteStatus()> site_status)
      : site_status_(std::move(site_status)) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  std::function<shell::SiteStatus()> site_status_;
};

}  // namespace clockcomm::web
