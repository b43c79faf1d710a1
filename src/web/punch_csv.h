// The punches of [Clock Data Table] as CSV, one line per row after a header line: what a
// spreadsheet opens. Text is kept as stored (Windows-1252).
#pragma once

#include <string>
#include <string_view>

#include "records/stored_punches.h"

namespace clockcomm::web {

inline constexpr const char* kPunchCsvHeader =
    "ID,Punch,Card ID,Department,JobNumber,Level4,Level5,Punch Type,Date In,Time In,Date Out,"
    "Time Out,Amount,Amount Column\r\n";

// One text field: quoted when it holds a comma, a quote or a line break; a field a spreadsheet
// would take for a formula (=, +, -, @, tab, CR first) is led by an apostrophe.
std::string CsvField(std::string_view text);
std::string PunchCsvLine(const records::StoredPunch& punch);

}  // namespace clockcomm::web
