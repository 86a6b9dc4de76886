#include <QPointer>
#include <gtest/gtest.h>
#include <memory>

#include "model/cmactivatenode.h"
#include "model/cmglobal.h"
#include "model/cmnodes.h"
#include "model/cmunusednodetimer.h"
#include "model/cmvalueitem.h"
#include "model/cmvaluenode.h"
#include "support/eventloop.h"
#include "zuvovalue.h"

using zuvotest::drainEvents;
using zuvotest::waitUntil;

namespace {

// Records every invocation it receives and answers as told.
class Handler : public QObject {
public:
    void invoked(const CMSetDataRequest& request) {
        requests.append(request);
        if (answer)
            request.reply().setValue(request.data());
    }
    QList<CMSetDataRequest> requests;
    bool answer = true;
};

// Serves rows "row0".."rowN-1" under the role "name".
class ListNode : public CMNode {
public:
    ListNode(const CMPath& path, int count)
        : CMNode(path)
        , m_count(count) {}
    bool getRowsRequest(const CMGetRowsRequest& request) override {
        QVariantList rows;
        for (int i = request.fromRow(); i <= request.toRow() && i < m_count; ++i)
            rows.append(QVariant(QVariantList{QStringLiteral("row%1").arg(i)}));
        ZuvoRowsRoles result;
        result.setRows(rows);
        result.setRowsCount(m_count);
        request.reply().setValue(result);
        return true;
    }

private:
    int m_count;
};

ZuvoValue i64Value(qint64 v) {
    ZuvoValue value;
    value.setI64_(v);
    return value;
}

class CMTree : public ::testing::Test {
protected:
    CMRootScope root;
    CMNodes* nodes = root.nodes();
};

} // namespace

TEST_F(CMTree, InvokeReachesQueuedActivateNodeLaterFromTheEventLoop) {
    Handler handler;
    auto* node = CMActivateNode::create(nodes, CMPath("/player/control"));
    node->setInvoke(&handler, &Handler::invoked, Qt::QueuedConnection);

    CMReply<QVariant> reply;
    CMRoot()->invoke(CMPath("/player/control?client=7"), QVariant(QStringLiteral("args")), reply);
    EXPECT_TRUE(handler.requests.isEmpty()) << "a queued handler must not run inside invoke";
    EXPECT_FALSE(reply.isFinished());

    ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
    ASSERT_EQ(handler.requests.size(), 1);
    EXPECT_EQ(handler.requests.first().role(), QStringLiteral("activate"));
    EXPECT_EQ(handler.requests.first().path().param(QStringLiteral("client")), QStringLiteral("7"));
    EXPECT_EQ(reply.value(), QVariant(QStringLiteral("args")));
}

TEST_F(CMTree, RequestsWithoutANodeFailAtOnce) {
    CMReply<QVariant> invoked;
    CMRoot()->invoke(CMPath("/nobody"), QVariant(), invoked);
    CMReply<ZuvoRowsRoles> rows;
    CMRoot()->getRows(CMPath("/nobody/list"), 0, 9, 0, {QStringLiteral("name")}, rows);
    for (const CMVoidReply& reply : {CMVoidReply(invoked), CMVoidReply(rows)}) {
        EXPECT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().name(), QStringLiteral("NodeNotFound"));
    }
    EXPECT_FALSE(CMRoot()->getValue(CMPath("/nobody")).isValid());
}

TEST_F(CMTree, UndeliverableInvocationsFail) {
    auto* unbound = CMActivateNode::create(nodes, CMPath("/unbound"));
    Q_UNUSED(unbound);
    CMReply<QVariant> toUnbound;
    CMRoot()->invoke(CMPath("/unbound"), QVariant(), toUnbound);
    EXPECT_EQ(toUnbound.error().name(), QStringLiteral("NoHandler"));

    auto handler = std::make_unique<Handler>();
    auto* node = CMActivateNode::create(nodes, CMPath("/gone"));
    node->setInvoke(handler.get(), &Handler::invoked, Qt::QueuedConnection);
    CMReply<QVariant> toGone;
    CMRoot()->invoke(CMPath("/gone"), QVariant(), toGone);
    handler.reset(); // destroyed before the queued delivery runs
    ASSERT_TRUE(waitUntil([&] { return toGone.isFinished(); }));
    EXPECT_EQ(toGone.error().name(), QStringLiteral("NoHandler"));
}

TEST_F(CMTree, GetRowsIsAnsweredSynchronously) {
    auto* list = new ListNode(CMPath("/lists/0"), 3);
    list->setNodes(nodes);
    CMReply<ZuvoRowsRoles> reply;
    CMRoot()->getRows(CMPath("/lists/0"), 1, 9, 0, {QStringLiteral("name")}, reply);
    ASSERT_TRUE(reply.isFinished());
    EXPECT_EQ(reply.value().rowsCount(), 3);
    EXPECT_EQ(reply.value().rows().toList().size(), 2);
    EXPECT_EQ(
        CMGlobal::rolesValuesToHash({QStringLiteral("name")}, reply.value().rows().toList().first().toList()),
        (QVariantHash{{QStringLiteral("name"), QStringLiteral("row1")}}));
}

TEST_F(CMTree, RoutingPrefersTheDeepestNodeAndBaseHandlersRefuse) {
    auto* parent = new ListNode(CMPath("/a"), 1);
    parent->setNodes(nodes);
    auto* child = new ListNode(CMPath("/a/b"), 2);
    child->setNodes(nodes);
    EXPECT_EQ(nodes->route(CMPath("/a/b/c?x=1")), child);
    EXPECT_EQ(nodes->route(CMPath("/a/x")), parent);
    EXPECT_EQ(nodes->route(CMPath("/z")), nullptr);

    CMReply<QVariant> setOnList;
    CMRoot()->invoke(CMPath("/a/b"), QVariant(), setOnList);
    EXPECT_EQ(setOnList.error().name(), QStringLiteral("NotSupported"));
}

TEST_F(CMTree, ValueNodesAnswerReadsAndRefuseClientWritesWhenReadOnly) {
    auto* node = CMValueNode::create(nodes, CMPath("/player/data/playTime"));
    node->setValue(i64Value(5));
    EXPECT_EQ(ZuvoValue(CMRoot()->getValue(CMPath("/player/data/playTime")).toHash()).i64_(), 5);

    CMReply<QVariant> accepted;
    CMRoot()->setValue(CMPath("/player/data/playTime"), i64Value(6), accepted);
    EXPECT_TRUE(accepted.isFinished());
    EXPECT_FALSE(accepted.hasError());
    EXPECT_EQ(node->value().i64_(), 6);

    node->setReadOnly(true);
    CMReply<QVariant> refused;
    CMRoot()->setValue(CMPath("/player/data/playTime"), i64Value(7), refused);
    EXPECT_EQ(refused.error().name(), QStringLiteral("ReadOnly"));
    EXPECT_EQ(node->value().i64_(), 6);
    node->setValue(i64Value(8)); // the owner may still write
    EXPECT_EQ(node->value().i64_(), 8);
}

TEST_F(CMTree, ValueItemsSeeNewAndOldThroughTheEventLoop) {
    auto* node = CMValueNode::create(nodes, CMPath("/v"));
    node->setValue(i64Value(1));
    CMValueItem item(nullptr, CMPath("/v"));
    QList<QPair<qint64, qint64>> seen;
    QObject::connect(&item, &CMValueItem::changed, [&](const ZuvoValue& now, const ZuvoValue& old) {
        seen.append({now.i64_(), old.i64_()});
    });
    EXPECT_TRUE(seen.isEmpty());
    node->setValue(i64Value(2));
    node->setValue(i64Value(3));
    EXPECT_TRUE(seen.isEmpty()) << "reports travel through the event loop";
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 3; }));
    EXPECT_EQ(seen, (QList<QPair<qint64, qint64>>{{1, 0}, {2, 1}, {3, 2}}));
    EXPECT_EQ(item.value().i64_(), 3);
}

TEST_F(CMTree, ValueItemFollowsANodeThatAppearsLaterAndReportsItsRemoval) {
    CMValueItem item(nullptr, CMPath("/later"));
    QList<ZuvoValue> seen;
    QObject::connect(&item, &CMValueItem::changed,
                     [&](const ZuvoValue& now, const ZuvoValue&) { seen.append(now); });

    auto* node = CMValueNode::create(nodes, CMPath("/later"));
    node->setValue(i64Value(10));
    ASSERT_TRUE(waitUntil([&] { return !seen.isEmpty() && seen.last().i64_() == 10; }));
    EXPECT_EQ(node->watcherCount(), 1);

    node->deleteLater();
    ASSERT_TRUE(waitUntil([&] { return seen.last().isEmpty(); }));
    EXPECT_EQ(nodes->node(CMPath("/later")), nullptr);
}

TEST_F(CMTree, ChangingThePathDropsReportsOfTheOldPath) {
    auto* a = CMValueNode::create(nodes, CMPath("/a"));
    auto* b = CMValueNode::create(nodes, CMPath("/b"));
    a->setValue(i64Value(1));
    b->setValue(i64Value(2));
    CMValueItem item(nullptr, CMPath("/a"));
    QList<qint64> seen;
    QObject::connect(&item, &CMValueItem::changed,
                     [&](const ZuvoValue& now, const ZuvoValue&) { seen.append(now.i64_()); });
    a->setValue(i64Value(11));
    item.setPath(CMPath("/b"));
    drainEvents();
    EXPECT_EQ(seen, QList<qint64>{2});
    EXPECT_EQ(a->watcherCount(), 0);
    EXPECT_EQ(b->watcherCount(), 1);
    item.setPath(CMPath());
    EXPECT_EQ(b->watcherCount(), 0);
}

TEST_F(CMTree, UnusedNodeTimerDeletesOnlyAnUnusedNode) {
    QPointer<CMValueNode> unused = CMValueNode::create(nodes, CMPath("/tmp/unused"));
    new CMUnusedNodeTimer(unused, 30);
    QPointer<CMValueNode> watched = CMValueNode::create(nodes, CMPath("/tmp/watched"));
    new CMUnusedNodeTimer(watched, 30);
    CMValueItem watcher(nullptr, CMPath("/tmp/watched"));

    ASSERT_TRUE(waitUntil([&] { return unused.isNull(); }));
    EXPECT_EQ(nodes->node(CMPath("/tmp/unused")), nullptr);
    drainEvents();
    EXPECT_FALSE(watched.isNull()) << "a watched node stays";

    watcher.setPath(CMPath());
    ASSERT_TRUE(waitUntil([&] { return watched.isNull(); })) << "unwatched, it goes after the interval";
}

TEST_F(CMTree, ANewNodeOnAPathReplacesTheOldOne) {
    QPointer<CMValueNode> first = CMValueNode::create(nodes, CMPath("/same"));
    QPointer<CMValueNode> second = CMValueNode::create(nodes, CMPath("/same"));
    EXPECT_EQ(nodes->node(CMPath("/same")), second.data());
    EXPECT_EQ(first->nodes(), nullptr);
    ASSERT_TRUE(waitUntil([&] { return first.isNull(); })) << "the replaced node must not leak";
    EXPECT_FALSE(second.isNull());
}

TEST_F(CMTree, RegistryOwnsParentlessNodes) {
    QPointer<CMNode> owned;
    QObject parent;
    QPointer<CMNode> parented;
    {
        CMNodes registry;
        owned = CMValueNode::create(&registry, CMPath("/x"));
        parented = new CMNode(CMPath("/y"), &parent);
        parented->setNodes(&registry);
    }
    EXPECT_TRUE(owned.isNull());
    ASSERT_FALSE(parented.isNull());
    EXPECT_EQ(parented->nodes(), nullptr);
}
