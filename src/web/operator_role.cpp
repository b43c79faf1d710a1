#include "web/operator_role.h"

namespace clockcomm::web {

std::string RoleName(Role role) {
  switch (role) {
    case Role::kViewer:
      return "viewer";
    case Role::kOperator:
      return "operator";
    case Role::kAdministrator:
      break;
  }
  return "administrator";
}

std::optional<Role> RoleFromName(std::string_view name) {
  for (Role role : {Role::kViewer, Role::kOperator, Role::kAdministrator}) {
    if (name == RoleName(role)) return role;
  }
  return std::nullopt;
}

}  // namespace clockcomm::web
