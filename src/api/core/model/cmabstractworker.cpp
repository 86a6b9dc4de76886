#include "cmabstractworker.h"

#include "cmnode.h"
#include "cmnodes.h"
#include "cmvaluenode.h"
#include "zuvoroles.h"
#include "zuvovalue.h"

QVariant CMAbstractWorker::getValue(const CMPath& path) const {
    auto* node = qobject_cast<CMValueNode*>(m_nodes->node(path));
    return node ? node->value().__variant() : QVariant();
}

void CMAbstractWorker::getRows(const CMPath& path, int fromRow, int toRow, int flags,
                               const QStringList& roles, const CMReply<ZuvoRowsRoles>& reply) {
    request(CMGetRowsRequest(path, fromRow, toRow, flags, roles, reply));
}

void CMAbstractWorker::invoke(const CMPath& path, const QVariant& arguments, const CMReply<QVariant>& reply) {
    request(CMSetDataRequest(path, ZuvoRoles::Activate(), arguments, reply));
}

void CMAbstractWorker::invoke(const CMPath& path, const ZuvoHash& arguments, const CMReply<QVariant>& reply) {
    invoke(path, arguments.__variant(), reply);
}

void CMAbstractWorker::setValue(const CMPath& path, const ZuvoValue& value, const CMReply<QVariant>& reply) {
    request(CMSetDataRequest(path, CMSetDataRequest::ValueRole(), value.__variant(), reply));
}

void CMAbstractWorker::setData(const CMSetDataRequest& request) {
    this->request(request);
}

void CMAbstractWorker::request(const CMRequest& request) {
    if (request.isNull())
        return;
    CMNode* node = m_nodes->route(request.path());
    if (!node) {
        request.voidReply().setError(
            CMError(QStringLiteral("NodeNotFound"),
                    TrString(QStringLiteral("No node at path %1").arg(request.path().toEncoded()))));
        return;
    }
    Q_EMIT node->requested();
    node->request(request);
}
