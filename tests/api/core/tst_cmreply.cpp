#include <QThread>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmreply.h"
#include "support/eventloop.h"

using zuvotest::drainEvents;
using zuvotest::waitUntil;

// Whatever completes a reply first (value, error or cancel) stays; later
// completions are ignored and the watchers run once, in registration order,
// after the lock is released (value() takes it).
TEST(CMReply, FirstCompletionWinsAndWatchersRunOnceInOrder) {
    const struct {
        const char* name;
        std::function<void(CMReply<int>&)> first;
        int value;
        QString errorName;
    } cases[] = {
        {"value", [](CMReply<int>& r) { r.setValue(1); }, 1, QString()},
        {"error", [](CMReply<int>& r) { r.setError(CMError(TrString("failed"))); }, 0,
         CMError::DefaultName()},
        {"cancel", [](CMReply<int>& r) { r.cancel(); }, 0, CMVoidReply::ErrorCancel()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CMReply<int> reply;
        QList<int> order;
        for (int i = 0; i < 3; ++i) {
            reply.onFinished(nullptr, [&order, i, c](const CMReply<int>& r) {
                EXPECT_TRUE(r.isFinished());
                EXPECT_EQ(r.value(), c.value);
                order.append(i);
            });
        }
        c.first(reply);
        reply.setValue(2);
        reply.setError(CMError(QStringLiteral("late"), TrString("too late")));
        reply.cancel();
        EXPECT_EQ(reply.value(), c.value);
        EXPECT_EQ(reply.error().name(), c.errorName);
        EXPECT_EQ(order, (QList<int>{0, 1, 2}));
    }
}

// A watcher whose receiver is gone (before completion, or before the queued
// delivery) is never called. Queued watchers, and those added after completion
// (a request to an unknown path may fail before its watcher is added), run
// later from the event loop.
TEST(CMReply, WatchersRunLaterWhenQueuedOrLateAndNeverForADestroyedReceiver) {
    const std::pair<Qt::ConnectionType, bool> cases[] = {
        {Qt::DirectConnection, true}, {Qt::QueuedConnection, true}, {Qt::QueuedConnection, false}};
    for (const auto& [type, goneBeforeCompletion] : cases) {
        CMVoidReply reply;
        auto receiver = std::make_unique<QObject>();
        bool called = false;
        reply.addWatcher(
            receiver.get(), [&](const CMVoidReply&) { called = true; }, type);
        if (goneBeforeCompletion)
            receiver.reset();
        reply.setValue();
        receiver.reset();
        drainEvents();
        EXPECT_FALSE(called) << type << goneBeforeCompletion;
    }

    CMReply<QVariant> reply;
    QObject receiver;
    QStringList seen;
    reply.addWatcher(
        &receiver, [&](const CMVoidReply&) { seen.append(QStringLiteral("queued")); }, Qt::QueuedConnection);
    reply.setError(CMError(QStringLiteral("NodeNotFound"), TrString("gone")));
    reply.onFinished(&receiver, [&](const CMReply<QVariant>& r) { seen.append(r.error().name()); });
    EXPECT_TRUE(seen.isEmpty());
    EXPECT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen, QStringList({QStringLiteral("queued"), QStringLiteral("NodeNotFound")}));
}

TEST(CMReply, CompletionOnAnotherThreadWakesWaitersAndRunsWatchersInTheReceiversThread) {
    CMReply<int> never;
    EXPECT_FALSE(never.waitForFinished(20));
    CMReply<int> reply;
    QObject receiver;
    QThread* ranIn = nullptr;
    reply.onFinished(&receiver, [&](const CMReply<int>&) { ranIn = QThread::currentThread(); });
    std::unique_ptr<QThread> thread(QThread::create([reply] { reply.setValue(42); }));
    thread->start();
    EXPECT_TRUE(reply.waitForFinished());
    EXPECT_EQ(reply.value(), 42);
    thread->wait();
    EXPECT_TRUE(waitUntil([&] { return ranIn != nullptr; }));
    EXPECT_EQ(ranIn, receiver.thread());
}

// Copies share one state; a null handle ignores completion.
TEST(CMReply, HandlesShareStateCompareByIdentityAndViewTheirType) {
    CMReply<int> a;
    CMReply<int> copy = a;
    EXPECT_TRUE(a == copy && a != CMReply<int>() && qHash(CMVoidReply(a)) == qHash(CMVoidReply(copy)));
    CMReplyWatcherObject watcher;
    QList<CMVoidReply> signalled;
    QObject::connect(&watcher, &CMReplyWatcherObject::finishedSignal,
                     [&](const CMVoidReply& r) { signalled += r; });
    a.addWatcher(&watcher);
    copy.setValue(9);
    EXPECT_EQ(a.value(), 9);
    EXPECT_EQ(signalled, QList<CMVoidReply>{a});
    EXPECT_FALSE(CMReply<int>::fromVoid(a).isNull());
    EXPECT_TRUE(CMReply<bool>::fromVoid(a).isNull());
    CMVoidReply null(nullptr);
    null.setValue();
    EXPECT_TRUE(!null && !null.isFinished());
}

TEST(CMReplyDeathTest, WrongTypeInOnFinishedStopsTheProgram) {
    EXPECT_DEATH(
        {
            CMReply<bool> stopReply;
            CMReply<int> wrong(static_cast<const CMVoidReply&>(stopReply));
            wrong.onFinished(nullptr, [](const CMReply<int>&) {});
            stopReply.setValue(true);
        },
        "Wrong type passed to CMReply::onFinished\\(\\)!");
}
