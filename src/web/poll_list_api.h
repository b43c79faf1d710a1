// /api/v1/poll-list: the locations of table PollT, read by any operator and kept (added, changed,
// removed) by an operator, with the checks of `clockcomm poll-list add`.
#pragma once

#include <memory>
#include <mutex>

#include "core/log_sink.h"
#include "db/database.h"
#include "shell/schedule/poll_list.h"
#include "web/api_gate.h"

namespace clockcomm::web {

class PollListApi : public ApiArea {
 public:
  // product_db is a connection of the area's own: requests on it are taken one at a time.
  PollListApi(std::unique_ptr<db::Database> product_db, core::LogSink& log)
      : db_(std::move(product_db)), list_(*db_), log_(log) {}
  void Register(httplib::Server& server, ApiGate& gate) override;

 private:
  void List(const httplib::Request& req, httplib::Response& res, ApiGate& gate);
  void Add(const httplib::Request& req, httplib::Response& res, ApiGate& gate);
  void Change(const httplib::Request& req, httplib::Response& res, ApiGate& gate);
  void Remove(const httplib::Request& req, httplib::Response& res, ApiGate& gate);

  std::mutex mutex_;
  std::unique_ptr<db::Database> db_;
  shell::PollList list_;
  core::LogSink& log_;
};

}  // namespace clockcomm::web
