#include "cmactivatenode.h"

#include <QThread>
#include <memory>

namespace {

void failUndelivered(const CMSetDataRequest& request) {
    request.reply().setError(
        CMError(QStringLiteral("NoHandler"),
                TrString(QStringLiteral("No handler for %1").arg(request.path().toEncoded()))));
}

// Travels with a queued delivery; fails the request when the delivery is
// dropped unrun (its receiver was destroyed first).
class PendingDelivery {
public:
    explicit PendingDelivery(const CMSetDataRequest& request)
        : m_request(request) {}
    ~PendingDelivery() {
        if (!m_delivered)
            failUndelivered(m_request);
    }
    Q_DISABLE_COPY(PendingDelivery)
    const CMSetDataRequest& take() {
        m_delivered = true;
        return m_request;
    }

private:
    CMSetDataRequest m_request;
    bool m_delivered = false;
};

} // namespace

CMActivateNode* CMActivateNode::create(CMNodes* nodes, const CMPath& path) {
    auto* node = new CMActivateNode(path);
    node->setNodes(nodes);
    return node;
}

void CMActivateNode::bind(QObject* receiver, std::function<void(const CMSetDataRequest&)> handler,
                          Qt::ConnectionType type) {
    m_receiver = receiver;
    m_handler = std::move(handler);
    m_type = type;
}

bool CMActivateNode::setDataRequest(const CMSetDataRequest& request) {
    privateInvoke(request);
    return true;
}

void CMActivateNode::privateInvoke(const CMSetDataRequest& request) {
    QObject* receiver = m_receiver.data();
    if (!receiver || !m_handler) {
        failUndelivered(request);
        return;
    }
    const bool direct = m_type == Qt::DirectConnection ||
                        (m_type == Qt::AutoConnection && receiver->thread() == QThread::currentThread());
    if (direct) {
        m_handler(request);
        return;
    }
    auto pending = std::make_shared<PendingDelivery>(request);
    auto handler = m_handler;
    QPointer<QObject> guard(receiver);
    QMetaObject::invokeMethod(
        receiver,
        [pending, handler, guard] {
            if (guard)
                handler(pending->take());
        },
        m_type == Qt::BlockingQueuedConnection ? Qt::BlockingQueuedConnection : Qt::QueuedConnection);
}
