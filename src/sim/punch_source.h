// Punches for a simulated terminal: generated in bulk for demos and benchmarks, or read from a
// file of 13-field lines.
#pragma once

#include <string>
#include <vector>

#include "core/date_time.h"

namespace clockcomm::sim {

// count punches on the given day: badges 1-20 in turn, each pair an in punch and, eight hours
// later, an out punch; sequence numbers from 1; every punch differs from every other.
std::vector<std::string> GeneratePunches(int count, const core::Date& day);

// One punch per line, 13 comma-separated fields ("2,12,,,,,I,091020,1224,,,,1"); blank lines and
// lines starting with '#' are skipped. Throws core::ArgumentException naming the file and line of
// a line that does not have 13 fields, core::SystemError when the file cannot be read.
std::vector<std::string> ReadPunchFile(const std::string& path);

}  // namespace clockcomm::sim
