// The purge of old punch files ("history files") run after each transfer: every "*.TCD" file of a
// folder more than 60 days old is deleted. The age comes from the month and day at the start of
// the file name, taken in the current year.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "core/clock.h"
#include "core/log_sink.h"

namespace clockcomm::records {

inline constexpr int kHistoryKeepDays = 60;
// A name dated later in the year than today belongs to last year: 366 days are added to its
// (negative) age in every year alike, so in a common year such a file counts one day older than
// it is.
inline constexpr int kDaysAddedForLastYear = 366;

// The age in days of a file named "mmdd...", seen on today; nothing when the name does not start
// with a month 01-12 and a day 01-31. A day past the month's end rolls into the next month
// ("0229" in a common year is 1 March).
std::optional<int> HistoryFileAge(std::string_view file_name, const core::Date& today);

// Deletes the history files of the folder older than kHistoryKeepDays, writing the two screen
// lines around it. Files that cannot be deleted are skipped. Returns the number deleted.
int PurgeHistoryFiles(const std::filesystem::path& folder, core::Clock& clock, core::LogSink& log);

}  // namespace clockcomm::records
