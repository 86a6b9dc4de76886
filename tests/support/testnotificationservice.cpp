#include "testnotificationservice.h"

#include "model/cmactivatenode.h"
#include "model/cmnodes.h"

TestNotificationService::TestNotificationService(CMNodes* nodes, QObject* parent)
    : QObject(parent) {
    CMActivateNode* enqueue = CMActivateNode::create(nodes, ZuvoNotificationPlayerEnqueuePath());
    enqueue->setParent(this);
    enqueue->setInvoke(this, &TestNotificationService::on_enqueue_activated, Qt::QueuedConnection);
    CMActivateNode* cancel = CMActivateNode::create(nodes, ZuvoNotificationPlayerCancelPath());
    cancel->setParent(this);
    cancel->setInvoke(this, &TestNotificationService::on_cancel_activated, Qt::QueuedConnection);
}

QList<ZuvoNotificationPlayerItem> TestNotificationService::enqueued() const {
    QList<ZuvoNotificationPlayerItem> items;
    for (const CMSetDataRequest& request : m_enqueueRequests)
        items.append(ZuvoValue(request.data().toHash()).notificationPlayerItem());
    return items;
}

QStringList TestNotificationService::cancelled() const {
    QStringList ids;
    for (const CMSetDataRequest& request : m_cancelRequests)
        ids.append(ZuvoValue(request.data().toHash()).string_());
    return ids;
}

CMReply<QVariant> TestNotificationService::report(const CMPath& path, const QString& id,
                                                  ZuvoNotificationPlayerResponseType::Enum type,
                                                  const QString& errorReason) {
    ZuvoNotificationPlayerResponse response;
    response.setId(id);
    response.setType(type);
    if (!errorReason.isEmpty())
        response.setErrorReason(errorReason);
    ZuvoValue value;
    value.setNotificationPlayerResponse(response);
    return sendRaw(path, value.__variant());
}

CMReply<QVariant> TestNotificationService::report(const ZuvoNotificationPlayerItem& item,
                                                  ZuvoNotificationPlayerResponseType::Enum type,
                                                  const QString& errorReason) {
    return report(item.playbackResponsePath(), item.id(), type, errorReason);
}

CMReply<QVariant> TestNotificationService::sendRaw(const CMPath& path, const QVariant& payload) {
    CMReply<QVariant> reply;
    CMRoot()->invoke(path, payload, reply);
    return reply;
}

void TestNotificationService::on_enqueue_activated(const CMSetDataRequest& request) {
    m_enqueueRequests.append(request);
    request.reply().setValue(QVariant());
}

void TestNotificationService::on_cancel_activated(const CMSetDataRequest& request) {
    m_cancelRequests.append(request);
    request.reply().setValue(QVariant());
}
