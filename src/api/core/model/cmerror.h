#pragma once

#include <QDebug>
#include <QString>
#include <QVariantHash>
#include <ostream>

#include "trstring.h"

// An error carried by a reply: a hash of three strings, name, title and
// message. A reply whose error has a non-empty name has failed; an empty
// CMError means "no error".
class CMError {
public:
    static QString Name() { return QStringLiteral("name"); }
    static QString Title() { return QStringLiteral("title"); }
    static QString Message() { return QStringLiteral("message"); }
    // Name and (translatable) title of an error built from a message alone.
    static QString DefaultName();
    static TrString DefaultTitle();

    CMError() = default;
    // Default name, translated default title, translated message.
    CMError(const TrString& message);
    // Given name, translated default title, translated message.
    CMError(const QString& name, const TrString& message);
    CMError(const QString& name, const QString& title, const QString& message);
    explicit CMError(const QVariantHash& hash)
        : m_hash(hash) {}

    QString name() const { return m_hash.value(Name()).toString(); }
    QString title() const { return m_hash.value(Title()).toString(); }
    QString message() const { return m_hash.value(Message()).toString(); }
    void setName(const QString& name) { m_hash.insert(Name(), name); }
    void setTitle(const QString& title) { m_hash.insert(Title(), title); }
    void setMessage(const QString& message) { m_hash.insert(Message(), message); }

    // True when the error has no name (nothing failed).
    bool isEmpty() const { return name().isEmpty(); }
    const QVariantHash& toHash() const { return m_hash; }

    bool operator==(const CMError& other) const { return m_hash == other.m_hash; }
    bool operator!=(const CMError& other) const { return m_hash != other.m_hash; }

private:
    QVariantHash m_hash;
};

std::ostream& operator<<(std::ostream& stream, const CMError& error);
QDebug operator<<(QDebug debug, const CMError& error);
