#include "cmnodes.h"

#include <QAtomicPointer>

#include "cmnode.h"
#include "cmvalueitem.h"
#include "cmvaluenode.h"
#include "zuvovalue.h"

namespace {

QAtomicPointer<CMNodes> s_current;

struct DefaultNodes {
    CMNodes nodes;
};
Q_GLOBAL_STATIC(DefaultNodes, s_default)

} // namespace

CMNodes::CMNodes()
    : m_worker(this) {}

CMNodes::~CMNodes() {
    s_current.testAndSetOrdered(this, nullptr);
    QList<CMNode*> owned;
    {
        QMutexLocker locker(&m_lock);
        for (CMNode* node : qAsConst(m_nodes)) {
            if (!node->parent())
                owned.append(node);
        }
    }
    // Each node leaves the registry in its destructor.
    qDeleteAll(owned);
    const QList<CMNode*> rest = allNodes();
    for (CMNode* node : rest)
        node->setNodes(nullptr);
}

CMNode* CMNodes::node(const CMPath& path) const {
    QMutexLocker locker(&m_lock);
    return m_nodes.value(path.withoutParams());
}

CMNode* CMNodes::routeLocked(const CMPath& path) const {
    CMPath key = path.withoutParams();
    while (!key.isEmpty()) {
        if (CMNode* node = m_nodes.value(key))
            return node;
        if (key.isRoot())
            break;
        key = key.parent();
    }
    return nullptr;
}

CMNode* CMNodes::route(const CMPath& path) const {
    QMutexLocker locker(&m_lock);
    return routeLocked(path);
}

QList<CMNode*> CMNodes::allNodes() const {
    QMutexLocker locker(&m_lock);
    return m_nodes.values();
}

CMNodes* CMNodes::current() {
    CMNodes* nodes = s_current.loadAcquire();
    return nodes ? nodes : &s_default()->nodes;
}

CMNodes* CMNodes::setCurrent(CMNodes* nodes) {
    return s_current.fetchAndStoreOrdered(nodes);
}

void CMNodes::insert(CMNode* node) {
    CMNode* replaced = nullptr;
    {
        QMutexLocker locker(&m_lock);
        const CMPath key = node->path().withoutParams();
        replaced = m_nodes.value(key);
        m_nodes.insert(key, node);
    }
    if (replaced && replaced != node) {
        replaced->m_nodes = nullptr;
        // The registry owned it; nobody else would delete it now.
        if (!replaced->parent())
            replaced->QObject::deleteLater();
    }
    rebindWatches();
}

void CMNodes::remove(CMNode* node) {
    {
        QMutexLocker locker(&m_lock);
        const CMPath key = node->path().withoutParams();
        if (m_nodes.value(key) != node)
            return;
        m_nodes.remove(key);
    }
    node->m_nodes = nullptr;
    rebindWatches();
}

void CMNodes::rebindWatches() {
    struct Move {
        CMValueItem* item;
        CMPath path;
        QPointer<CMNode> from;
        QPointer<CMNode> to;
    };
    QList<Move> moves;
    {
        QMutexLocker locker(&m_lock);
        for (auto it = m_watches.begin(); it != m_watches.end(); ++it) {
            CMNode* to = routeLocked(it->path);
            if (it->node.data() != to) {
                moves.append({it.key(), it->path, it->node, to});
                it->node = to;
            }
        }
    }
    for (const Move& move : qAsConst(moves)) {
        if (move.from)
            move.from->watchRemoved(move.path);
        if (move.to)
            move.to->watchAdded(move.path);
        auto* valueNode = qobject_cast<CMValueNode*>(move.to.data());
        const bool exact = valueNode && valueNode->path().equals(move.path, CMPath::CompareWithoutParams);
        move.item->post(exact ? valueNode->value() : ZuvoValue());
    }
}

void CMNodes::watch(CMValueItem* item, const CMPath& path) {
    CMNode* node = nullptr;
    {
        QMutexLocker locker(&m_lock);
        node = routeLocked(path);
        m_watches.insert(item, Watch{path, node});
    }
    if (!node)
        return;
    node->watchAdded(path);
    auto* valueNode = qobject_cast<CMValueNode*>(node);
    if (valueNode && valueNode->path().equals(path, CMPath::CompareWithoutParams))
        item->post(valueNode->value());
}

void CMNodes::unwatch(CMValueItem* item) {
    Watch watch;
    {
        QMutexLocker locker(&m_lock);
        if (!m_watches.contains(item))
            return;
        watch = m_watches.take(item);
    }
    if (watch.node)
        watch.node->watchRemoved(watch.path);
}

void CMNodes::valueChanged(CMNode* node, const ZuvoValue& value) {
    QList<CMValueItem*> items;
    {
        QMutexLocker locker(&m_lock);
        for (auto it = m_watches.cbegin(); it != m_watches.cend(); ++it) {
            if (it->node == node && node->path().equals(it->path, CMPath::CompareWithoutParams))
                items.append(it.key());
        }
    }
    for (CMValueItem* item : qAsConst(items))
        item->post(value);
}

CMRootScope::CMRootScope()
    : m_nodes(new CMNodes)
    , m_previous(CMNodes::setCurrent(m_nodes)) {}

CMRootScope::~CMRootScope() {
    CMNodes::setCurrent(m_previous);
    delete m_nodes;
}

CMAbstractWorker* CMRoot() {
    return CMNodes::current()->worker();
}
