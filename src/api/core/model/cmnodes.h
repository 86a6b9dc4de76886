#pragma once

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QPointer>

#include "cmabstractworker.h"
#include "cmpath.h"

class CMNode;
class CMValueItem;
class ZuvoValue;

// The registry (tree) of model nodes of this process.
//
// Nodes are keyed by path().withoutParams(); a request is routed to the
// deepest registered node whose path begins the request's path. The registry
// also knows which value items watch which paths, attaches them to the node
// that serves the path (also to a node that appears later) and forwards a
// value node's changes to them.
//
// One registry is the current one; CMRoot() is its worker. Tests and hosts
// install a fresh one with CMRootScope. The registry owns the nodes that have
// no QObject parent and deletes them when it is destroyed. A node registered
// on a path that another node holds replaces it; a replaced node without a
// parent is deleted from the event loop.
class CMNodes : public QObject {
    Q_OBJECT
public:
    CMNodes();
    ~CMNodes() override;
    Q_DISABLE_COPY(CMNodes)

    // The node registered exactly at path (parameters ignored), or nullptr.
    CMNode* node(const CMPath& path) const;
    // The node that serves path: the deepest registered ancestor-or-self.
    CMNode* route(const CMPath& path) const;
    QList<CMNode*> allNodes() const;
    CMAbstractWorker* worker() { return &m_worker; }

    // The current registry (created on first use when none was installed).
    static CMNodes* current();
    // Installs nodes as the current registry; returns the previous one.
    static CMNodes* setCurrent(CMNodes* nodes);

private:
    friend class CMNode;
    friend class CMValueNode;
    friend class CMValueItem;
    struct Watch {
        CMPath path;
        QPointer<CMNode> node;
    };

    void insert(CMNode* node);
    void remove(CMNode* node);
    void watch(CMValueItem* item, const CMPath& path);
    void unwatch(CMValueItem* item);
    void valueChanged(CMNode* node, const ZuvoValue& value);
    // Re-attaches every watch to the node that now serves its path.
    void rebindWatches();
    CMNode* routeLocked(const CMPath& path) const;

    mutable QMutex m_lock;
    QHash<CMPath, CMNode*> m_nodes;
    QHash<CMValueItem*, Watch> m_watches;
    CMAbstractWorker m_worker;
};

// Installs a fresh registry as the current one for its lifetime and restores
// the previous registry afterwards.
class CMRootScope {
public:
    CMRootScope();
    ~CMRootScope();
    Q_DISABLE_COPY(CMRootScope)

    CMNodes* nodes() const { return m_nodes; }

private:
    CMNodes* m_nodes;
    CMNodes* m_previous;
};

// The client side of the current registry.
CMAbstractWorker* CMRoot();
