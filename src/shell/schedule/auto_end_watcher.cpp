#include "shell/schedule/auto_end_watcher.h"

namespace clockcomm::shell {

AutoEndWatcher::AutoEndWatcher(core::Clock& clock, const core::DateTime& end,
                               core::StopSignal& end_comm_loop, core::LogSink& log)
    : thread_([this, &clock, end, &end_comm_loop, &log] {
        if (!clock.WaitUntil(end, cancel_)) return;
        log.Debug("", "Auto-end time reached: " + end.Format("yyyy-mm-dd HH:nn"));
        fired_ = true;
        end_comm_loop.Request();
      }) {}

AutoEndWatcher::~AutoEndWatcher() {
  cancel_.Request();
  thread_.join();
}

}  // namespace clockcomm::shell
