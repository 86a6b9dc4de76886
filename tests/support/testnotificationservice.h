#pragma once

#include <QList>
#include <QObject>
#include <QStringList>

#include "model/cmpath.h"
#include "model/cmreply.h"
#include "model/cmrequest.h"
#include "zuvo.h"

class CMNodes;

// Stand-in for the host's notification player, for tests.
//
// Serves ZuvoNotificationPlayerEnqueuePath() and
// ZuvoNotificationPlayerCancelPath() in the given registry with activate
// nodes bound through queued connections, as a service in another component
// would be: every invocation is recorded and acknowledged with an empty
// value. report() plays the player's side of the protocol and invokes a
// response path with a ZuvoNotificationPlayerResponse.
//
// Event-loop thread only. The nodes are children of this object and leave
// the tree with it.
class TestNotificationService : public QObject {
    Q_OBJECT
public:
    explicit TestNotificationService(CMNodes* nodes, QObject* parent = nullptr);

    // Items received on the enqueue path, in arrival order.
    QList<ZuvoNotificationPlayerItem> enqueued() const;
    // Ids (the string_ of the ZuvoValue) received on the cancel path, in order.
    QStringList cancelled() const;
    // The raw requests received on the enqueue and cancel paths.
    QList<CMSetDataRequest> enqueueRequests() const { return m_enqueueRequests; }
    QList<CMSetDataRequest> cancelRequests() const { return m_cancelRequests; }

    // Reports state type of notification id to path; returns the reply of
    // that invocation (the client's acknowledgement).
    static CMReply<QVariant> report(const CMPath& path, const QString& id,
                                    ZuvoNotificationPlayerResponseType::Enum type,
                                    const QString& errorReason = QString());
    // Reports to the item's own playbackResponsePath.
    static CMReply<QVariant> report(const ZuvoNotificationPlayerItem& item,
                                    ZuvoNotificationPlayerResponseType::Enum type,
                                    const QString& errorReason = QString());
    // Invokes path with payload as it is, e.g. a malformed report.
    static CMReply<QVariant> sendRaw(const CMPath& path, const QVariant& payload);

private Q_SLOTS:
    void on_enqueue_activated(const CMSetDataRequest& request);
    void on_cancel_activated(const CMSetDataRequest& request);

private:
    QList<CMSetDataRequest> m_enqueueRequests;
    QList<CMSetDataRequest> m_cancelRequests;
};
