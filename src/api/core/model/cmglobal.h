#pragma once

#include <QList>
#include <QStringList>
#include <QVariant>
#include <QVariantHash>

namespace CMGlobal {
// Zips a role list and a value list into a hash (extra entries of the longer
// list are ignored).
QVariantHash rolesValuesToHash(const QStringList& roles, const QList<QVariant>& values);
} // namespace CMGlobal
