#include "records/tcd_file_reader.h"

#include <cerrno>
#include <cmath>
#include <limits>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::records {
TcdFileReader::TcdFileReader(const std::filesystem::path& file_name) : name_(file_name.string()) {
  in_.open(file_name, std::ios::binary);
  if (!in_.is_open()) throw core::SystemError::FromErrno(errno ? errno : ENOENT, name_);
}

void TcdFileReader::CloseReader() {
  if (in_.is_open()) in_.close();
}

std::vector<std::string> TcdFileReader::SplitFields(std::string_view line) {
  std::vector<std::string> fields;
  size_t i = 0;
  while (true) {
    while (i < line.size() && line[i] == ' ') ++i;
    std::string field;
    if (i < line.size() && line[i] == '"') {
      // A quoted field; two quotes in a row inside it stand for one.
      for (++i; i < line.size(); ++i) {
        if (line[i] != '"') {
          field += line[i];
        } else if (i + 1 < line.size() && line[i + 1] == '"') {
          field += '"';
          ++i;
        } else {
          ++i;
          break;
        }
      }
      // Anything between the closing quote and the comma is dropped.
      while (i < line.size() && line[i] != ',') ++i;
    } else {
      const size_t comma = line.find(',', i);
      const size_t end = comma == std::string_view::npos ? line.size() : comma;
      field = core::Trim(line.substr(i, end - i));
      i = end;
    }
    fields.push_back(std::move(field));
    if (i >= line.size()) break;
    ++i;  // past the comma
  }
  return fields;
}

size_t TcdFileReader::SplitViews(std::string_view line, Fields& fields, std::string& scratch) {
  scratch.clear();
  scratch.reserve(line.size());  // views into it stay valid: it never grows past the line
  size_t count = 0;
  size_t i = 0;
  while (true) {
    while (i < line.size() && line[i] == ' ') ++i;
    std::string_view field;
    if (i < line.size() && line[i] == '"') {
      const size_t start = ++i;
      const size_t close = line.find('"', start);
      if (close == std::string_view::npos || close + 1 >= line.size() || line[close + 1] != '"') {
        // No doubled quote: the field is the text up to the closing quote.
        const size_t end = close == std::string_view::npos ? line.size() : close;
        field = line.substr(start, end - start);
        i = end == line.size() ? end : end + 1;
      } else {
        const size_t from = scratch.size();
        for (; i < line.size(); ++i) {
          if (line[i] != '"') {
            scratch += line[i];
          } else if (i + 1 < line.size() && line[i + 1] == '"') {
            scratch += '"';
            ++i;
          } else {
            ++i;
            break;
          }
        }
        field = std::string_view(scratch).substr(from);
      }
      // Anything between the closing quote and the comma is dropped.
      while (i < line.size() && line[i] != ',') ++i;
    } else {
      const size_t comma = line.find(',', i);
      const size_t end = comma == std::string_view::npos ? line.size() : comma;
      field = core::TrimView(line.substr(i, end - i));
      i = end;
    }
    if (count < fields.size()) fields[count] = field;
    ++count;
    if (i >= line.size()) break;
    ++i;  // past the comma
  }
  return count;
}

TcdRecord TcdFileReader::FromViews(const Fields& f) {
  TcdRecord record(f[0], core::LeadingInt32(f[1]), core::LeadingInt32(f[2]), std::nullopt, f[4],
                   f[5], f[6], f[7], std::nullopt, std::nullopt, std::nullopt, std::nullopt,
                   std::nullopt, f[13], false);
  record.SetDepartmentText(f[3]);
  record.SetDateInText(f[8]);
  record.SetTimeInText(f[9]);
  record.SetDateOutText(f[10]);
  record.SetTimeoutText(f[11]);
  record.SetAmountText(f[12]);
  return record;
}

TcdRecord TcdFileReader::FromFields(const std::vector<std::string>& fields) {
  Fields views;
  for (size_t i = 0; i < views.size(); ++i) views[i] = fields.at(i);
  return FromViews(views);
}

bool TcdFileReader::Read() {
  record_.reset();
  if (!in_.is_open()) return false;
  while (std::getline(in_, line_)) {
    ++line_number_;
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    if (core::TrimView(line_).empty()) continue;
    Fields fields;
    const size_t count = SplitViews(line_, fields, scratch_);
    if (count < fields.size()) {
      throw core::FormatException("Input past end of file: line " + std::to_string(line_number_) +
                                  " of " + name_ + " has " + std::to_string(count) +
                                  " fields, 14 are needed.");
    }
    record_ = FromViews(fields);
    return true;
  }
  line_.clear();
  return false;
}

}  // namespace clockcomm::records
