// The operators of the web console, in table [Operators] of the product database: name, role and
// password hash. Safe to use from several server threads at once.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/clock.h"
#include "db/database.h"
#include "web/operator_role.h"
#include "web/password_hasher.h"

namespace clockcomm::web {

// An operator's name: 1 to 32 letters, digits, '.', '_', '-' or '@', starting with a letter or
// digit, so that it reads the same in the event log, a cookie-less URL and a shell.
inline constexpr size_t kMaxOperatorName = 32;
// Longer passwords are refused rather than hashed (a login body is small).
inline constexpr size_t kMaxPassword = 1024;

struct Operator {
  std::string name;
  Role role = Role::kViewer;
  // The stored hash when the operator was read for a login or a session check: a session whose
  // hash is no longer the stored one (a new password, or the operator removed) has ended.
  std::string password_hash;
};

// Why a name cannot be an operator's, or nothing when it can.
std::optional<std::string> InvalidOperatorName(std::string_view name);

class OperatorStore {
 public:
  // db: the product database, brought to the newest schema by the caller.
  OperatorStore(db::Database& db, PasswordHasher& hasher, core::Clock& clock);

  // Throws core::ArgumentException for a bad name or empty password, and
  // core::InvalidOperationException when the name is taken.
  void Add(const std::string& name, Role role, std::string_view password);
  // Throw core::ItemNotFoundException for an unknown name (and ArgumentException as Add).
  void SetPassword(const std::string& name, std::string_view password);
  void Remove(const std::string& name);
  // Every operator, by name.
  std::vector<Operator> List();
  // The operator as stored now (role and hash), or nothing.
  std::optional<Operator> Find(std::string_view name);
  // The operator when name and password match; nothing otherwise (unknown name or wrong
  // password alike, in about the same time).
  std::optional<Operator> Authenticate(std::string_view name, std::string_view password);

 private:
  static void CheckPassword(std::string_view password);
  std::mutex mutex_;  // one statement at a time on the shared connection
  db::Database& db_;
  PasswordHasher& hasher_;
  core::Clock& clock_;
};

}  // namespace clockcomm::web
