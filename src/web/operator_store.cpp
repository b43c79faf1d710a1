#include "web/operator_store.h"

#include <cctype>

#include "core/errors.h"

namespace clockcomm::web {

std::optional<std::string> InvalidOperatorName(std::string_view name) {
  if (name.empty()) return "An operator name cannot be empty.";
  if (name.size() > kMaxOperatorName) {
    return "An operator name has at most " + std::to_string(kMaxOperatorName) + " characters.";
  }
  const auto plain = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
  for (const char c : name) {
    if (!plain(c) && c != '.' && c != '_' && c != '-' && c != '@') {
      return "An operator name is letters, digits, '.', '_', '-' and '@' only.";
    }
  }
  if (!plain(name.front())) return "An operator name starts with a letter or a digit.";
  return std::nullopt;
}

OperatorStore::OperatorStore(db::Database& db, PasswordHasher& hasher, core::Clock& clock)
    : db_(db), hasher_(hasher), clock_(clock) {}

void OperatorStore::CheckPassword(std::string_view password) {
  if (password.empty()) throw core::ArgumentException("The password cannot be empty.", "password");
  if (password.size() > kMaxPassword) {
    throw core::ArgumentException(
        "The password is longer than " + std::to_string(kMaxPassword) + " characters.", "password");
  }
}

void OperatorStore::Add(const std::string& name, Role role, std::string_view password) {
  if (auto reason = InvalidOperatorName(name)) throw core::ArgumentException(*reason, "name");
  CheckPassword(password);
  const std::string hash = hasher_.Hash(password);
  std::lock_guard lock(mutex_);
  db::Transaction transaction(db_);
  if (!db_.Query("SELECT 1 FROM [Operators] WHERE [Name] = ?", {name}).Eof()) {
    throw core::InvalidOperationException("Operator \"" + name + "\" already exists.");
  }
  db_.Execute(
      "INSERT INTO [Operators] ([Name], [Role], [Password Hash], [Changed]) VALUES (?, ?, ?, ?)",
      {name, RoleName(role), hash, clock_.Now()});
  transaction.Commit();
}

void OperatorStore::SetPassword(const std::string& name, std::string_view password) {
  CheckPassword(password);
  const std::string hash = hasher_.Hash(password);
  std::lock_guard lock(mutex_);
  if (db_.Execute("UPDATE [Operators] SET [Password Hash] = ?, [Changed] = ? WHERE [Name] = ?",
                  {hash, clock_.Now(), name}) == 0) {
    throw core::ItemNotFoundException("No operator named \"" + name + "\".");
  }
}

void OperatorStore::Remove(const std::string& name) {
  std::lock_guard lock(mutex_);
  if (db_.Execute("DELETE FROM [Operators] WHERE [Name] = ?", {name}) == 0) {
    throw core::ItemNotFoundException("No operator named \"" + name + "\".");
  }
}

std::vector<Operator> OperatorStore::List() {
  std::lock_guard lock(mutex_);
  std::vector<Operator> operators;
  for (auto rs = db_.Query("SELECT [Name], [Role] FROM [Operators] ORDER BY [Name]"); !rs.Eof();
       rs.MoveNext()) {
    // A role written by a newer program reads as the least one.
    operators.push_back({rs.Field("Name").AsText(),
                         RoleFromName(rs.Field("Role").AsText()).value_or(Role::kViewer)});
  }
  return operators;
}

std::optional<Operator> OperatorStore::Find(std::string_view name) {
  if (InvalidOperatorName(name)) return std::nullopt;
  std::lock_guard lock(mutex_);
  auto rs = db_.Query("SELECT [Role], [Password Hash] FROM [Operators] WHERE [Name] = ?",
                      {std::string(name)});
  if (rs.Eof()) return std::nullopt;
  // A role written by a newer program reads as the least one.
  return Operator{std::string(name),
                  RoleFromName(rs.Field("Role").AsText()).value_or(Role::kViewer),
                  rs.Field("Password Hash").AsText()};
}

std::optional<Operator> OperatorStore::Authenticate(std::string_view name,
                                                    std::string_view password) {
  std::optional<Operator> found;
  if (!password.empty() && password.size() <= kMaxPassword) found = Find(name);
  if (!found) {
    hasher_.VerifyNothing(password.substr(0, kMaxPassword));
    return std::nullopt;
  }
  if (!hasher_.Verify(found->password_hash, password)) return std::nullopt;
  return found;
}

}  // namespace clockcomm::web
