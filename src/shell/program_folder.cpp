#include "shell/program_folder.h"

#include "core/errors.h"
#include "db/schema.h"
#include "db/open.h"
#include "shell/comm_settings.h"
#include "shell/install_information.h"
#include "shell/my_static.h"

namespace clockcomm::shell {
namespace fs = std::filesystem;
namespace {

void CreateDatabase(const fs::path& file, void (*create_schema)(db::Database&)) {
  auto database = db::Open(file, db::OpenMode::kCreate);
  create_schema(*database);
}

}  // namespace

void InitializeProgramFolder(const fs::path& home, bool force, const fs::path& data_directory) {
  InstallInformation install(home);
  for (const fs::path& file : {install.RegistryFile(), ParameterFilePath(home)}) {
    if (!force && fs::exists(file)) {
      throw core::InvalidOperationException(
          file.string() + " already exists; use --force to write the defaults over it");
    }
  }
  fs::create_directories(home);
  install.Load();
  install.SetProgramDirectory(home.string());
  install.SetDataDirectory((data_directory.empty() ? home / "data" : data_directory).string());
  install.Save();

  CommSettings settings;
  settings.program_folder = home.string();
  WriteCommSettings(home, settings);

  const MyPaths paths = MyStatic::Load(home)->Paths();
  fs::create_directories(paths.DebugLogDirectory());
  CreateDatabase(paths.EventLogDatabase(), db::CreateEventLogSchema);
  CreateDatabase(paths.CompanyRegistryDatabase(), db::CreateCompanyRegistrySchema);
  CreateDatabase(paths.ClockwynDatabase(), db::CreateProductSchema);
}

}  // namespace clockcomm::shell
