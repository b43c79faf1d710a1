#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"
#include "records/parameter_override.h"
#include "records/tcd_record_override_service.h"
#include "test_support/temp_dir.h"

namespace clockcomm::records {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

ParameterOverride FromText(const std::string& text) {
  ParameterOverride p;
  p.LoadText(text);
  return p;
}

// The program folder's file, its settings and a warning naming it with the line are the command
// test's.
TEST(ParameterOverrideTest, NoFileMeansTheDefaultsAndANewReadingForgetsOldWarnings) {
  test::TempDir dir;
  EXPECT_FALSE(ParameterOverride(dir.path()).AssignHomeDept()) << "no file: defaults";
  const auto file = dir.path() / "SettingsOverride.txt";
  core::WriteFileAtomically(file, "eotquantity = many\n");
  ParameterOverride p(dir.path());
  ASSERT_EQ(p.Warnings().size(), 1u);
  core::WriteFileAtomically(file, "assignhomedept = yes\n");
  p.Load(file);
  EXPECT_TRUE(p.AssignHomeDept());
  EXPECT_TRUE(p.Warnings().empty());
}

TEST(ParameterOverrideTest, ALaterLineForAKeyReplacesTheEarlierAndSaysSo) {
  const ParameterOverride p = FromText("serialportrate = 1200\r\n\r\nSERIALPORTRATE = 4800\r\n");
  EXPECT_EQ(p.SerialPortRate(), 4800);
  EXPECT_EQ(p.Warnings(), std::vector<std::string>{"SettingsOverride.txt line 3: serialportrate is "
                                                   "set again; line 1 no longer counts"});
}

// The value each property answers, as Effective() writes it.
std::string PropertyText(const ParameterOverride& p, const std::string& key) {
  auto yes_no = [](bool b) { return std::string(b ? "yes" : "no"); };
  if (key == "serialportrate") return std::to_string(p.SerialPortRate());
  if (key == "HostCycleInterval") return std::to_string(p.HostCycleInterval());
  if (key == "eotquantity") return std::to_string(p.EOTQuantity());
  if (key == "eotinterval") return core::NumberText(p.EOTInterval());
  if (key == "assignhomedept") return yes_no(p.AssignHomeDept());
  if (key == "assigndefaultjob") return yes_no(p.AssignDefaultJob());
  if (key == "duplicatetcdfile") return p.DuplicateTCD();
  if (key == "atsupdate") return yes_no(p.ATSUpdate());
  return "unknown key " + key;
}

TEST(ParameterOverrideTest, EachLineItCannotUseIsWarnedWithItsLineAndTheDefaultsStay) {
  struct Case {
    const char* line;
    const char* warning;  // what the one warning says after "site.txt line 2: "; "" for none
    const char* key;      // the setting then in effect
    const char* value;
    bool is_default;
  };
  const Case cases[] = {
      {"AssignHomeDept = Yes", "", "assignhomedept", "yes", false},
      {"assignhomedept = ON", "", "assignhomedept", "yes", false},
      {"assignhomedept = 1", "", "assignhomedept", "yes", false},
      {"assignhomedept = off", "", "assignhomedept", "no", false},
      {"assigndefaultjob = True ; for the night shift", "", "assigndefaultjob", "yes", false},
      {"assignhomedept =", "assignhomedept = \"\" is not yes/no", "assignhomedept", "no", true},
      {"assignhomedpt = yes", "unknown key \"assignhomedpt\"; no setting reads it",
       "assignhomedept", "no", true},
      {"assignhomedept yes", "\"assignhomedept yes\" is not key = value; the line is ignored",
       "assignhomedept", "no", true},
      {"assignhomedept = yes = no", "\"assignhomedept = yes = no\" has more than one \"=\"",
       "assignhomedept", "no", true},
      {" = yes", "\"= yes\" has no key; the line is ignored", "assignhomedept", "no", true},
      {"serialportrate = 19201",
       "serialportrate = \"19201\" is not from 300 to 19200; the default 9600 is used",
       "serialportrate", "9600", true},
      {"SerialPortRate = 300", "", "serialportrate", "300", false},
      {"serialportrate = 19200", "", "serialportrate", "19200", false},
      {"serialportrate = 299", "is not from 300 to 19200", "serialportrate", "9600", true},
      {"serialportrate = fast", "\"fast\" is not a number", "serialportrate", "9600", true},
      // Inside the range but no line runs at it: taken as written, and the site is told.
      {"serialportrate = 1234", "the line will not open at 1234", "serialportrate", "1234", false},
      {"serialportrate = 2400 baud", "", "serialportrate", "2400", false},
      {"HostCycleInterval = 1000", "HostCycleInterval = \"1000\" is below 30000 ms; 30000 is used",
       "HostCycleInterval", "30000", false},
      {"hostcycleinterval = 90000000", "above 86400000 ms (one day); 86400000 is used",
       "HostCycleInterval", "86400000", false},
      {"hostcycleinterval = 45000", "", "HostCycleInterval", "45000", false},
      {"hostcycleinterval = 0:01:30", "", "HostCycleInterval", "90000", false},
      {"hostcycleinterval = soon", "neither milliseconds nor a time", "HostCycleInterval", "30000",
       true},
      {"EOTQuantity = 100", "", "eotquantity", "100", false},
      {"eotquantity = 101", "is not from 1 to 100", "eotquantity", "1", true},
      {"eotinterval = 30", "", "eotinterval", "30", false},
      {"eotinterval = 2.5", "", "eotinterval", "2.5", false},
      {"eotinterval = 30.5", "above 30 seconds; the default 0.1 is used", "eotinterval", "0.1",
       true},
      {"eotinterval = x", "eotinterval = \"x\" is not a number; 0 is used", "eotinterval", "0",
       false},
      {"duplicatetcdfile = /dup/[FileName]", "", "duplicatetcdfile", "/dup/[FileName]", false},
  };
  for (const Case& c : cases) {
    ParameterOverride p;
    p.LoadText(std::string("; site overrides\r\n") + c.line + "\r\n", "site.txt");
    if (*c.warning == '\0') {
      EXPECT_THAT(p.Warnings(), IsEmpty()) << c.line;
    } else {
      EXPECT_THAT(p.Warnings(),
                  ElementsAre(AllOf(StartsWith("site.txt line 2: "), HasSubstr(c.warning))));
    }
    bool found = false;
    for (const OverrideSetting& s : p.Effective()) {
      // What Effective() says must be what the loops read.
      EXPECT_EQ(s.value, PropertyText(p, s.key)) << c.line;
      if (s.key != c.key) continue;
      found = true;
      EXPECT_EQ(s.value, c.value) << c.line;
      EXPECT_EQ(s.is_default, c.is_default) << c.line;
    }
    EXPECT_TRUE(found) << c.key;
  }
}

TcdRecord Rec(const char* type, std::optional<int64_t> dept, const char* job, int badge = 77) {
  return TcdRecord("1", 1, badge, dept, job, "", "", type, {}, {}, {}, {}, {}, "");
}

// The common cases (an in punch given the home department and default job, an out punch or a
// filled one left alone) are the transfer test's.
TEST(OverrideServiceTest, DepartmentAndJobRules) {
  EmployeeInfoMap employees;
  employees.Add({77, 12, "task"});
  employees.Add({78, std::nullopt, "12345678901234"});
  const TcdRecordOverrideService on(employees, FromText("assignhomedept = yes\n"
                                                        "assigndefaultjob = yes\n"));
  const TcdRecordOverrideService off(employees, FromText("assignhomedept = no\n"));
  struct Case {
    const char* legend;
    const TcdRecordOverrideService& service;
    TcdRecord record;
    std::optional<int32_t> dept;
    const char* job;
  };
  const Case cases[] = {
      {"department 0 counts as none", on, Rec("I", 0, ""), 12, "task"},
      {"unknown badge", on, Rec("I", std::nullopt, "", 99), std::nullopt, ""},
      {"PI", on, Rec("PI", std::nullopt, ""), 12, "task"},
      {"lunch in untouched", on, Rec("LI", std::nullopt, ""), std::nullopt, ""},
      {"switched off", off, Rec("I", std::nullopt, ""), std::nullopt, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.service.OverrideDepartment(c.record), c.dept) << c.legend;
    EXPECT_EQ(c.service.OverrideJobNumber(c.record), c.job) << c.legend;
  }
  EXPECT_THROW(on.OverrideJobNumber(Rec("I", std::nullopt, "", 78)), core::ArgumentException)
      << "a default job longer than 13 characters goes through the setter";
  EXPECT_FALSE(PunchTypeInList(TcdRecordOverrideService::kPunchTypes, ""));
  EXPECT_FALSE(PunchTypeInList(TcdRecordOverrideService::kPunchTypes, "I P"));
}

}  // namespace
}  // namespace clockcomm::records
