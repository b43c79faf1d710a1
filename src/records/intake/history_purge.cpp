#include "records/intake/history_purge.h"

#include <string>

#include "core/text.h"
#include "core/screen_message.h"

namespace clockcomm::records {
namespace fs = std::filesystem;
namespace {

std::optional<int> TwoDigits(std::string_view s) {
  if (s.size() != 2 || s[0] < '0' || s[0] > '9' || s[1] < '0' || s[1] > '9') return std::nullopt;
  return (s[0] - '0') * 10 + (s[1] - '0');
}

}  // namespace

std::optional<int> HistoryFileAge(std::string_view file_name, const core::Date& today) {
  if (file_name.size() < 4) return std::nullopt;
  std::optional<int> month = TwoDigits(file_name.substr(0, 2));
  std::optional<int> day = TwoDigits(file_name.substr(2, 2));
  if (!month || !day || *month < 1 || *month > 12 || *day < 1 || *day > 31) return std::nullopt;
  const core::Date dated = core::Date::FromYmdOrThrow(today.Year(), *month, 1).AddDays(*day - 1);
  int age = static_cast<int>(today.DaysSinceEpoch() - dated.DaysSinceEpoch());
  if (age < 0) age += kDaysAddedForLastYear;
  return age;
}

int PurgeHistoryFiles(const fs::path& folder, core::Clock& clock, core::LogSink& log) {
  log.Screen(core::ScreenMessage("{0} Deleting history files more than {1} days old.", clock.Now(),
                           {std::to_string(kHistoryKeepDays)}));
  const core::Date today = clock.Now().GetDate();
  int deleted = 0;
  std::error_code ec;
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const fs::path& path = it->path();
    // Windows matched "*.TCD" without regard to case; so do we.
    if (!core::EqualsIgnoreCase(path.extension().string(), ".TCD")) continue;
    std::error_code file_error;
    if (!it->is_regular_file(file_error)) continue;
    std::optional<int> age = HistoryFileAge(path.filename().string(), today);
    if (!age || *age <= kHistoryKeepDays) continue;
    if (fs::remove(path, file_error)) ++deleted;  // errors are skipped; the next file goes on
  }
  log.Screen(core::ScreenMessage("{0} Event Complete.", clock.Now()));
  return deleted;
}

}  // namespace clockcomm::records
