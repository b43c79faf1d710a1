// The two log operations every layer writes through: an event-log entry (event type and
// description) and a line of one of the daily text logs. The shell supplies the real stores; lower
// layers only see this interface.
#pragma once

#include <string>
#include <string_view>

namespace clockcomm::core {

class LogSink {
 public:
  virtual ~LogSink() = default;
  // One row of the event log.
  virtual void Event(std::string_view event_type, std::string_view description) = 0;
  // One line of the general debug log, or of the per-name debug log when name is not empty.
  virtual void Debug(std::string_view name, std::string_view message) = 0;
  // One line of the screen log (the lines the operator sees).
  virtual void Screen(std::string_view message) = 0;
  // The clock whose call the calling thread is handling (an empty name: none); stores that keep
  // per-clock columns fill them from it.
  virtual void SetCurrentClock(std::string_view /*name*/, int /*number*/) {}
  // Writes out what the stores hold in buffers; called at the end of each call.
  virtual void Flush() {}
};

// Discards everything; for tools and tests that do not look at the logs.
class NullLogSink : public LogSink {
 public:
  void Event(std::string_view, std::string_view) override {}
  void Debug(std::string_view, std::string_view) override {}
  void Screen(std::string_view) override {}
};

}  // namespace clockcomm::core
