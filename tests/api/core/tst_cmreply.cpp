#include <QThread>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmreply.h"
#include "support/eventloop.h"

using zuvotest::drainEvents;
using zuvotest::waitUntil;

// Whatever completes a reply first (value, error or cancel) stays; later
// completions are ignored and the watcher runs once.
TEST(CMReply, FirstCompletionWinsAndWatchersRunOnce) {
    const CMError late(QStringLiteral("late"), TrString("too late"));
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
        int calls = 0;
        reply.onFinished(nullptr, [&](const CMReply<int>&) { ++calls; });
        c.first(reply);
        reply.setValue(2);
        reply.setError(late);
        reply.cancel();
        EXPECT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.value(), c.value);
        EXPECT_EQ(reply.error().name(), c.errorName);
        EXPECT_EQ(calls, 1);
    }
}

TEST(CMReply, WatchersRunInRegistrationOrderAfterTheLockIsReleased) {
    CMReply<int> reply;
    QList<int> order;
    for (int i = 0; i < 4; ++i) {
        reply.onFinished(nullptr, [&order, i, reply](const CMReply<int>& r) {
            // The reply must already read as finished with its value, and its
            // lock must be free (value() takes it).
            EXPECT_TRUE(reply.isFinished());
            EXPECT_EQ(r.value(), 7);
            order.append(i);
        });
    }
    reply.setValue(7);
    EXPECT_EQ(order, (QList<int>{0, 1, 2, 3}));
}

TEST(CMReply, WatcherOfDestroyedReceiverIsNeverCalled) {
    struct Case {
        const char* name;
        Qt::ConnectionType type;
        bool deleteBeforeCompletion;
    };
    const Case cases[] = {
        {"direct, receiver gone before completion", Qt::DirectConnection, true},
        {"auto, receiver gone before completion", Qt::AutoConnection, true},
        {"queued, receiver gone before completion", Qt::QueuedConnection, true},
        {"queued, receiver gone before delivery", Qt::QueuedConnection, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CMVoidReply reply;
        auto receiver = std::make_unique<QObject>();
        bool called = false;
        reply.addWatcher(
            receiver.get(), [&](const CMVoidReply&) { called = true; }, c.type);
        if (c.deleteBeforeCompletion)
            receiver.reset();
        reply.setValue();
        receiver.reset();
        drainEvents();
        EXPECT_FALSE(called);
    }
}

TEST(CMReply, QueuedWatcherRunsLaterFromTheEventLoop) {
    CMVoidReply reply;
    QObject receiver;
    bool called = false;
    reply.addWatcher(
        &receiver, [&](const CMVoidReply&) { called = true; }, Qt::QueuedConnection);
    reply.setValue();
    EXPECT_FALSE(called);
    EXPECT_TRUE(waitUntil([&] { return called; }));
}

TEST(CMReply, WatcherAddedAfterCompletionIsStillCalledThroughTheEventLoop) {
    CMReply<QVariant> reply;
    reply.setError(CMError(QStringLiteral("NodeNotFound"), TrString("gone")));
    QObject receiver;
    QString seen;
    reply.onFinished(&receiver, [&](const CMReply<QVariant>& r) { seen = r.error().name(); });
    EXPECT_TRUE(seen.isEmpty()) << "must not run inside onFinished";
    EXPECT_TRUE(waitUntil([&] { return !seen.isEmpty(); }));
    EXPECT_EQ(seen, QStringLiteral("NodeNotFound"));
}

TEST(CMReply, WaitForFinished) {
    CMReply<int> never;
    EXPECT_FALSE(never.waitForFinished(20));

    CMReply<int> done;
    done.setValue(3);
    EXPECT_TRUE(done.waitForFinished(0));

    CMReply<int> fromThread;
    std::unique_ptr<QThread> thread(QThread::create([fromThread] { fromThread.setValue(42); }));
    thread->start();
    EXPECT_TRUE(fromThread.waitForFinished());
    EXPECT_EQ(fromThread.value(), 42);
    thread->wait();
}

TEST(CMReply, CompletionOnAnotherThreadRunsAutoWatcherInTheReceiversThread) {
    CMReply<int> reply;
    QObject receiver;
    QThread* ranIn = nullptr;
    reply.onFinished(&receiver, [&](const CMReply<int>&) { ranIn = QThread::currentThread(); });
    std::unique_ptr<QThread> thread(QThread::create([reply] { reply.setValue(1); }));
    thread->start();
    thread->wait();
    EXPECT_TRUE(waitUntil([&] { return ranIn != nullptr; }));
    EXPECT_EQ(ranIn, receiver.thread());
}

TEST(CMReply, HandlesShareStateAndCompareByIdentity) {
    CMReply<int> a;
    CMReply<int> copy = a;
    CMReply<int> b;
    EXPECT_EQ(a, copy);
    EXPECT_NE(a, b);
    EXPECT_EQ(qHash(CMVoidReply(a)), qHash(CMVoidReply(copy)));
    copy.setValue(9);
    EXPECT_TRUE(a.isFinished());
    EXPECT_EQ(a.value(), 9);

    CMVoidReply null(nullptr);
    EXPECT_TRUE(!null);
    null.setValue(); // no effect, no crash
    EXPECT_FALSE(null.isFinished());
}

TEST(CMReply, RawWatcherObjectEmitsFinishedSignal) {
    CMReply<QVariant> reply;
    CMReplyWatcherObject watcher;
    int signals = 0;
    QObject::connect(&watcher, &CMReplyWatcherObject::finishedSignal, [&](const CMVoidReply& r) {
        EXPECT_EQ(r, CMVoidReply(reply));
        ++signals;
    });
    reply.addWatcher(&watcher);
    reply.setValue(QVariant(1));
    EXPECT_EQ(signals, 1);
}

TEST(CMReply, TypedViewOfAnUntypedReply) {
    CMReply<int> typed;
    CMVoidReply untyped = typed;
    EXPECT_FALSE(CMReply<int>::fromVoid(untyped).isNull());
    EXPECT_TRUE(CMReply<bool>::fromVoid(untyped).isNull());
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
