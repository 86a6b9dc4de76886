#include "cmunusednodetimer.h"

#include "cmnode.h"

CMUnusedNodeTimer::CMUnusedNodeTimer(CMNode* node, int milliseconds)
    : QObject(node)
    , m_node(node) {
    setObjectName(QStringLiteral("unusedNodeTimer"));
    m_timer.setObjectName(QStringLiteral("unusedNodeTimer"));
    m_timer.setSingleShot(true);
    m_timer.setInterval(milliseconds);
    connect(&m_timer, &QTimer::timeout, this, &CMUnusedNodeTimer::on_timer_timeout);
    connect(node, &CMNode::requested, this, &CMUnusedNodeTimer::on_node_requested);
    connect(node, &CMNode::watchersChanged, this, &CMUnusedNodeTimer::on_node_watchersChanged);
    if (node->watcherCount() == 0)
        m_timer.start();
}

void CMUnusedNodeTimer::setInterval(int milliseconds) {
    m_timer.setInterval(milliseconds);
    if (m_timer.isActive())
        m_timer.start();
}

void CMUnusedNodeTimer::on_node_requested() {
    if (m_node->watcherCount() == 0)
        m_timer.start();
}

void CMUnusedNodeTimer::on_node_watchersChanged(int count) {
    if (count > 0)
        m_timer.stop();
    else
        m_timer.start();
}

void CMUnusedNodeTimer::on_timer_timeout() {
    m_node->deleteLater();
}
