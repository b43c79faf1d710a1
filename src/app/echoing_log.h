// A log sink that also shows its screen lines on the operator's screen: the scheduler writes its
// lines ("Waiting for Connect Time ...") to the screen log, and the console should see them too.
// With events_too, events are shown as "Type: description" as well (the T4 host has no screen
// lines of its own; its events are what the operator must see).
#pragma once

#include <string>

#include "core/log_sink.h"
#include "terminal/screen_sink.h"

namespace clockcomm::app {

class EchoingLog : public core::LogSink {
 public:
  EchoingLog(core::LogSink& inner, terminal::ScreenSink& screen, bool events_too = false)
      : inner_(inner), screen_(screen), events_too_(events_too) {}
  void Event(std::string_view type, std::string_view description) override {
    inner_.Event(type, description);
    if (events_too_) screen_.Line(std::string(type) + ": " + std::string(description));
  }
  void Debug(std::string_view name, std::string_view message) override {
    inner_.Debug(name, message);
  }
  void Screen(std::string_view message) override {
    inner_.Screen(message);
    screen_.Line(message);
  }
  void Flush() override { inner_.Flush(); }

 private:
  core::LogSink& inner_;
  terminal::ScreenSink& screen_;
  bool events_too_;
};

}  // namespace clockcomm::app
