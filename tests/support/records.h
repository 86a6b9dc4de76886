#pragma once

#include "zuvo.h"

namespace zuvotest {

// Roles that differ only by title, for tests that need distinguishable items.
inline ZuvoRoles rolesTitled(const QString& title) {
    ZuvoRoles roles;
    roles.setTitle(title);
    return roles;
}

} // namespace zuvotest
