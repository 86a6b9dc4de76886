#include "zuvohash.h"

#include <QStringList>
#include <algorithm>

namespace zuvo_detail {

bool isNumeric(const QVariant& value) {
    switch (value.userType()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

QVariantHash toHash(const QVariant& value) {
    if (value.userType() == QMetaType::QVariantHash)
        return value.toHash();
    if (value.userType() == QMetaType::QVariantMap) {
        QVariantHash hash;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            hash.insert(it.key(), it.value());
        return hash;
    }
    return QVariantHash();
}

} // namespace zuvo_detail

namespace {

QString hashToLogString(const QVariantHash& hash) {
    QStringList keys = hash.keys();
    std::sort(keys.begin(), keys.end());
    QStringList parts;
    parts.reserve(keys.size());
    for (const QString& key : keys)
        parts.append(QLatin1Char('"') + key + QStringLiteral("\": ") +
                     zuvoVariantToLogString(hash.value(key)));
    return QLatin1Char('{') + parts.join(QStringLiteral(", ")) + QLatin1Char('}');
}

} // namespace

QString zuvoVariantToLogString(const QVariant& value) {
    switch (value.userType()) {
    case QMetaType::QVariantHash:
    case QMetaType::QVariantMap:
        return hashToLogString(zuvo_detail::toHash(value));
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QStringList parts;
        for (const QVariant& item : value.toList())
            parts.append(zuvoVariantToLogString(item));
        return QLatin1Char('[') + parts.join(QStringLiteral(", ")) + QLatin1Char(']');
    }
    case QMetaType::QString:
        return QLatin1Char('"') + value.toString() + QLatin1Char('"');
    case QMetaType::UnknownType:
        return QStringLiteral("null");
    default:
        if (value.canConvert<QString>())
            return value.toString();
        return QStringLiteral("<") + QString::fromLatin1(value.typeName()) + QLatin1Char('>');
    }
}

QString ZuvoHash::toLogString() const {
    return hashToLogString(m_hash);
}

std::ostream& operator<<(std::ostream& stream, const ZuvoHash& record) {
    return stream << record.toLogString().toStdString();
}

QDebug operator<<(QDebug debug, const ZuvoHash& record) {
    QDebugStateSaver saver(debug);
    debug.noquote() << record.toLogString();
    return debug;
}
