// backup: a consistent copy of every database of the site while the service goes on running.
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "app/command_support.h"
#include "app/commands.h"
#include "core/log_sink.h"
#include "core/safe_path.h"
#include "db/location.h"
#include "db/schema.h"
#include "db/sqlite/sqlite_backup.h"

namespace clockcomm::app {
namespace fs = std::filesystem;
namespace {

// The path of file under folder, or nothing when it lies outside it.
std::optional<fs::path> Within(const fs::path& folder, const fs::path& file) {
  const fs::path relative =
      fs::weakly_canonical(file).lexically_relative(fs::weakly_canonical(folder));
  if (relative.empty() || *relative.begin() == "..") return std::nullopt;
  return relative;
}

struct Copy {
  fs::path from;
  fs::path to;  // relative to the backup folder
};

// The databases of the data directory, then each company's, in the folder layout of the data
// directory (a company kept elsewhere goes under "companies/<name>"). Databases on a server are
// the server's to back up: they are named in on_server.
std::vector<Copy> DatabasesOf(const Context& ctx, std::vector<std::string>& on_server) {
  const fs::path data = ctx.paths.DataDirectory();
  std::vector<Copy> copies;
  for (const fs::path& file : {ctx.paths.CompanyRegistryDatabase(), ctx.paths.ClockwynDatabase(),
                               ctx.paths.EventLogDatabase()}) {
    if (db::IsServerLocation(file.native())) {
      on_server.push_back(file.native());
    } else if (fs::exists(file)) {
      copies.push_back({file, Within(data, file).value_or(file.filename())});
    }
  }
  core::NullLogSink no_log;
  std::set<fs::path> seen;
  for (const auto& company : LoadFactory(ctx.paths, no_log).GetCompanyList()) {
    const fs::path file = company.ClockwynDatabaseFilename();
    if (db::IsServerLocation(file.native())) {
      on_server.push_back(file.native());
      continue;
    }
    if (!fs::exists(file) || !seen.insert(fs::weakly_canonical(file)).second) continue;
    copies.push_back({file, Within(data, file)
                                .value_or(fs::path("companies") /
                                          core::SafeFileName(company.Name()) / file.filename())});
  }
  return copies;
}

void RunBackup(const GlobalOptions& options, const std::string& to) {
  const Context ctx(options);
  const fs::path folder = fs::absolute(to);
  if (Within(ctx.paths.DataDirectory(), folder)) {
    Fail("clockcomm backup: --to " + folder.string() + " is inside the data directory " +
         ctx.paths.DataDirectory().string() + "; choose a folder outside it.");
  }
  int failed = 0;
  int64_t total = 0;
  std::vector<std::string> on_server;
  const auto copies = DatabasesOf(ctx, on_server);
  for (const std::string& location : on_server) {
    std::cout << db::ShownLocation(location)
              << "  on the database server: not copied (back it up with the server's tools)\n";
  }
  for (const auto& copy : copies) {
    try {
      fs::create_directories((folder / copy.to).parent_path());
      const int64_t size = db::BackupSqliteFile(copy.from, folder / copy.to);
      total += size;
      std::cout << copy.to.string() << "  " << (size + 1023) / 1024 << " KB\n";
    } catch (const std::exception& e) {
      ++failed;
      std::cerr << "clockcomm backup: " << copy.from.string() << " not copied: " << e.what()
                << "\n";
    }
  }
  std::cout << copies.size() - failed << " of " << copies.size() << " database(s) copied to "
            << folder.string() << ", " << (total + 1023) / 1024 << " KB\n";
  if (failed > 0) throw CLI::RuntimeError(1);
}

}  // namespace

void RegisterBackupCommand(CLI::App& app, const GlobalOptions& options) {
  auto to = std::make_shared<std::string>();
  CLI::App* backup = app.add_subcommand(
      "backup", "Copy every database (registry, poll list, event log, companies) while running");
  backup->add_option("--to", *to, "Folder for the copies (outside the data directory)")->required();
  backup->callback([&options, to] { RunBackup(options, *to); });
}

}  // namespace clockcomm::app
