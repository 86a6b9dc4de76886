#pragma once

#include <QObject>
#include <QPointer>

#include "cmpath.h"
#include "zuvovalue.h"

class CMNodes;

// Client-side watcher of one value path of the current registry.
//
// changed(new, old) is emitted from the event loop (never inside the call
// that changed the value) whenever the watched value changes; old is the
// value this item reported last. The current value of a node that exists when
// the path is set, or that appears later, is reported the same way; a node
// that goes away is reported as an empty value. setPath() with an empty path
// stops watching; reports still queued for an earlier path are dropped.
class CMValueItem : public QObject {
    Q_OBJECT
public:
    CMValueItem(QObject* parent, const CMPath& path);
    ~CMValueItem() override;
    Q_DISABLE_COPY(CMValueItem)

    void setPath(const CMPath& path);
    CMPath path() const { return m_path; }
    // The value reported last (empty before the first report).
    ZuvoValue value() const { return m_value; }

Q_SIGNALS:
    void changed(const ZuvoValue& newValue, const ZuvoValue& oldValue);

private:
    friend class CMNodes;
    // Queues a report of value for the current path (any thread).
    void post(const ZuvoValue& value);
    void deliver(quint64 generation, const ZuvoValue& value);

    CMPath m_path;
    QPointer<CMNodes> m_nodes;
    ZuvoValue m_value;
    QAtomicInteger<quint64> m_generation{0};
};
