#include "cmrequest.h"

#include "zuvoassert.h"

namespace {

QSharedPointer<CMRequestData> makeData(CMRequest::Type type, const CMPath& path, const CMVoidReply& reply) {
    auto data = QSharedPointer<CMRequestData>::create();
    data->type = type;
    data->path = path;
    data->reply = reply;
    return data;
}

} // namespace

const CMRequestData& CMRequest::checked() const {
    zuvoAssert(!d.isNull(), "CMRequest", "accessing the data of a null request");
    return *d;
}

QSharedPointer<CMRequestData> CMRequest::ofType(const CMRequest& request, Type t) {
    return (request.d && request.d->type == t) ? request.d : QSharedPointer<CMRequestData>();
}

CMRequest::Type CMRequest::type() const {
    return checked().type;
}

CMPath CMRequest::path() const {
    return checked().path;
}

CMVoidReply CMRequest::voidReply() const {
    return checked().reply;
}

CMSetDataRequest::CMSetDataRequest(const CMPath& path, const QString& role, const QVariant& value,
                                   const CMReply<QVariant>& reply)
    : CMRequest(makeData(SetData, path, reply)) {
    d->role = role;
    d->value = value;
}

QString CMSetDataRequest::role() const {
    return checked().role;
}

QVariant CMSetDataRequest::data() const {
    return checked().value;
}

CMReply<QVariant> CMSetDataRequest::reply() const {
    return CMReply<QVariant>(checked().reply);
}

CMGetRowsRequest::CMGetRowsRequest(const CMPath& path, int fromRow, int toRow, int flags,
                                   const QStringList& roles, const CMReply<ZuvoRowsRoles>& reply)
    : CMRequest(makeData(GetRows, path, reply)) {
    d->fromRow = fromRow;
    d->toRow = toRow;
    d->flags = flags;
    d->roles = roles;
}

int CMGetRowsRequest::fromRow() const {
    return checked().fromRow;
}

int CMGetRowsRequest::toRow() const {
    return checked().toRow;
}

int CMGetRowsRequest::flags() const {
    return checked().flags;
}

QStringList CMGetRowsRequest::roles() const {
    return checked().roles;
}

CMReply<ZuvoRowsRoles> CMGetRowsRequest::reply() const {
    return CMReply<ZuvoRowsRoles>(checked().reply);
}

CMGetDataRequest::CMGetDataRequest(const CMPath& path, const QStringList& roles,
                                   const CMReply<QVariant>& reply)
    : CMRequest(makeData(GetData, path, reply)) {
    d->roles = roles;
}

QStringList CMGetDataRequest::roles() const {
    return checked().roles;
}

CMReply<QVariant> CMGetDataRequest::reply() const {
    return CMReply<QVariant>(checked().reply);
}

CMMatchRowRequest::CMMatchRowRequest(const CMPath& path, const QStringList& roles, const QVariantList& values,
                                     const CMReply<int>& reply)
    : CMRequest(makeData(MatchRow, path, reply)) {
    d->roles = roles;
    d->values = values;
}

QStringList CMMatchRowRequest::roles() const {
    return checked().roles;
}

QVariantList CMMatchRowRequest::values() const {
    return checked().values;
}

CMReply<int> CMMatchRowRequest::reply() const {
    return CMReply<int>(checked().reply);
}
