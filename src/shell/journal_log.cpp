#include "shell/journal_log.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#define SD_JOURNAL_SUPPRESS_LOCATION  // the fields say where; the source line would not help
#include <systemd/sd-journal.h>

#include <cstdio>
#include <cstdlib>

#include "core/text.h"

namespace clockcomm::shell {
namespace {

bool IsJournalStream(int fd, const char* journal_stream) {
  unsigned long long device = 0;
  unsigned long long inode = 0;
  if (std::sscanf(journal_stream, "%llu:%llu", &device, &inode) != 2) return false;
  struct stat st {};
  return fstat(fd, &st) == 0 && st.st_dev == device && st.st_ino == inode;
}

}  // namespace

bool OutputGoesToJournal() {
  const char* journal_stream = std::getenv("JOURNAL_STREAM");
  if (journal_stream == nullptr) return false;
  return IsJournalStream(1, journal_stream) || IsJournalStream(2, journal_stream);
}

int JournalPriority(std::string_view event_type) {
  // The first rule whose word the type contains decides; the order matters ("Poll Failed, No
  // Response" is a failure, "Punches waiting" a warning).
  struct Rule {
    std::string_view word;
    int priority;
  };
  static constexpr Rule kRules[] = {
      {"error", LOG_ERR},
      {"failed", LOG_ERR},
      {"couldn't", LOG_ERR},
      {"could not", LOG_ERR},
      {"invalid", LOG_ERR},
      {"not written", LOG_ERR},
      {"warning", LOG_WARNING},
      {"offline", LOG_WARNING},
      {"time out", LOG_WARNING},
      {"lost carrier", LOG_WARNING},
      {"dropped", LOG_WARNING},
      {"not ready", LOG_WARNING},
      {"resent", LOG_WARNING},
      {"unknown", LOG_WARNING},
      {"bad", LOG_WARNING},
      {"kept", LOG_WARNING},
      {"set aside", LOG_WARNING},
      {"waiting", LOG_WARNING},
      {"start of", LOG_NOTICE},
      {"end of", LOG_NOTICE},
      {"online", LOG_NOTICE},
      {"recovered", LOG_NOTICE},
      {"again", LOG_NOTICE},
      {"duplicate", LOG_NOTICE},
      {"already present", LOG_NOTICE},
  };
  const std::string type = core::ToLower(event_type);
  for (const Rule& rule : kRules) {
    if (type.find(rule.word) != std::string::npos) return rule.priority;
  }
  return LOG_INFO;
}

std::vector<std::string> JournalFields(std::string_view event_type, std::string_view description,
                                       std::string_view clock_name, int clock_number) {
  std::string message;
  if (!clock_name.empty()) {
    message = std::string(clock_name) + " (" + std::to_string(clock_number) + "): ";
  }
  message += std::string(event_type);
  if (!description.empty()) message += ": " + std::string(description);
  std::vector<std::string> fields = {
      "MESSAGE=" + core::Utf8FromAnsi(message),
      "PRIORITY=" + std::to_string(JournalPriority(event_type)),
      "SYSLOG_IDENTIFIER=clockcomm",
      "EVENT_TYPE=" + core::Utf8FromAnsi(event_type),
  };
  if (!clock_name.empty()) {
    fields.push_back("CLOCK_NAME=" + core::Utf8FromAnsi(clock_name));
    fields.push_back("CLOCK_NUMBER=" + std::to_string(clock_number));
  }
  return fields;
}

void JournalLog::OnEvent(std::string_view event_type, std::string_view description,
                         std::string_view clock_name, int clock_number) {
  const std::vector<std::string> fields =
      JournalFields(event_type, description, clock_name, clock_number);
  std::vector<iovec> parts;
  for (const std::string& field : fields) {
    parts.push_back({const_cast<char*>(field.data()), field.size()});
  }
  // A journal that cannot take the entry is no reason to lose the event: the event log has it.
  sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
}

}  // namespace clockcomm::shell
