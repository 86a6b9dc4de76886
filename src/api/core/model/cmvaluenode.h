#pragma once

#include "cmnode.h"
#include "zuvovalue.h"

// A node holding one ZuvoValue.
//
// setValue() stores the value and notifies every value item watching the
// path; the items receive (new, old) through the event loop. Clients read the
// value with CMAbstractWorker::getValue() or a get-data request and may write
// it with a set-data request of role CMSetDataRequest::ValueRole() unless the
// node is read-only; the owner's setValue() is always allowed.
class CMValueNode : public CMNode {
    Q_OBJECT
public:
    // Creates a value node on path and registers it in nodes. The node's lock
    // is mutex when one is given (a node shares its owner's lock), its own
    // otherwise.
    static CMValueNode* create(CMNodes* nodes, const CMPath& path, QMutex* mutex = nullptr);

    void setValue(const ZuvoValue& value);
    ZuvoValue value() const;
    void setReadOnly(bool readOnly);
    bool isReadOnly() const;

    QMutex* mutex() const override;
    bool getDataRequest(const CMGetDataRequest& request) override;
    bool setDataRequest(const CMSetDataRequest& request) override;

private:
    CMValueNode(const CMPath& path, QMutex* mutex);

    QMutex* m_sharedMutex;
    ZuvoValue m_value;
    bool m_readOnly = false;
};
