// Helpers that make a write survive a crash or power loss: flush to the disk, and replace a file
// in one step.
#pragma once

#include <filesystem>
#include <string_view>

namespace clockcomm::core {

// fsync() the file's data and metadata. Throws SystemError.
void SyncFile(const std::filesystem::path& path);
// fsync() a directory so that a created, renamed or deleted entry in it is on the disk.
void SyncDirectory(const std::filesystem::path& dir);
// Writes the content to a temporary file beside the target, syncs it, and renames it over the
// target: readers see the old file or the new one, never half of it.
void WriteFileAtomically(const std::filesystem::path& path, std::string_view content);
// The same with the content copied from another file, a piece at a time.
void CopyFileAtomically(const std::filesystem::path& from, const std::filesystem::path& to);
// Appends the content to the file (made, mode 0640 before the umask, when missing) and syncs it.
// Throws SystemError naming the file.
void AppendDurably(const std::filesystem::path& path, std::string_view content);
// Reads a whole file as bytes. Throws SystemError naming the file.
std::string ReadWholeFile(const std::filesystem::path& path);

}  // namespace clockcomm::core
