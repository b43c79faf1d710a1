// What an operator of the web console may do: a viewer looks, an operator also runs the lines,
// an administrator also keeps the settings and the operators.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace clockcomm::web {

enum class Role { kViewer = 1, kOperator = 2, kAdministrator = 3 };

// "viewer", "operator", "administrator".
std::string RoleName(Role role);
// The role of that name (exactly as RoleName gives it), or nothing.
std::optional<Role> RoleFromName(std::string_view name);
// Whether an operator of role `held` may do what needs `needed`.
inline bool Allows(Role held, Role needed) { return held >= needed; }

}  // namespace clockcomm::web
