#include "notificationplayer.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "dbglog.h"
#include "model/cmactivatenode.h"
#include "model/cmerror.h"
#include "model/cmnodes.h"
#include "model/trstring.h"
#include "uuid.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("Notifications"));

namespace {

const QString& errorName() {
    static const QString name = QStringLiteral("Error");
    return name;
}

} // namespace

NotificationPlaybackStateObserver::NotificationPlaybackStateObserver(const CMReply<QVariant>& reply)
    : m_reply(reply) {}

NotificationPlaybackStateObserver::~NotificationPlaybackStateObserver() = default;

void NotificationPlaybackStateObserver::notificationPlaybackStateChanged(
    const ZuvoNotificationPlayerResponse& response) {
    dbglog_scopedFunction(logger);
    switch (response.type()) {
    case ZuvoNotificationPlayerResponseType::finished:
        m_reply.setValue(QVariant());
        break;
    case ZuvoNotificationPlayerResponseType::error: {
        const TrString message(ZUVO_TR("Notification playback error: %1"), {TrArg(response.errorReason())});
        LOG4CPLUS_ERROR(logger, message.toString());
        m_reply.setError(CMError(errorName(), message));
        break;
    }
    default:
        break;
    }
}

NotificationPlayerInterface::NotificationPlayerInterface(QObject* parent, CMNodes* nodes,
                                                         const CMPath& responsePath, const QString& idPrefix)
    : QObject(parent)
    , m_idPrefix(idPrefix)
    , m_responseNode(CMActivateNode::create(nodes, responsePath)) {
    dbglog_scopedFunction(logger);
    // As a child the node goes with this object; the registry only owns
    // parentless nodes, so it never deletes it behind our back.
    m_responseNode->setParent(this);
    m_responseNode->setInvoke(this, &NotificationPlayerInterface::on_notificationResponse_activated,
                              Qt::QueuedConnection);
}

NotificationPlayerInterface::~NotificationPlayerInterface() {
    dbglog_scopedFunction(logger);
}

CMReply<QVariant> NotificationPlayerInterface::playNotification(const QString& filePath,
                                                                ZuvoNotificationItemPriority::Enum priority) {
    dbglog_scopedFunction(logger);
    if (filePath.isEmpty()) {
        CMReply<QVariant> reply;
        reply.setError(CMError(errorName(), ZUVO_TR("path to notification file is empty")));
        return reply;
    }
    ZuvoNotificationPlayerItem item = makeEmptyNotification();
    item.setType(ZuvoNotificationPlayerItemType::file);
    item.setPriority(priority);
    item.setContent(filePath);
    LOG4CPLUS_DEBUG(logger, "Playing notification from file: " << filePath);
    return playNotification(item);
}

CMReply<QVariant> NotificationPlayerInterface::playNotification(const ZuvoNotificationPlayerItem& item) {
    dbglog_scopedFunction(logger);
    CMReply<QVariant> reply;
    LOG4CPLUS_DEBUG(logger, "Playing notification with ID: " << item.id());
    doPlayNotification(item, NotificationPlaybackStateObserver::Ptr::create(reply));
    return reply;
}

ZuvoNotificationPlayerItem NotificationPlayerInterface::makeEmptyNotification() {
    dbglog_scopedFunction(logger);
    ZuvoNotificationPlayerItem item;
    item.setId(m_idPrefix + QLatin1Char('-') + zuvoGenerateUuid());
    item.setPlaybackResponsePath(m_responseNode->path());
    return item;
}

void NotificationPlayerInterface::doPlayNotification(const ZuvoNotificationPlayerItem& item,
                                                     NotificationPlaybackStateObserver::Ptr observer) {
    dbglog_scopedFunction(logger);
    ZuvoValue value;
    value.setNotificationPlayerItem(item);
    CMRoot()->invoke(ZuvoNotificationPlayerEnqueuePath(), value, CMReply<QVariant>());

    const QString id = item.id();
    m_observers.insert(id, observer);
    // Tied to this object: once it is gone nobody is left to forget the id or
    // to send the cancel. The callback holds the observer weakly: the observer
    // holds the reply, and the reply holds the callback until it finishes.
    const QWeakPointer<NotificationPlaybackStateObserver> weakObserver = observer;
    observer->reply().onFinished(
        this,
        [this, id, weakObserver](const CMReply<QVariant>& reply) {
            notificationFinished(id, weakObserver.toStrongRef(), reply);
        },
        Qt::AutoConnection);
}

void NotificationPlayerInterface::notificationFinished(const QString& id,
                                                       const NotificationPlaybackStateObserver::Ptr& observer,
                                                       const CMReply<QVariant>& reply) {
    dbglog_scopedFunction(logger);
    // Only this notification's own entry goes: an item enqueued again under
    // the same id while this one was pending owns the entry now.
    if (observer && m_observers.value(id) == observer)
        m_observers.remove(id);

    if (reply.error().name() != CMVoidReply::ErrorCancel())
        return;
    LOG4CPLUS_DEBUG(logger, "Canceling notification with ID: " << id);
    if (observer) {
        ZuvoNotificationPlayerResponse cancelled;
        cancelled.setId(id);
        cancelled.setType(ZuvoNotificationPlayerResponseType::cancelled);
        observer->notificationPlaybackStateChanged(cancelled);
    }
    ZuvoValue value;
    value.setString_(id);
    CMRoot()->invoke(ZuvoNotificationPlayerCancelPath(), value, CMReply<QVariant>());
}

void NotificationPlayerInterface::on_notificationResponse_activated(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    // A payload that is neither a hash nor a map reads as an empty response:
    // no id, type 0.
    const ZuvoNotificationPlayerResponse response =
        ZuvoValue(request.data().toHash()).notificationPlayerResponse();
    const QString id = response.id();
    LOG4CPLUS_DEBUG(logger,
                    "Notification: " << id << ", state: "
                                     << ZuvoNotificationPlayerResponseType::toString(response.type()));

    // Only the caller ends a notification by cancelling; the player's own
    // cancelled report is merely acknowledged.
    if (response.type() != ZuvoNotificationPlayerResponseType::cancelled) {
        // A copy keeps the observer alive while its reply's callback takes it
        // out of the table.
        const NotificationPlaybackStateObserver::Ptr observer = m_observers.value(id);
        if (!observer)
            LOG4CPLUS_ERROR(logger, "Received response for unknown notification: " << id);
        else
            observer->notificationPlaybackStateChanged(response);
    }
    request.reply().setValue(QVariant());
}
