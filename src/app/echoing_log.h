// A log sink that also shows its screen lines on the operator's screen: the scheduler writes its
// lines ("Waiting for Connect Time ...") to the screen log, and the console should see them too.
#pragma once

#include "core/log_sink.h"
#include "terminal/screen_sink.h"

namespace clockcomm::app {

class EchoingLog : public core::LogSink {
 public:
  EchoingLog(core::LogSink& inner, terminal::ScreenSink& screen) : inner_(inner), screen_(screen) {}
  void Event(std::string_view type, std::string_view description) override {
    inner_.Event(type, description);
  }
  void Debug(std::string_view name, std::string_view message) override {
    inner_.Debug(name, message);
  }
  void Screen(std::string_view message) override {
    inner_.Screen(message);
    screen_.Line(message);
  }

 private:
  core::LogSink& inner_;
  terminal::ScreenSink& screen_;
};

}  // namespace clockcomm::app
