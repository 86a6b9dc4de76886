#pragma once

#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QVariant>
#include <QWaitCondition>
#include <climits>
#include <cstddef>
#include <functional>

#include "cmerror.h"
#include "zuvorowsroles.h"

class CMVoidReply;

// A raw watcher of a reply; see CMVoidReply::addWatcher(CMReplyWatcher*).
class CMReplyWatcher {
public:
    virtual ~CMReplyWatcher() = default;
    virtual void replyFinished(const CMVoidReply& reply) = 0;
};

// A watcher that turns completion into a Qt signal.
class CMReplyWatcherObject : public QObject, public CMReplyWatcher {
    Q_OBJECT
public:
    explicit CMReplyWatcherObject(QObject* parent = nullptr)
        : QObject(parent) {}
    void replyFinished(const CMVoidReply& reply) override;

Q_SIGNALS:
    void finishedSignal(const CMVoidReply& reply);
};

// Shared state of a reply. The mutex guards every member; watchers are taken
// out under it and called after it has been released.
class CMReplyAbstractData {
public:
    struct Watcher {
        QPointer<QObject> receiver; // guards bound watchers
        bool bound = false;         // a receiver was given
        std::function<void(const CMVoidReply&)> function;
        Qt::ConnectionType type = Qt::AutoConnection;
        CMReplyWatcher* raw = nullptr;
    };

    CMReplyAbstractData() = default;
    virtual ~CMReplyAbstractData() = default;
    Q_DISABLE_COPY(CMReplyAbstractData)

    mutable QMutex mutex;
    QWaitCondition condition;
    bool finished = false;
    CMError error;
    QList<Watcher> watchers;
};

template <typename T> class CMReplyData : public CMReplyAbstractData {
public:
    T value{};
};

template <> class CMReplyData<void> : public CMReplyAbstractData {};

// Implicitly shared asynchronous result, completed exactly once.
//
// - The first setValue()/setError()/cancel() wins: under the reply's mutex it
//   marks the reply finished, stores the result, takes the watcher list out
//   and wakes every waiter; after the mutex is released each watcher is
//   notified, in registration order. Later completions are ignored.
// - A watcher bound to a receiver (addWatcher/onFinished with a QObject) is
//   called like a Qt connection of the given type in the receiver's thread,
//   and never once the receiver has been destroyed.
// - A watcher added to a reply that has already finished is still called,
//   through the event loop (never inside addWatcher), so no completion is lost.
// - cancel() completes the reply with an error named ErrorCancel().
// - Copies share one state; == and qHash compare that identity. A null handle
//   (constructed from nullptr) has no state: operator! is true and every
//   operation on it does nothing.
class CMVoidReply {
public:
    // A fresh, unfinished reply without a value.
    CMVoidReply();
    CMVoidReply(std::nullptr_t) {}

    static QString ErrorCancel();

    bool isNull() const { return d.isNull(); }
    bool operator!() const { return d.isNull(); }
    bool isFinished() const;
    // Blocks until the reply has finished or ms milliseconds have passed
    // (ULONG_MAX: no limit); returns whether it has finished.
    bool waitForFinished(unsigned long ms = ULONG_MAX) const;
    CMError error() const;
    // True when the reply finished with an error (a non-empty error name).
    bool hasError() const { return !error().isEmpty(); }

    // Completes the reply successfully without a value.
    void setValue() const;
    void setError(const CMError& error) const;
    void cancel() const;

    void addWatcher(QObject* receiver, std::function<void(const CMVoidReply&)> function,
                    Qt::ConnectionType type = Qt::AutoConnection) const;
    // The watcher must outlive the reply's completion; a watcher that is a
    // QObject is skipped once destroyed.
    void addWatcher(CMReplyWatcher* watcher) const;
    void onFinished(QObject* receiver, std::function<void(const CMVoidReply&)> function,
                    Qt::ConnectionType type = Qt::AutoConnection) const {
        addWatcher(receiver, std::move(function), type);
    }

    bool operator==(const CMVoidReply& other) const { return d == other.d; }
    bool operator!=(const CMVoidReply& other) const { return d != other.d; }
    CMReplyAbstractData* data() const { return d.data(); }

protected:
    explicit CMVoidReply(QSharedPointer<CMReplyAbstractData> data)
        : d(std::move(data)) {}
    // Once-only completion: runs store under the mutex when not yet finished,
    // then notifies the watchers. Returns whether this call completed it.
    bool complete(const CMError& error, const std::function<void(CMReplyAbstractData&)>& store) const;
    void addWatcher(CMReplyAbstractData::Watcher watcher) const;

    QSharedPointer<CMReplyAbstractData> d;
};

uint qHash(const CMVoidReply& reply, uint seed = 0);

[[noreturn]] void cmReplyWrongType();

template <typename T> class CMReply : public CMVoidReply {
public:
    CMReply()
        : CMVoidReply(QSharedPointer<CMReplyData<T>>::create()) {}
    CMReply(std::nullptr_t)
        : CMVoidReply(nullptr) {}
    // Adopts an untyped handle as it is; whether its data really is of type T
    // is checked where the value is used (see onFinished) and by isOfType().
    explicit CMReply(const CMVoidReply& reply)
        : CMVoidReply(reply) {}

    // Typed handle of reply when its data is of type T, a null handle otherwise.
    static CMReply<T> fromVoid(const CMVoidReply& reply) {
        return isOfType(reply) ? CMReply<T>(reply) : CMReply<T>(nullptr);
    }
    static bool isOfType(const CMVoidReply& reply) {
        return dynamic_cast<CMReplyData<T>*>(reply.data()) != nullptr;
    }

    // The stored value; T's default before completion, after an error, or
    // when the data is of another type.
    T value() const {
        auto* typed = dynamic_cast<CMReplyData<T>*>(d.data());
        if (!typed)
            return T();
        QMutexLocker locker(&typed->mutex);
        return typed->value;
    }

    void setValue(const T& value) const {
        complete(CMError(), [&value](CMReplyAbstractData& data) {
            if (auto* typed = dynamic_cast<CMReplyData<T>*>(&data))
                typed->value = value;
        });
    }

    // Calls function with this reply, typed, when it finishes. A reply whose
    // data is not of type T is a programming error that stops the program.
    void onFinished(QObject* receiver, std::function<void(const CMReply<T>&)> function,
                    Qt::ConnectionType type = Qt::AutoConnection) const {
        addWatcher(
            receiver,
            [function](const CMVoidReply& reply) {
                if (!isOfType(reply))
                    cmReplyWrongType();
                function(CMReply<T>(reply));
            },
            type);
    }
};

template <> class CMReply<void> : public CMVoidReply {
public:
    CMReply() = default;
    CMReply(std::nullptr_t)
        : CMVoidReply(nullptr) {}
    explicit CMReply(const CMVoidReply& reply)
        : CMVoidReply(reply) {}
};

Q_DECLARE_METATYPE(CMVoidReply)
Q_DECLARE_METATYPE(CMReply<QVariant>)
