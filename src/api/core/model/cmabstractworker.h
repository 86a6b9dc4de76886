#pragma once

#include <QStringList>
#include <QVariant>

#include "cmpath.h"
#include "cmreply.h"
#include "cmrequest.h"
#include "zuvohash.h"
#include "zuvorowsroles.h"

class CMNodes;
class ZuvoValue;

// Client side of a registry: reaches any path of the tree.
//
// Requests are handed to the node that serves the path synchronously, on the
// caller's thread; the node completes the reply now or later (an activation
// node delivers to its handler through the connection it was bound with). A
// request for a path that no node serves fails its reply at once with an
// error named "NodeNotFound": nothing waits forever for a missing node.
class CMAbstractWorker {
public:
    explicit CMAbstractWorker(CMNodes* nodes)
        : m_nodes(nodes) {}
    virtual ~CMAbstractWorker() = default;
    Q_DISABLE_COPY(CMAbstractWorker)

    // The current value of the value node at path (a record's value is its
    // hash), or an invalid QVariant when there is no such node.
    virtual QVariant getValue(const CMPath& path) const;
    virtual void getRows(const CMPath& path, int fromRow, int toRow, int flags, const QStringList& roles,
                         const CMReply<ZuvoRowsRoles>& reply);
    // Invokes the activation node at path with arguments (role ZuvoRoles::Activate()).
    virtual void invoke(const CMPath& path, const QVariant& arguments, const CMReply<QVariant>& reply);
    virtual void invoke(const CMPath& path, const ZuvoHash& arguments, const CMReply<QVariant>& reply);
    // Writes the value node at path as a client (refused by a read-only node).
    virtual void setValue(const CMPath& path, const ZuvoValue& value, const CMReply<QVariant>& reply);
    // Routes a prepared request as if a client had just sent it.
    virtual void setData(const CMSetDataRequest& request);
    virtual void request(const CMRequest& request);

private:
    CMNodes* m_nodes;
};
