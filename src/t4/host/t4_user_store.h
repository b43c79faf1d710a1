// The company's own copy of its T4 users and their fingerprints (tables [T4 Users] and
// [T4 Templates] of the company database): what the host's tasks send to terminals and what a
// "Reload User" task reads back from the terminal a user enrolled on.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "db/database.h"
#include "t4/it4_device.h"

namespace clockcomm::t4 {

class T4UserStore {
 public:
  // Creates the tables when the database has none yet.
  explicit T4UserStore(db::Database& company_db);

  std::optional<T4User> Find(const std::string& enroll_number);
  // Every user, by enrolment number.
  std::vector<T4User> All();
  // Adds the user, or replaces them and all their fingerprints, in one transaction.
  void Save(const T4User& user);

 private:
  std::vector<T4FingerTemplate> TemplatesOf(const std::string& enroll_number);

  db::Database& db_;
};

}  // namespace clockcomm::t4
