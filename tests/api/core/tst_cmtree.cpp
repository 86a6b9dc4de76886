#include <QPointer>
#include <gtest/gtest.h>
#include <memory>
#include <tuple>

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

// Records every invocation and answers with its data.
class Handler : public QObject {
public:
    void invoked(const CMSetDataRequest& request) {
        requests.append(request);
        request.reply().setValue(request.data());
    }
    QList<CMSetDataRequest> requests;
};

// Serves rows "row0".."rowN-1" under the role "name".
class ListNode : public CMNode {
public:
    ListNode(CMNodes* nodes, const CMPath& path, int count)
        : CMNode(path)
        , count(count) {
        setNodes(nodes);
    }
    bool getRowsRequest(const CMGetRowsRequest& request) override {
        QVariantList rows;
        for (int i = request.fromRow(); i <= request.toRow() && i < count; ++i)
            rows.append(QVariant(QVariantList{QStringLiteral("row%1").arg(i)}));
        ZuvoRowsRoles result;
        result.setRows(rows);
        result.setRowsCount(count);
        request.reply().setValue(result);
        return true;
    }
    const int count;
};

ZuvoValue i64(qint64 v) {
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

// Requests reach the deepest node on their path: invocations of a queued
// activate node later, get-rows at once; those that cannot be served fail
// with their error name.
TEST_F(CMTree, RequestsReachTheirNodeOrFailWithTheirErrorName) {
    Handler handler;
    auto gone = std::make_unique<Handler>();
    CMActivateNode::create(nodes, CMPath("/player/control"))
        ->setInvoke(&handler, &Handler::invoked, Qt::QueuedConnection);
    CMActivateNode::create(nodes, CMPath("/gone"))
        ->setInvoke(gone.get(), &Handler::invoked, Qt::QueuedConnection);
    CMActivateNode::create(nodes, CMPath("/unbound"));
    auto* parent = new ListNode(nodes, CMPath("/a"), 1);
    auto* child = new ListNode(nodes, CMPath("/a/b"), 3);
    auto* readOnly = CMValueNode::create(nodes, CMPath("/readOnly"));
    readOnly->setValue(i64(6));
    readOnly->setReadOnly(true);
    EXPECT_EQ(nodes->route(CMPath("/a/b/c?x=1")), child);
    EXPECT_EQ(nodes->route(CMPath("/a/x")), parent);

    CMReply<QVariant> reply, toNobody, toUnbound, toGone, toList, toReadOnly;
    CMReply<ZuvoRowsRoles> rows, rowsOfNobody;
    CMRoot()->invoke(CMPath("/player/control?client=7"), QVariant(QStringLiteral("args")), reply);
    CMRoot()->getRows(CMPath("/a/b"), 1, 9, 0, {QStringLiteral("name")}, rows);
    CMRoot()->invoke(CMPath("/nobody"), QVariant(), toNobody);
    CMRoot()->getRows(CMPath("/nobody/list"), 0, 9, 0, {QStringLiteral("name")}, rowsOfNobody);
    CMRoot()->invoke(CMPath("/unbound"), QVariant(), toUnbound);
    CMRoot()->invoke(CMPath("/gone"), QVariant(), toGone);
    gone.reset(); // destroyed before the queued delivery runs
    CMRoot()->invoke(CMPath("/a"), QVariant(), toList);
    CMRoot()->setValue(CMPath("/readOnly"), i64(7), toReadOnly);
    EXPECT_TRUE(handler.requests.isEmpty()) << "a queued handler must not run inside invoke";
    ASSERT_TRUE(rows.isFinished());
    EXPECT_EQ(rows.value().rowsCount(), 3);
    const QVariantList got = rows.value().rows().toList();
    ASSERT_EQ(got.size(), 2);
    EXPECT_EQ(CMGlobal::rolesValuesToHash({QStringLiteral("name")}, got.first().toList()),
              (QVariantHash{{QStringLiteral("name"), QStringLiteral("row1")}}));

    ASSERT_TRUE(waitUntil([&] { return reply.isFinished() && toGone.isFinished(); }));
    ASSERT_EQ(handler.requests.size(), 1);
    const CMSetDataRequest& request = handler.requests.first();
    EXPECT_EQ(
        std::make_tuple(request.role(), request.path().param(QStringLiteral("client")), reply.value()),
        std::make_tuple(QStringLiteral("activate"), QStringLiteral("7"), QVariant(QStringLiteral("args"))));
    const std::pair<CMVoidReply, const char*> expected[] = {
        {toNobody, "NodeNotFound"}, {rowsOfNobody, "NodeNotFound"}, {toUnbound, "NoHandler"},
        {toGone, "NoHandler"},      {toList, "NotSupported"},       {toReadOnly, "ReadOnly"}};
    for (const auto& [failed, name] : expected)
        EXPECT_EQ(failed.error().name(), QLatin1String(name));
    EXPECT_FALSE(CMRoot()->getValue(CMPath("/nobody")).isValid());
    EXPECT_EQ(readOnly->value().i64_(), 6);
}

TEST_F(CMTree, ValueItemsSeeNewAndOldThroughTheEventLoopAndFollowTheirPath) {
    CMValueItem item(nullptr, CMPath("/v"));
    QList<QPair<qint64, qint64>> seen; // new and old; -1: none
    QObject::connect(&item, &CMValueItem::changed, [&](const ZuvoValue& now, const ZuvoValue& old) {
        seen.append({now.isEmpty() ? -1 : now.i64_(), old.isEmpty() ? -1 : old.i64_()});
    });
    auto* node = CMValueNode::create(nodes, CMPath("/v")); // after the item: it follows the path
    node->setValue(i64(1));
    ASSERT_TRUE(
        waitUntil([&] { return !seen.isEmpty() && seen.last() == qMakePair<qint64, qint64>(1, -1); }));
    seen.clear();
    CMReply<QVariant> accepted;
    CMRoot()->setValue(CMPath("/v"), i64(2), accepted);
    EXPECT_TRUE(accepted.isFinished() && !accepted.hasError());
    node->setValue(i64(3));
    EXPECT_EQ(ZuvoValue(CMRoot()->getValue(CMPath("/v")).toHash()).i64_(), 3);
    EXPECT_TRUE(seen.isEmpty()) << "reports travel through the event loop";
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen, (QList<QPair<qint64, qint64>>{{2, 1}, {3, 2}}));
    EXPECT_EQ(item.value().i64_(), 3);
    node->deleteLater();
    ASSERT_TRUE(waitUntil([&] { return seen.last().first == -1; })) << "the removal is reported";

    auto* a = CMValueNode::create(nodes, CMPath("/a"));
    auto* b = CMValueNode::create(nodes, CMPath("/b"));
    b->setValue(i64(2));
    item.setPath(CMPath("/a"));
    drainEvents();
    seen.clear();
    a->setValue(i64(11)); // dropped: the path changes before its delivery
    item.setPath(CMPath("/b"));
    drainEvents();
    EXPECT_EQ(seen, (QList<QPair<qint64, qint64>>{{2, -1}}));
    EXPECT_EQ(std::make_pair(a->watcherCount(), b->watcherCount()), std::make_pair(0, 1));
    item.setPath(CMPath());
    EXPECT_EQ(b->watcherCount(), 0);
}

TEST_F(CMTree, NodeLifetimes) {
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

    // A new node on a path replaces the old one, which must not leak.
    QPointer<CMValueNode> first = CMValueNode::create(nodes, CMPath("/same"));
    QPointer<CMValueNode> second = CMValueNode::create(nodes, CMPath("/same"));
    EXPECT_EQ(nodes->node(CMPath("/same")), second.data());
    EXPECT_EQ(first->nodes(), nullptr);
    ASSERT_TRUE(waitUntil([&] { return first.isNull(); }));
    EXPECT_FALSE(second.isNull());

    // A registry owns its parentless nodes only.
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
