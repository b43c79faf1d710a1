// A consistent copy of a SQLite database while other connections go on writing it, through
// SQLite's online backup: the copy holds what was committed when it began.
#pragma once

#include <cstdint>
#include <filesystem>

namespace clockcomm::db {

// Copies the database at from to the file to (written beside it first, synced, then renamed over
// it). Returns the copy's size in bytes. Throws core::SystemError naming the file that failed.
int64_t BackupSqliteFile(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace clockcomm::db
