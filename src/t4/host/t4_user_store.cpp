#include "t4/host/t4_user_store.h"

namespace clockcomm::t4 {
namespace {

constexpr const char* kSelectUsers =
    "SELECT EnrollNumber, Name, Password, Privilege, Enabled FROM [T4 Users]";

T4User UserOf(const db::Recordset& rs) {
  T4User user;
  user.enroll_number = rs.Field("EnrollNumber").AsText();
  user.name = rs.Field("Name").AsText();
  user.password = rs.Field("Password").AsText();
  user.privilege = static_cast<int>(rs.Field("Privilege").AsInt());
  user.enabled = rs.Field("Enabled").AsBool();
  return user;
}

}  // namespace

T4UserStore::T4UserStore(db::Database& company_db) : db_(company_db) {
  db_.Execute(
      "CREATE TABLE IF NOT EXISTS [T4 Users] (EnrollNumber TEXT PRIMARY KEY, Name TEXT NOT NULL, "
      "Password TEXT NOT NULL, Privilege INTEGER NOT NULL, Enabled INTEGER NOT NULL)");
  db_.Execute(
      "CREATE TABLE IF NOT EXISTS [T4 Templates] (EnrollNumber TEXT NOT NULL, "
      "FingerIndex INTEGER NOT NULL, Flag INTEGER NOT NULL, Template TEXT NOT NULL, "
      "PRIMARY KEY (EnrollNumber, FingerIndex))");
}

std::optional<T4User> T4UserStore::Find(const std::string& enroll_number) {
  auto rs = db_.Query(std::string(kSelectUsers) + " WHERE EnrollNumber = ?", {enroll_number});
  if (rs.Eof()) return std::nullopt;
  T4User user = UserOf(rs);
  user.templates = TemplatesOf(enroll_number);
  return user;
}

std::vector<T4User> T4UserStore::All() {
  std::vector<T4User> users;
  for (auto rs = db_.Query(std::string(kSelectUsers) + " ORDER BY EnrollNumber"); !rs.Eof();
       rs.MoveNext()) {
    users.push_back(UserOf(rs));
  }
  for (auto& user : users) user.templates = TemplatesOf(user.enroll_number);
  return users;
}

void T4UserStore::Save(const T4User& user) {
  db::Transaction transaction(db_);
  db_.Execute("DELETE FROM [T4 Templates] WHERE EnrollNumber = ?", {user.enroll_number});
  db_.Execute(
      "INSERT INTO [T4 Users] (EnrollNumber, Name, Password, Privilege, Enabled) "
      "VALUES (?, ?, ?, ?, ?) ON CONFLICT (EnrollNumber) DO UPDATE SET Name = excluded.Name, "
      "Password = excluded.Password, Privilege = excluded.Privilege, Enabled = excluded.Enabled",
      {user.enroll_number, user.name, user.password, user.privilege, user.enabled});
  for (const auto& t : user.templates) {
    db_.Execute(
        "INSERT INTO [T4 Templates] (EnrollNumber, FingerIndex, Flag, Template) VALUES (?, ?, ?, "
        "?)",
        {user.enroll_number, t.finger_index, t.flag, t.data});
  }
  transaction.Commit();
}

std::vector<T4FingerTemplate> T4UserStore::TemplatesOf(const std::string& enroll_number) {
  std::vector<T4FingerTemplate> templates;
  for (auto rs = db_.Query(
           "SELECT FingerIndex, Flag, Template FROM [T4 Templates] WHERE EnrollNumber = ? "
           "ORDER BY FingerIndex",
           {enroll_number});
       !rs.Eof(); rs.MoveNext()) {
    templates.push_back({static_cast<int>(rs.Field("FingerIndex").AsInt()),
                         static_cast<int>(rs.Field("Flag").AsInt()),
                         rs.Field("Template").AsText()});
  }
  return templates;
}

}  // namespace clockcomm::t4
