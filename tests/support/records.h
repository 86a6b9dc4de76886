#pragma once

#include "zuvo.h"

namespace zuvotest {

// Roles that differ only by title, for tests that need distinguishable items.
inline ZuvoRoles rolesTitled(const QString& title) {
    return ZuvoRoles(QVariantHash{{ZuvoRoles::Title(), title}});
}

} // namespace zuvotest
