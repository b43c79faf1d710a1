// Setting up a program folder: registry.ini, clockcomm.dta with the defaults, the data directory
// with "Debug Logs", and the empty databases.
#pragma once

#include <filesystem>

namespace clockcomm::shell {

// Throws core::InvalidOperationException naming the file when the folder is already set up and
// force is false. A forced run writes the defaults over registry.ini and clockcomm.dta but keeps
// the databases and their rows (and the registry sections that are not ours, such as [Ports]).
// The data directory is data_directory when given (a service keeps its data apart from its
// configuration), else "data" in the program folder.
void InitializeProgramFolder(const std::filesystem::path& home, bool force,
                             const std::filesystem::path& data_directory = {});

}  // namespace clockcomm::shell
