#pragma once

#include <QSharedPointer>
#include <QStringList>
#include <QVariant>

#include "cmpath.h"
#include "cmreply.h"

class CMRequestData;

// Implicitly shared request handle routed by the model tree to the node of
// its path. A default-constructed handle is null; reading the data of a null
// handle is a programming error that stops the program. Two handles compare
// equal when they share the same data.
class CMRequest {
public:
    enum Type { GetData = 0, GetRows = 1, MatchRow = 2, SetData = 3 };

    CMRequest() = default;

    bool isNull() const { return d.isNull(); }
    bool operator!() const { return d.isNull(); }
    Type type() const;
    CMPath path() const;
    // The reply to complete, untyped; the typed subclasses return it typed.
    CMVoidReply voidReply() const;

    bool operator==(const CMRequest& other) const { return d == other.d; }
    bool operator!=(const CMRequest& other) const { return d != other.d; }

protected:
    const CMRequestData& checked() const;
    explicit CMRequest(QSharedPointer<CMRequestData> data)
        : d(std::move(data)) {}
    // The same data when it is of type t, a null handle otherwise.
    static QSharedPointer<CMRequestData> ofType(const CMRequest& request, Type t);

    QSharedPointer<CMRequestData> d;
};

class CMRequestData {
public:
    CMRequest::Type type = CMRequest::SetData;
    CMPath path;
    CMVoidReply reply{nullptr};
    QString role;
    QVariant value;
    int fromRow = 0;
    int toRow = -1;
    int flags = 0;
    QStringList roles;
    QVariantList values;
};

// A set-data request: sets a value (role "value") or invokes an activation
// node (role ZuvoRoles::Activate()) with an argument value.
class CMSetDataRequest : public CMRequest {
public:
    CMSetDataRequest() = default;
    CMSetDataRequest(const CMPath& path, const QString& role, const QVariant& value,
                     const CMReply<QVariant>& reply);
    // The request itself when r is a set-data request, a null handle otherwise.
    explicit CMSetDataRequest(const CMRequest& r)
        : CMRequest(ofType(r, SetData)) {}

    // Role used by clients to write the value of a value node.
    static QString ValueRole() { return QStringLiteral("value"); }

    QString role() const;
    QVariant data() const;
    CMReply<QVariant> reply() const;
};

// Reads rows fromRow..toRow (inclusive) of the given roles from a list node.
class CMGetRowsRequest : public CMRequest {
public:
    CMGetRowsRequest() = default;
    CMGetRowsRequest(const CMPath& path, int fromRow, int toRow, int flags, const QStringList& roles,
                     const CMReply<ZuvoRowsRoles>& reply);
    explicit CMGetRowsRequest(const CMRequest& r)
        : CMRequest(ofType(r, GetRows)) {}

    int fromRow() const;
    int toRow() const;
    int flags() const;
    QStringList roles() const;
    CMReply<ZuvoRowsRoles> reply() const;
};

// Reads the data of a node (a value node answers with its value).
class CMGetDataRequest : public CMRequest {
public:
    CMGetDataRequest() = default;
    CMGetDataRequest(const CMPath& path, const QStringList& roles, const CMReply<QVariant>& reply);
    explicit CMGetDataRequest(const CMRequest& r)
        : CMRequest(ofType(r, GetData)) {}

    QStringList roles() const;
    CMReply<QVariant> reply() const;
};

// Asks a list node for the index of the first row whose roles hold values.
class CMMatchRowRequest : public CMRequest {
public:
    CMMatchRowRequest() = default;
    CMMatchRowRequest(const CMPath& path, const QStringList& roles, const QVariantList& values,
                      const CMReply<int>& reply);
    explicit CMMatchRowRequest(const CMRequest& r)
        : CMRequest(ofType(r, MatchRow)) {}

    QStringList roles() const;
    QVariantList values() const;
    CMReply<int> reply() const;
};
