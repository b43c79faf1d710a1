#include "sim/punch_source.h"

#include <algorithm>
#include <cerrno>
#include <fstream>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::sim {

namespace {
constexpr int kBadges = 20;
constexpr int kShiftMinutes = 8 * 60;
constexpr int kFirstInMinute = 6 * 60;
constexpr int kMinutesPerDay = 24 * 60;
}  // namespace

std::vector<std::string> GeneratePunches(int count, const core::Date& day) {
  std::vector<std::string> punches;
  punches.reserve(static_cast<size_t>(std::max(count, 0)));
  const std::string date = day.Format("yymmdd");
  for (int i = 0; i < count; ++i) {
    const int pair = i / 2;
    const bool in = i % 2 == 0;
    // Pairs start one minute apart; an out comes a shift after its in. Past a day's worth of
    // pairs the minute wraps, but the sequence number keeps every line distinct.
    const int minute = (kFirstInMinute + pair + (in ? 0 : kShiftMinutes)) % kMinutesPerDay;
    const auto time = core::TimeOfDay::FromHms(minute / 60, minute % 60);
    const int badge = 1 + pair % kBadges;
    punches.push_back(std::to_string(i + 1) + "," + std::to_string(badge) + ",,,,," +
                      (in ? "I" : "O") + "," + date + "," + time->Format("HHnn") + ",,,,1");
  }
  return punches;
}

std::vector<std::string> ReadPunchFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw core::SystemError::FromErrno(errno, "open " + path);
  std::vector<std::string> punches;
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::string trimmed = core::Trim(line);
    if (trimmed.empty() || trimmed[0] == '#') continue;
    if (std::count(trimmed.begin(), trimmed.end(), ',') != 12) {
      throw core::ArgumentException(
          path + " line " + std::to_string(number) + ": a punch needs 13 comma-separated fields.",
          "path");
    }
    punches.push_back(trimmed);
  }
  return punches;
}

}  // namespace clockcomm::sim
