#include "core/csv_reader.h"

#include <csv.h>

#include <memory>
#include <new>

namespace clockcomm::core {
namespace {

// What the parser's callbacks build; `started` tells whether the record under way has shown a
// character that is not blank, so that its first line is known.
struct Collector {
  std::vector<CsvRecord>& records;
  CsvRecord current;
  bool started = false;
};

void OnField(void* data, size_t size, void* sink) {
  auto& c = *static_cast<Collector*>(sink);
  c.current.fields.emplace_back(size == 0 ? "" : static_cast<const char*>(data), size);
}

void OnRecordEnd(int, void* sink) {
  auto& c = *static_cast<Collector*>(sink);
  if (c.started) c.records.push_back(std::move(c.current));  // else a line of blanks only
  c.current = {};
  c.started = false;
}

// One libcsv parser in strict mode, so that a misplaced quote is an error rather than a guess.
class Parser {
 public:
  Parser() {
    if (csv_init(&p_, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
  }
  ~Parser() { csv_free(&p_); }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  bool Feed(char c, Collector& sink) {
    return csv_parse(&p_, &c, 1, OnField, OnRecordEnd, &sink) == 1;
  }
  bool Finish(Collector& sink) { return csv_fini(&p_, OnField, OnRecordEnd, &sink) == 0; }
  bool OutOfMemory() { return csv_error(&p_) == CSV_ENOMEM || csv_error(&p_) == CSV_ETOOBIG; }

 private:
  csv_parser p_;
};

}  // namespace

std::vector<CsvRecord> ReadCsv(std::string_view text) {
  std::vector<CsvRecord> records;
  Collector sink{records};
  auto parser = std::make_unique<Parser>();
  int line = 1;
  auto refuse = [&](const char* reason) {
    records.push_back({sink.current.line, {}, reason});
    sink.current = {};
    sink.started = false;
  };
  // Fed byte by byte so that each record's first line is known; employee files are small.
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!sink.started && c != ' ' && c != '\t' && c != '\r' && c != '\n') {
      sink.started = true;
      sink.current.line = line;
    }
    if (!parser->Feed(c, sink)) {
      if (parser->OutOfMemory()) throw std::bad_alloc();
      refuse("a double quote inside a field that is not quoted, or after a quoted one");
      // Go on with the next line, with a parser that has forgotten this record.
      while (i + 1 < text.size() && text[i + 1] != '\n' && text[i + 1] != '\r') ++i;
      parser = std::make_unique<Parser>();
      continue;
    }
    if (c == '\n' || (c == '\r' && (i + 1 == text.size() || text[i + 1] != '\n'))) ++line;
  }
  if (!parser->Finish(sink)) {
    if (parser->OutOfMemory()) throw std::bad_alloc();
    refuse("a quoted field is not closed before the end of the file");
  }
  return records;
}

}  // namespace clockcomm::core
