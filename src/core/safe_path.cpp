#include "core/safe_path.h"

#include <algorithm>

namespace clockcomm::core {
namespace fs = std::filesystem;

namespace {

bool Kept(unsigned char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
  if (c == ' ' || c == '-' || c == '_' || c == '.') return true;
  // 0xD7 and 0xF7 are the multiplication and division signs among the accented letters.
  return c >= 0xC0 && c != 0xD7 && c != 0xF7;
}

// Absolute, links of the existing part resolved, "." and ".." gone; empty when that fails.
fs::path Resolved(const fs::path& path) {
  std::error_code ec;
  fs::path absolute = fs::absolute(path, ec);
  if (ec) return {};
  fs::path resolved = fs::weakly_canonical(absolute, ec);
  if (ec) return {};
  return resolved.lexically_normal();
}

}  // namespace

std::string SafeFileName(std::string_view name) {
  std::string safe(name.substr(0, kSafeFileNameLimit));
  for (char& c : safe) {
    if (!Kept(static_cast<unsigned char>(c))) c = '_';
  }
  if (safe.find_first_not_of('.') == std::string::npos) return "_";
  return safe;
}

bool IsInside(const fs::path& base, const fs::path& candidate) {
  const fs::path b = Resolved(base);
  const fs::path c = Resolved(candidate);
  if (b.empty() || c.empty()) return false;
  // Component by component; the empty last element of a path ending in "/" does not count.
  auto end_of = [](const fs::path& p) {
    auto end = p.end();
    if (p.has_relative_path() && !p.has_filename()) --end;
    return end;
  };
  auto b_end = end_of(b);
  auto c_end = end_of(c);
  auto [b_stop, c_stop] = std::mismatch(b.begin(), b_end, c.begin(), c_end);
  return b_stop == b_end;
}

}  // namespace clockcomm::core
