#pragma once

#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

// The header fields of an HTTP response, in the order received. Names are
// matched case-insensitively; a field the server repeated appears once, its
// values joined by ", ". Values are the raw bytes read as Latin-1. A value type; cheap to copy.
class HttpClientHeaders {
public:
    HttpClientHeaders() = default;

    void append(const QString& name, const QString& value);

    // The value of the first field called `name` (any case), or defaultValue
    // when there is none.
    QString value(const QString& name, const QString& defaultValue = QString()) const;
    bool contains(const QString& name) const;
    // Field names as the server spelled them, in order.
    QStringList names() const;

    int size() const { return m_fields.size(); }
    bool isEmpty() const { return m_fields.isEmpty(); }

private:
    int indexOf(const QString& name) const;

    QVector<QPair<QString, QString>> m_fields;
};
