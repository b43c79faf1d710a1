// The call's numbered file of the day: "mmdd" + a four-digit counter, ".TCD" (or ".WHO" for an
// upload of type "W"), the first name not yet taken.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "core/date_time.h"

namespace clockcomm::records {

inline constexpr int kMaxCallFilesPerDay = 9999;
inline constexpr const char* kAllCallFilesUsed = "All 9999 date files for today have been used";

// Creates the first free name of the folder for today (empty) and returns it, or nothing when
// all 9999 are taken. Throws core::SystemError when the folder cannot be written.
std::optional<std::filesystem::path> ClaimCallFile(const std::filesystem::path& folder,
                                                   const core::Date& today,
                                                   std::string_view upload_type);

}  // namespace clockcomm::records
