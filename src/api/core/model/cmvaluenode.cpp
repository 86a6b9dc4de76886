#include "cmvaluenode.h"

#include "cmnodes.h"

CMValueNode::CMValueNode(const CMPath& path, QMutex* mutex)
    : CMNode(path)
    , m_sharedMutex(mutex) {}

CMValueNode* CMValueNode::create(CMNodes* nodes, const CMPath& path, QMutex* mutex) {
    auto* node = new CMValueNode(path, mutex);
    node->setNodes(nodes);
    return node;
}

QMutex* CMValueNode::mutex() const {
    return m_sharedMutex ? m_sharedMutex : CMNode::mutex();
}

void CMValueNode::setValue(const ZuvoValue& value) {
    {
        QMutexLocker locker(mutex());
        m_value = value;
    }
    if (CMNodes* registry = nodes())
        registry->valueChanged(this, value);
}

ZuvoValue CMValueNode::value() const {
    QMutexLocker locker(mutex());
    return m_value;
}

void CMValueNode::setReadOnly(bool readOnly) {
    QMutexLocker locker(mutex());
    m_readOnly = readOnly;
}

bool CMValueNode::isReadOnly() const {
    QMutexLocker locker(mutex());
    return m_readOnly;
}

bool CMValueNode::getDataRequest(const CMGetDataRequest& request) {
    if (!request.path().equals(path(), CMPath::CompareWithoutParams))
        return CMNode::getDataRequest(request);
    request.reply().setValue(value().__variant());
    return true;
}

bool CMValueNode::setDataRequest(const CMSetDataRequest& request) {
    if (!request.path().equals(path(), CMPath::CompareWithoutParams) ||
        request.role() != CMSetDataRequest::ValueRole())
        return CMNode::setDataRequest(request);
    if (isReadOnly()) {
        request.reply().setError(
            CMError(QStringLiteral("ReadOnly"),
                    TrString(QStringLiteral("Value at %1 is read-only").arg(path().toEncoded()))));
        return false;
    }
    setValue(ZuvoValue(zuvo_detail::toHash(request.data())));
    request.reply().setValue(QVariant());
    return true;
}
