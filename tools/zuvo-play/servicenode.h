#pragma once

#include <QObject>
#include <QVariant>

#include "model/cmpath.h"
#include "model/cmrequest.h"

class CMNodes;

// A node of a service that zuvo-play stands in for, such as the on-screen
// notification display or a content service's playback-state-change node:
// every invocation of its path is answered with success and its value handed
// on with invoked().
//
// The activation node is a child of this object and leaves the registry
// with it. Invocations arrive through the event loop (queued). Thread: the
// registry's event-loop thread.
class ServiceNode : public QObject {
    Q_OBJECT
public:
    ServiceNode(CMNodes* nodes, const CMPath& path, QObject* parent = nullptr);
    Q_DISABLE_COPY(ServiceNode)

Q_SIGNALS:
    // The value of an invocation (a record's hash for the library's calls);
    // emitted after the invocation has been answered.
    void invoked(const QVariant& value);

private:
    void on_node_invoked(const CMSetDataRequest& request);
};
