#include "httpclientheaders.h"

void HttpClientHeaders::append(const QString& name, const QString& value) {
    m_fields.append({name, value});
}

QString HttpClientHeaders::value(const QString& name, const QString& defaultValue) const {
    const int index = indexOf(name);
    return index < 0 ? defaultValue : m_fields.at(index).second;
}

bool HttpClientHeaders::contains(const QString& name) const {
    return indexOf(name) >= 0;
}

QStringList HttpClientHeaders::names() const {
    QStringList result;
    result.reserve(m_fields.size());
    for (const auto& field : m_fields)
        result.append(field.first);
    return result;
}

int HttpClientHeaders::indexOf(const QString& name) const {
    for (int i = 0; i < m_fields.size(); ++i) {
        if (m_fields.at(i).first.compare(name, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}
