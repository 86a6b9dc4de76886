#include "cmglobal.h"

#include <algorithm>

QVariantHash CMGlobal::rolesValuesToHash(const QStringList& roles, const QList<QVariant>& values) {
    QVariantHash hash;
    const int count = std::min(roles.size(), values.size());
    for (int i = 0; i < count; ++i)
        hash.insert(roles.at(i), values.at(i));
    return hash;
}
