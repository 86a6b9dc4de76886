#pragma once

#include <QPointer>
#include <functional>

#include "cmnode.h"

// A node that turns the set-data requests (invocations) on its path into
// calls of a bound member function.
//
// With Qt::QueuedConnection (what the library uses) the handler always runs
// later, from the event loop, never inside the client's call. The handler
// owns the request's reply. A request that cannot be delivered (no handler
// bound, or the handler's object destroyed before delivery) fails its reply
// with an error named "NoHandler", so a client never waits forever.
class CMActivateNode : public CMNode {
    Q_OBJECT
public:
    static CMActivateNode* create(CMNodes* nodes, const CMPath& path);

    template <typename T>
    void setInvoke(const T* object, void (T::*member)(const CMSetDataRequest&),
                   Qt::ConnectionType type = Qt::AutoConnection) {
        T* target = const_cast<T*>(object);
        bind(
            target, [target, member](const CMSetDataRequest& request) { (target->*member)(request); }, type);
    }

    bool setDataRequest(const CMSetDataRequest& request) override;
    // Delivers request to the bound handler through the bound connection.
    void privateInvoke(const CMSetDataRequest& request);

private:
    explicit CMActivateNode(const CMPath& path)
        : CMNode(path) {}
    void bind(QObject* receiver, std::function<void(const CMSetDataRequest&)> handler,
              Qt::ConnectionType type);

    QPointer<QObject> m_receiver;
    std::function<void(const CMSetDataRequest&)> m_handler;
    Qt::ConnectionType m_type = Qt::AutoConnection;
};
