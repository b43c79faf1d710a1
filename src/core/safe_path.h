// Guards for names and folders that come from outside (a terminal, an operator's command): a name
// never becomes a path of its own choosing, and a folder stays below the one it belongs to.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace clockcomm::core {

// The longest name SafeFileName gives, in bytes.
inline constexpr size_t kSafeFileNameLimit = 64;

// A name usable as one file name: letters, digits, space, '-', '_', '.' and the Windows-1252
// letters from 0xC0 stay; every other byte (separators, ':', control characters...) becomes '_'.
// Cut to kSafeFileNameLimit bytes; a name that is empty or only dots becomes "_".
std::string SafeFileName(std::string_view name);

// True when candidate is base itself or lies below it, compared after resolving symbolic links
// of the parts that exist and removing "." and "..". Relative paths count from the current folder.
bool IsInside(const std::filesystem::path& base, const std::filesystem::path& candidate);

}  // namespace clockcomm::core
