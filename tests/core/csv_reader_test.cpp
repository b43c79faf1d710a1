#include "core/csv_reader.h"

#include <gtest/gtest.h>

namespace clockcomm::core {
namespace {

// A record as line, fields, and whether it was refused.
struct Expected {
  int line;
  std::vector<std::string> fields;
  bool refused = false;
};

// A quoted comma and an empty field are the employee import's.
TEST(CsvReader, RecordsFieldsAndLines) {
  struct Case {
    const char* legend;
    std::string text;
    std::vector<Expected> records;
  };
  const Case cases[] = {
      {"doubled quotes", "\"say \"\"hi\"\"\",x", {{1, {"say \"hi\"", "x"}}}},
      {"line break inside quotes", "1,\"a\nb\"\n2,c\n", {{1, {"1", "a\nb"}}, {3, {"2", "c"}}}},
      {"blank lines", "\r\n\r\n1,a\r\n   \r\n2,b", {{3, {"1", "a"}}, {5, {"2", "b"}}}},
      {"lines ended by CR alone", "1\r2\r", {{1, {"1"}}, {2, {"2"}}}},
      {"blanks around fields", " 1 ,\t a b ,\" c \"", {{1, {"1", "a b", " c "}}}},
      {"trailing empty fields", "1,,", {{1, {"1", "", ""}}}},
      {"Windows-1252 bytes", "caf\xE9,\x80\x9F", {{1, {"caf\xE9", "\x80\x9F"}}}},
      {"stray quote, next line read", "2\"1,x\n3,y\n", {{1, {}, true}, {2, {"3", "y"}}}},
      {"text after a closing quote", "\"a\"b,c\n\"d\"\n", {{1, {}, true}, {2, {"d"}}}},
      {"quote never closed", "1,x\n2,\"open\n3,z\n", {{1, {"1", "x"}}, {2, {}, true}}},
  };
  for (const auto& c : cases) {
    const auto records = ReadCsv(c.text);
    ASSERT_EQ(records.size(), c.records.size()) << c.legend;
    for (size_t i = 0; i < records.size(); ++i) {
      EXPECT_EQ(records[i].line, c.records[i].line) << c.legend << " #" << i;
      EXPECT_EQ(records[i].fields, c.records[i].fields) << c.legend << " #" << i;
      EXPECT_EQ(!records[i].error.empty(), c.records[i].refused) << c.legend << " #" << i;
    }
  }
}

}  // namespace
}  // namespace clockcomm::core
