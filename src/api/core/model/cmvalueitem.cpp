#include "cmvalueitem.h"

#include "cmnodes.h"

CMValueItem::CMValueItem(QObject* parent, const CMPath& path)
    : QObject(parent) {
    setPath(path);
}

CMValueItem::~CMValueItem() {
    if (m_nodes)
        m_nodes->unwatch(this);
}

void CMValueItem::setPath(const CMPath& path) {
    if (m_nodes)
        m_nodes->unwatch(this);
    m_nodes = nullptr;
    m_path = path;
    m_generation.fetchAndAddOrdered(1);
    m_value = ZuvoValue();
    if (path.isEmpty())
        return;
    m_nodes = CMNodes::current();
    m_nodes->watch(this, path);
}

void CMValueItem::post(const ZuvoValue& value) {
    const quint64 generation = m_generation.loadAcquire();
    QMetaObject::invokeMethod(
        this, [this, generation, value] { deliver(generation, value); }, Qt::QueuedConnection);
}

void CMValueItem::deliver(quint64 generation, const ZuvoValue& value) {
    if (generation != m_generation.loadAcquire() || value == m_value)
        return;
    const ZuvoValue old = m_value;
    m_value = value;
    Q_EMIT changed(value, old);
}
