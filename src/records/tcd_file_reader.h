// Reads TCD lines back into records. Quoted fields may hold commas; quotes are removed. A line
// with fewer than fourteen fields is a bad line: Read throws core::FormatException and the next
// Read goes on with the following line.
#pragma once

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "records/tcd_stream.h"

namespace clockcomm::records {

class TcdFileReader : public ITcdReader {
 public:
  // Opens at once; throws core::SystemError naming the file.
  explicit TcdFileReader(const std::filesystem::path& file_name);
  ~TcdFileReader() override { CloseReader(); }

  // Blank lines are skipped. Throws FormatException (short line) or ArgumentException (a
  // department out of range) for a bad line; LineNumber() and Line() then name it.
  bool Read() override;
  const std::optional<TcdRecord>& Record() const override { return record_; }
  void CloseReader() override;

  // 1-based number and text (without line end) of the line last read.
  int LineNumber() const { return line_number_; }
  const std::string& Line() const { return line_; }

  // The fields of one line with quoted-field rules.
  static std::vector<std::string> SplitFields(std::string_view line);
  // A record built from the fields the way the record's constructor and setters build it.
  static TcdRecord FromFields(const std::vector<std::string>& fields);

 private:
  using Fields = std::array<std::string_view, kTcdFieldCount>;
  // SplitFields without copies: the first fourteen fields as views of the line, or of scratch
  // for a quoted field with doubled quotes in it. Returns the number of fields of the line.
  static size_t SplitViews(std::string_view line, Fields& fields, std::string& scratch);
  static TcdRecord FromViews(const Fields& fields);

  std::string name_;
  std::ifstream in_;
  std::optional<TcdRecord> record_;
  std::string line_;
  std::string scratch_;
  int line_number_ = 0;
};

}  // namespace clockcomm::records
