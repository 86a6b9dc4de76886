#pragma once

#include <QObject>
#include <QTimer>

class CMNode;

// Deletes a node once it has been neither watched nor requested for the given
// interval. Every request routed to the node restarts the count; while any
// value item watches the node the count is held. The timer is a child of the
// node and dies with it.
class CMUnusedNodeTimer : public QObject {
    Q_OBJECT
public:
    CMUnusedNodeTimer(CMNode* node, int milliseconds);
    Q_DISABLE_COPY(CMUnusedNodeTimer)

    int interval() const { return m_timer.interval(); }
    void setInterval(int milliseconds);

private:
    void on_node_requested();
    void on_node_watchersChanged(int count);
    void on_timer_timeout();

    CMNode* m_node;
    QTimer m_timer;
};
