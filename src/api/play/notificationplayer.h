#pragma once

#include <QHash>
#include <QObject>
#include <QSharedPointer>
#include <QString>

#include "model/cmpath.h"
#include "model/cmreply.h"
#include "model/cmrequest.h"
#include "zuvo.h"

class CMActivateNode;
class CMNodes;

// Follows one notification on behalf of its caller: holds the reply that was
// handed to the caller and completes it from the playback states the
// notification service reports.
//
// Owned through Ptr by the interface's table of pending notifications while
// the notification is pending; whoever calls it keeps a Ptr for the call.
// Event-loop thread only.
class NotificationPlaybackStateObserver {
public:
    using Ptr = QSharedPointer<NotificationPlaybackStateObserver>;

    explicit NotificationPlaybackStateObserver(const CMReply<QVariant>& reply);
    virtual ~NotificationPlaybackStateObserver();
    Q_DISABLE_COPY(NotificationPlaybackStateObserver)

    // Finished (2): the reply succeeds with an empty value. Error (4): the
    // reply fails with an error named "Error" whose message is
    // "Notification playback error: " + errorReason. Every other type leaves
    // the reply as it is. A reply that has already finished is never changed.
    virtual void notificationPlaybackStateChanged(const ZuvoNotificationPlayerResponse& response);

    CMReply<QVariant> reply() const { return m_reply; }

private:
    const CMReply<QVariant> m_reply;
};

// Client of the host's notification player: enqueues short sounds and turns
// the playback states the player reports into the completion of the reply
// handed to the caller.
//
// Protocol: an item (a ZuvoValue carrying a ZuvoNotificationPlayerItem) is
// invoked on ZuvoNotificationPlayerEnqueuePath(); the player reports states
// (a ZuvoValue carrying a ZuvoNotificationPlayerResponse) by invoking the
// item's playbackResponsePath, which is the response node this object
// creates; a cancel is an invocation of ZuvoNotificationPlayerCancelPath()
// with a ZuvoValue whose string_ is the item's id. The answer to the enqueue
// invocation is not examined.
//
// Caller's reply of playNotification():
// - succeeds (empty value) when the player reports "finished" (2) for its id;
// - fails with an error named "Error" when the player reports "error" (4), or
//   at once, before anything is sent, when the file path is empty;
// - may be cancelled by the caller (CMVoidReply::cancel()): the notification
//   is forgotten and exactly one cancel invocation carrying its id is sent.
// Whichever comes first wins; from then on the id is no longer pending and
// later reports for it are logged as unknown. A "cancelled" (3) report is
// never passed on: only the caller ends a notification by cancelling. Other
// states ("queued", "started", unknown values) change nothing.
//
// Every report that reaches the response node is acknowledged (its reply
// finished with an empty value), also a malformed one or one for an id that
// is not pending. Reports arrive through a queued connection, never inside
// the call that sent the item.
//
// Thread: event-loop thread only. Ownership: the response node is a child of
// this object and leaves the tree with it. Replies still pending when this
// object is destroyed are left as they are; no callback of this object runs
// after its destruction.
class NotificationPlayerInterface : public QObject {
    Q_OBJECT
public:
    // Creates the response node at responsePath in nodes. Every id this
    // object generates begins with idPrefix + "-".
    NotificationPlayerInterface(QObject* parent, CMNodes* nodes, const CMPath& responsePath,
                                const QString& idPrefix);
    ~NotificationPlayerInterface() override;
    Q_DISABLE_COPY(NotificationPlayerInterface)

    // Plays the sound file at filePath (item type file, the given priority).
    CMReply<QVariant> playNotification(const QString& filePath, ZuvoNotificationItemPriority::Enum priority);
    // Enqueues item as it is; it should come from makeEmptyNotification() so
    // that its id is unique and its reports reach this object.
    CMReply<QVariant> playNotification(const ZuvoNotificationPlayerItem& item);

    // A new item with a fresh id (idPrefix + "-" + uuid) and the response
    // node's path as playbackResponsePath; nothing else is set.
    ZuvoNotificationPlayerItem makeEmptyNotification();

protected:
    // Sends item to the player and records observer as pending under the
    // item's id until the observer's reply finishes.
    void doPlayNotification(const ZuvoNotificationPlayerItem& item,
                            NotificationPlaybackStateObserver::Ptr observer);

private Q_SLOTS:
    void on_notificationResponse_activated(const CMSetDataRequest& request);

private:
    // Runs when a pending notification's reply has finished, for any reason.
    void notificationFinished(const QString& id, const NotificationPlaybackStateObserver::Ptr& observer,
                              const CMReply<QVariant>& reply);

    const QString m_idPrefix;
    CMActivateNode* const m_responseNode;
    QHash<QString, NotificationPlaybackStateObserver::Ptr> m_observers;
};
