#include "shell/site_copy.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <vector>

#include "core/errors.h"
#include "core/log_sink.h"
#include "db/location.h"
#include "db/open.h"
#include "db/schema.h"
#include "db/table_copy.h"
#include "records/company_factory.h"
#include "records/punch_keys.h"
#include "shell/install_information.h"
#include "shell/my_static.h"

namespace clockcomm::shell {
namespace fs = std::filesystem;
namespace {

constexpr size_t kSchemaNameLimit = 40;

const std::vector<db::KeyedTable> kEventLogTables = {{"LogTable", {"Counter"}}};
const std::vector<db::KeyedTable> kRegistryTables = {{"Company", {"[Company]"}}};
const std::vector<db::KeyedTable> kCompanyTables = {{"[Clock Data Table]", {"ID"}},
                                                    {"[Employee Table]", {"[Card ID]"}},
                                                    {"CompanyInfoT", {}},
                                                    {"LEVEL1", {"[Card ID]"}},
                                                    {"LEVEL2", {"Code"}},
                                                    {"LEVEL3", {"Code"}},
                                                    {"[Punch Keys]", {"Minute", "Hash"}}};

// One database to copy: its SQLite file and where it goes.
struct Job {
  std::string title;  // "event log", "company Acme"
  fs::path source;
  std::string target;
  db::SchemaKind kind;
  std::string company;  // the registry's name, for a company's database
  std::string schema;   // a company's schema on the server
};

// A site's database as a file: [Databases] may name one, or a URL the copy is to replace.
fs::path SourceFile(const InstallInformation& install, const char* name, const fs::path& fallback,
                    const fs::path& data) {
  const std::string value = install.Value(DatabaseLocations::kSection, name);
  if (value.empty() || db::IsServerLocation(value)) return fallback;
  return fs::path(value).is_absolute() ? fs::path(value) : data / value;
}

// company_ and the name in lower-case letters, digits and _, so it needs no quoting anywhere.
std::string SchemaName(const std::string& company, std::set<std::string>& taken) {
  std::string base = "company_";
  for (unsigned char c : company) {
    if (base.size() >= kSchemaNameLimit) break;
    base += std::isalnum(c) && c < 0x80 ? static_cast<char>(std::tolower(c)) : '_';
  }
  std::string name = base;
  for (int n = 2; taken.count(name) > 0; ++n) name = base + "_" + std::to_string(n);
  taken.insert(name);
  return name;
}

void Require(const fs::path& file, const std::string& what) {
  std::error_code ec;
  if (!fs::is_regular_file(file, ec)) {
    throw core::InvalidOperationException("The " + what + " " + file.string() +
                                          " was not found; nothing was copied.");
  }
}

std::string Status(const db::TableCopyResult& r) {
  if (r.kept_target) return "differs: the server's rows were kept (the site already uses them)";
  if (r.target_rows < r.source_rows) {
    return fmt::format("INCOMPLETE: {} rows missing", r.source_rows - r.target_rows);
  }
  if (r.target_rows > r.source_rows) {
    return fmt::format("all there, and {} more written on the server",
                       r.target_rows - r.source_rows);
  }
  if (r.source_rows == 0) return "equal (empty)";
  return r.copied == 0 ? "equal (already copied)" : "equal";
}

// Copies the tables of one database; false when one is not whole on the server.
bool CopyDatabase(const Job& job, db::Database& to, bool switched, std::ostream& out) {
  auto from = db::Open(job.source);
  out << job.title << ": " << job.source.string() << " -> " << db::ShownLocation(job.target)
      << "\n";
  const auto& tables = job.kind == db::SchemaKind::kEventLog          ? kEventLogTables
                       : job.kind == db::SchemaKind::kCompanyRegistry ? kRegistryTables
                                                                      : kCompanyTables;
  bool whole = true;
  for (const db::KeyedTable& keyed : tables) {
    if (keyed.table == "[Punch Keys]") {
      if (!from->TableExists("Punch Keys")) continue;  // no transfer yet
      records::PunchKeys make_table(to);
    }
    const auto progress = [&](int64_t done, int64_t total) {
      if (total > 5000) out << fmt::format("  {}: {} of {} rows read\n", keyed.table, done, total);
    };
    const db::TableCopyResult r = db::CopyTable(*from, to, keyed, !switched, progress);
    out << fmt::format("  {:<20} {:>8} rows, {:>8} copied, {:>8} on the server: {}\n", keyed.table,
                       r.source_rows, r.copied, r.target_rows, Status(r));
    // Once the site runs on the server, a table without a key there is newer than the file's.
    whole = whole && (r.Complete() || (switched && r.kept_target));
  }
  return whole;
}

// The databases to copy, every file checked before the server is touched; notes says what is
// left out.
std::vector<Job> PlanJobs(const fs::path& home, const std::string& url,
                          const InstallInformation& install, std::vector<std::string>& notes) {
  const fs::path data = MyStatic::Load(home)->Paths().DataDirectory();
  const fs::path event_log =
      SourceFile(install, DatabaseLocations::kEventLog, data / db::kEventLogFile, data);
  const fs::path registry =
      SourceFile(install, DatabaseLocations::kRegistry, data / db::kCompanyRegistryFile, data);
  Require(event_log, "event log");
  Require(registry, "company registry");
  std::vector<Job> jobs = {
      {"event log", event_log, url, db::SchemaKind::kEventLog, {}, {}},
      {"company registry", registry, url, db::SchemaKind::kCompanyRegistry, {}, {}}};

  core::NullLogSink quiet;
  records::CompanyFactory companies(quiet, data);
  companies.Initialize(registry);
  std::vector<records::Company> list = companies.GetCompanyList();
  // In name order, so that a second run gives each company the schema of the first.
  std::sort(list.begin(), list.end(),
            [](const auto& a, const auto& b) { return a.Name() < b.Name(); });
  std::set<std::string> taken;
  for (const records::Company& company : list) {
    if (!company.DatabaseLocation().empty()) {
      notes.push_back("company " + company.Name() + ": already on a server (" +
                      db::ShownLocation(company.DatabaseLocation()) + "), not copied");
      continue;
    }
    const fs::path file = company.ClockwynDatabaseFilename();
    Require(file, "database of company \"" + company.Name() + "\"");
    if (db::Open(file)->HasColumn("Punch Keys", "PunchKey")) {
      throw core::InvalidOperationException(
          "The database of company \"" + company.Name() +
          "\" holds punch keys in an older form: run `clockcomm transfer --pending` on the site "
          "once to convert them, then copy again. Nothing was copied.");
    }
    const std::string schema = SchemaName(company.Name(), taken);
    jobs.push_back({"company " + company.Name(), file, db::LocationInSchema(url, schema),
                    db::SchemaKind::kCompany, company.Name(), schema});
  }
  return jobs;
}

// Points the site at the server: the server's registry first (the site does not read it yet),
// then registry.ini. Tells whether anything changed.
bool Switch(const std::vector<Job>& jobs, const std::string& url, db::Database& server,
            InstallInformation& install, std::ostream& out) {
  int companies_set = 0;
  db::Transaction t(server);
  for (const Job& job : jobs) {
    if (job.company.empty()) continue;
    companies_set += static_cast<int>(
        server.Execute("UPDATE Company SET [Database] = ? WHERE [Company] = ? AND [Database] = ''",
                       {job.target, job.company}));
  }
  t.Commit();
  const auto value = [&](const char* name) {
    return install.Value(DatabaseLocations::kSection, name);
  };
  const bool ini_named_server =
      value(DatabaseLocations::kEventLog) == url && value(DatabaseLocations::kRegistry) == url;
  if (!ini_named_server) {
    install.SetValue(DatabaseLocations::kSection, DatabaseLocations::kEventLog, url);
    install.SetValue(DatabaseLocations::kSection, DatabaseLocations::kRegistry, url);
    install.Save();
  }
  if (ini_named_server && companies_set == 0) return false;
  out << "The site now uses the server: " << install.RegistryFile().string()
      << " [Databases] EventLog= and Registry=, and [Database] of " << companies_set
      << " company(ies) in the server's registry. The SQLite files stay as they were: without "
         "[Databases] the site runs on them again.\n";
  return true;
}

}  // namespace

bool CopySiteToServer(const fs::path& home, const std::string& url, std::ostream& out) {
  if (!db::IsServerLocation(url)) {
    throw core::ArgumentException("--to must be a postgresql:// URL, not \"" + url + "\".", "to");
  }
  if (url.find("options=") != std::string::npos) {
    throw core::ArgumentException(
        "--to must not set options=: the copy puts each company in a schema of its own with it.",
        "to");
  }
  InstallInformation install(home);
  if (!fs::exists(install.RegistryFile())) {
    throw core::InvalidOperationException(install.RegistryFile().string() +
                                          " was not found: --from must be the site's program "
                                          "folder. Nothing was copied.");
  }
  install.Load();
  std::vector<std::string> notes;
  const std::vector<Job> jobs = PlanJobs(home, url, install, notes);

  auto server = db::Open(url);
  const bool switched =
      install.Value(DatabaseLocations::kSection, DatabaseLocations::kRegistry) == url;
  out << "Copying the site in " << home.string() << " to " << db::ShownLocation(url) << "\n"
      << "The poll list (" << db::kProductDatabaseFile
      << ") stays in the data folder: it belongs to the lines of this machine.\n";
  for (const std::string& note : notes) out << note << "\n";
  bool whole = true;
  for (const Job& job : jobs) {
    std::unique_ptr<db::Database> own;
    db::Database* target = server.get();
    if (!job.schema.empty()) {
      server->Execute("CREATE SCHEMA IF NOT EXISTS " + job.schema);
      own = db::Open(job.target);
      target = own.get();
    }
    db::MigrateSchema(*target, job.kind);
    whole = CopyDatabase(job, *target, switched, out) && whole;
  }
  if (!whole) {
    out << "Some tables are not whole on the server (above): "
        << (switched ? "registry.ini already names the server, as before.\n"
                     : "the site was NOT switched and still uses its SQLite files.\n");
    return false;
  }
  out << "Every table is on the server.\n";
  if (!Switch(jobs, url, *server, install, out)) {
    out << "The site already used the server: nothing changed.\n";
  }
  return true;
}

}  // namespace clockcomm::shell
