#pragma once

#include <QMutex>
#include <QObject>
#include <QPointer>

#include "cmpath.h"
#include "cmrequest.h"

class CMNodes;

// Base class of every node of the model tree.
//
// A node is constructed with its path and joins a registry with setNodes();
// from then on the registry routes the requests for its path (and for paths
// below it that no deeper node serves) to request(), synchronously, on the
// caller's thread. A subclass overrides the handlers it serves and calls the
// base for the rest; the base handlers fail the request's reply at once with
// an error named "NotSupported", so no request is left unanswered.
//
// Ownership: a node without a QObject parent is owned by its registry, which
// deletes it when the registry itself goes. deleteLater() leaves the registry
// at once (later requests for the path fail) and deletes the node from the
// event loop.
class CMNode : public QObject {
    Q_OBJECT
public:
    explicit CMNode(const CMPath& path, QObject* parent = nullptr);
    ~CMNode() override;
    Q_DISABLE_COPY(CMNode)

    CMPath path() const { return m_path; }
    CMNodes* nodes() const;
    // Joins nodes (leaving the previous registry); nullptr only leaves.
    void setNodes(CMNodes* nodes);
    // Number of value items currently watching paths served by this node.
    int watcherCount() const { return m_watchers; }

Q_SIGNALS:
    // A request was routed to this node.
    void requested();
    // The number of watchers changed.
    void watchersChanged(int count);

public Q_SLOTS:
    virtual void deleteLater();
    virtual QMutex* mutex() const;
    // Dispatches by request type to the handlers below.
    virtual bool request(CMRequest request);
    virtual bool getDataRequest(const CMGetDataRequest& request);
    virtual bool getRowsRequest(const CMGetRowsRequest& request);
    virtual bool matchRowRequest(const CMMatchRowRequest& request);
    virtual bool setDataRequest(const CMSetDataRequest& request);
    // A client started or stopped watching the value (data, rows) at path.
    virtual void valuePathAdd(const CMPath& path);
    virtual void valuePathRemove(const CMPath& path);
    virtual void dataPathAdd(const CMPath& path);
    virtual void dataPathRemove(const CMPath& path);
    virtual void rowsPathAdd(const CMPath& path);
    virtual void rowsPathRemove(const CMPath& path);

protected:
    // Fails reply with "NotSupported" for a request this node does not serve.
    void refuse(const CMRequest& request, const char* what);

private:
    friend class CMNodes;
    void watchAdded(const CMPath& path);
    void watchRemoved(const CMPath& path);

    CMPath m_path;
    QPointer<CMNodes> m_nodes;
    mutable QMutex m_mutex;
    int m_watchers = 0;
};
