#include "cmreply.h"

#include <QCoreApplication>
#include <QThread>

namespace {

bool sameThread(const QObject* object) {
    return object->thread() == QThread::currentThread();
}

// Runs one watcher of a reply that has just finished.
void notify(const CMReplyAbstractData::Watcher& watcher, const CMVoidReply& reply) {
    if (watcher.raw) {
        if (watcher.bound && !watcher.receiver)
            return;
        watcher.raw->replyFinished(reply);
        return;
    }
    if (!watcher.function)
        return;
    if (!watcher.bound) {
        watcher.function(reply);
        return;
    }
    QObject* receiver = watcher.receiver.data();
    if (!receiver)
        return;
    const Qt::ConnectionType type = watcher.type;
    if (type == Qt::DirectConnection ||
        ((type == Qt::AutoConnection || type == Qt::UniqueConnection) && sameThread(receiver))) {
        watcher.function(reply);
        return;
    }
    const auto function = watcher.function;
    // Qt drops the call when the receiver is destroyed before it runs.
    QMetaObject::invokeMethod(
        receiver, [function, reply] { function(reply); },
        type == Qt::BlockingQueuedConnection ? Qt::BlockingQueuedConnection : Qt::QueuedConnection);
}

// Calls a watcher of an already finished reply through the event loop.
void notifyLater(const CMReplyAbstractData::Watcher& watcher, const CMVoidReply& reply) {
    QObject* context = watcher.bound ? watcher.receiver.data() : QCoreApplication::instance();
    if (watcher.bound && !context)
        return;
    if (!context) {
        notify(watcher, reply);
        return;
    }
    CMReplyAbstractData::Watcher queued = watcher;
    queued.type = Qt::DirectConnection; // already on the receiver's thread when it runs
    QMetaObject::invokeMethod(
        context, [queued, reply] { notify(queued, reply); }, Qt::QueuedConnection);
}

} // namespace

void CMReplyWatcherObject::replyFinished(const CMVoidReply& reply) {
    Q_EMIT finishedSignal(reply);
}

CMVoidReply::CMVoidReply()
    : d(QSharedPointer<CMReplyData<void>>::create()) {}

QString CMVoidReply::ErrorCancel() {
    return QStringLiteral("ReplyCancelled");
}

bool CMVoidReply::isFinished() const {
    if (!d)
        return false;
    QMutexLocker locker(&d->mutex);
    return d->finished;
}

bool CMVoidReply::waitForFinished(unsigned long ms) const {
    if (!d)
        return false;
    QMutexLocker locker(&d->mutex);
    while (!d->finished) {
        if (!d->condition.wait(&d->mutex, ms))
            return d->finished;
    }
    return true;
}

CMError CMVoidReply::error() const {
    if (!d)
        return CMError();
    QMutexLocker locker(&d->mutex);
    return d->error;
}

void CMVoidReply::setValue() const {
    complete(CMError(), [](CMReplyAbstractData&) {});
}

void CMVoidReply::setError(const CMError& error) const {
    complete(error, [](CMReplyAbstractData&) {});
}

void CMVoidReply::cancel() const {
    complete(CMError(ErrorCancel(), TrString(QStringLiteral("Request cancelled"))),
             [](CMReplyAbstractData&) {});
}

bool CMVoidReply::complete(const CMError& error,
                           const std::function<void(CMReplyAbstractData&)>& store) const {
    if (!d)
        return false;
    QList<CMReplyAbstractData::Watcher> watchers;
    {
        QMutexLocker locker(&d->mutex);
        if (d->finished)
            return false;
        d->finished = true;
        d->error = error;
        if (error.isEmpty())
            store(*d);
        watchers.swap(d->watchers);
        d->condition.wakeAll();
    }
    for (const auto& watcher : qAsConst(watchers))
        notify(watcher, *this);
    return true;
}

void CMVoidReply::addWatcher(CMReplyAbstractData::Watcher watcher) const {
    if (!d)
        return;
    {
        QMutexLocker locker(&d->mutex);
        if (!d->finished) {
            d->watchers.append(std::move(watcher));
            return;
        }
    }
    notifyLater(watcher, *this);
}

void CMVoidReply::addWatcher(QObject* receiver, std::function<void(const CMVoidReply&)> function,
                             Qt::ConnectionType type) const {
    CMReplyAbstractData::Watcher watcher;
    watcher.receiver = receiver;
    watcher.bound = receiver != nullptr;
    watcher.function = std::move(function);
    watcher.type = type;
    addWatcher(std::move(watcher));
}

void CMVoidReply::addWatcher(CMReplyWatcher* raw) const {
    if (!raw)
        return;
    CMReplyAbstractData::Watcher watcher;
    watcher.raw = raw;
    if (auto* object = dynamic_cast<QObject*>(raw)) {
        watcher.receiver = object;
        watcher.bound = true;
    }
    watcher.type = Qt::DirectConnection;
    addWatcher(std::move(watcher));
}

uint qHash(const CMVoidReply& reply, uint seed) {
    return qHash(static_cast<const void*>(reply.data()), seed);
}

void cmReplyWrongType() {
    qFatal("ASSERT failure in CMReply: \"Wrong type passed to CMReply::onFinished()!\"");
}
