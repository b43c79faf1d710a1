// Comma-separated text as people's spreadsheets write it, read with libcsv: fields in double
// quotes may hold commas, doubled quotes and line breaks; blanks around unquoted fields are
// dropped. Bytes pass through unchanged (Windows-1252 stays Windows-1252).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace clockcomm::core {

struct CsvRecord {
  int line = 0;  // the line the record starts on, from 1
  std::vector<std::string> fields;
  // Why the record could not be read (a stray or unclosed quote); its fields are then empty.
  std::string error;
};

// Every record of the text in order. Blank lines give no record. A malformed record is returned
// with its error, and reading goes on at the next line.
std::vector<CsvRecord> ReadCsv(std::string_view text);

}  // namespace clockcomm::core
