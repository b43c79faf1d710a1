// Under systemd the journal takes a copy of every event, with a priority from its event type and
// the clock it was about as fields of its own (CLOCK_NAME, CLOCK_NUMBER, EVENT_TYPE), so that
// `journalctl -u clockcomm -p warning` or `CLOCK_NAME=DOCK` finds it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "shell/logs.h"

namespace clockcomm::shell {

// True when stdout or stderr is a stream to the journal (JOURNAL_STREAM names its device and
// inode): the journal then stamps each line, and events are worth sending with their fields.
bool OutputGoesToJournal();

// The syslog priority of an event type: errors and failures LOG_ERR, what needs a look
// LOG_WARNING, the milestones of a call LOG_NOTICE, the rest LOG_INFO.
int JournalPriority(std::string_view event_type);

// The journal's fields of one event ("NAME=value"), its text turned from Windows-1252 into UTF-8.
std::vector<std::string> JournalFields(std::string_view event_type, std::string_view description,
                                       std::string_view clock_name, int clock_number);

class JournalLog : public EventListener {
 public:
  void OnEvent(std::string_view event_type, std::string_view description,
               std::string_view clock_name, int clock_number) override;
};

}  // namespace clockcomm::shell
