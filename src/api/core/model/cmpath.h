#pragma once

#include <QList>
#include <QMetaType>
#include <QPair>
#include <QString>
#include <QStringList>
#include <ostream>

#include "zuvohash.h"

class QDebug;

// Names one node of the model tree: a '/'-separated path, optionally with
// query parameters ("/player/list?from=3&sort=title").
//
// A path is stored decoded, as segments and (key, value) parameters, so that
// any text survives fromEncoded(toEncoded()). The encoded form always begins
// with '/', has no empty segments and percent-encodes the characters that
// would otherwise change its structure ('%', '/', '?', '&', '=', '#' and
// control characters inside a segment, key or value). Parameters keep their
// order. The empty path (no segments, no parameters) is distinct from the
// root "/".
//
// withoutParams() is the canonical key under which two paths name the same
// node; operator== compares exactly, parameters included.
class CMPath {
public:
    // Comparison modes of equals(): exact, or ignoring query parameters.
    enum Compare { CompareExact = 0, CompareWithoutParams = 1 };
    using Param = QPair<QString, QString>;

    CMPath() = default;
    // Parses an encoded path; same as fromEncoded().
    explicit CMPath(const QString& encoded);
    explicit CMPath(const char* encoded);

    static CMPath fromEncoded(const QString& encoded);
    QString toEncoded() const;

    bool isEmpty() const { return !m_root; }
    bool isRoot() const { return m_root && m_segments.isEmpty(); }
    const QStringList& segments() const { return m_segments; }
    const QList<Param>& params() const { return m_params; }
    bool hasParams() const { return !m_params.isEmpty(); }
    // Value of the first parameter named key, or a null string.
    QString param(const QString& key) const;
    CMPath& addParam(const QString& key, const QString& value);

    CMPath withoutParams() const;
    // The path one segment up (parameters dropped); the root's parent is the
    // root, the empty path's is empty.
    CMPath parent() const;
    QString lastSegment() const { return m_segments.isEmpty() ? QString() : m_segments.last(); }
    // Whether prefix's segments begin this path's segments (parameters ignored).
    bool startsWith(const CMPath& prefix) const;

    bool equals(const CMPath& other, Compare mode) const;
    bool operator==(const CMPath& other) const { return equals(other, CompareExact); }
    bool operator!=(const CMPath& other) const { return !equals(other, CompareExact); }

    // Appends a relative path given as text ("/control", "data/playTime",
    // parameters allowed) or as a path; the other side's parameters follow ours.
    CMPath operator+(const QString& relative) const;
    CMPath operator+(const char* relative) const { return *this + QString::fromUtf8(relative); }
    CMPath operator+(const CMPath& relative) const;

private:
    QStringList m_segments;
    QList<Param> m_params;
    bool m_root = false; // false only for the empty path
};

uint qHash(const CMPath& path, uint seed = 0);
std::ostream& operator<<(std::ostream& stream, const CMPath& path);
QDebug operator<<(QDebug debug, const CMPath& path);

Q_DECLARE_METATYPE(CMPath)

// Paths stored in records travel as their encoded text.
template <> struct ZuvoFieldCodec<CMPath> {
    static CMPath read(const QVariant& value) {
        return value.userType() == QMetaType::QString ? CMPath::fromEncoded(value.toString()) : CMPath();
    }
    static QVariant write(const CMPath& path) {
        return path.isEmpty() ? QVariant(QString()) : path.toEncoded();
    }
};
