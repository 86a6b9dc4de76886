#include <gtest/gtest.h>
#include <memory>

#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "notificationplayer.h"
#include "support/eventloop.h"
#include "support/logcapture.h"

using zuvotest::drainEvents;
using zuvotest::waitUntil;
using Type = ZuvoNotificationPlayerResponseType;

namespace {

const QString kUnknown = QStringLiteral("Received response for unknown notification: ");

// The host's player: records (queued) and acknowledges enqueues and cancels.
struct Service : QObject {
    explicit Service(CMNodes* nodes) {
        for (const CMPath& path : {ZuvoNotificationPlayerEnqueuePath(), ZuvoNotificationPlayerCancelPath()})
            CMActivateNode::create(nodes, path)->setInvoke(this, &Service::onInvoked, Qt::QueuedConnection);
    }
    void onInvoked(const CMSetDataRequest& request) {
        (request.path() == ZuvoNotificationPlayerCancelPath() ? cancelled : enqueued).append(request);
        request.reply().setValue(QVariant());
    }
    ZuvoNotificationPlayerItem item(int i) const {
        return ZuvoValue(enqueued.at(i).data().toHash()).notificationPlayerItem();
    }
    QList<CMSetDataRequest> enqueued;
    QList<CMSetDataRequest> cancelled;
};

CMReply<QVariant> sendRaw(const CMPath& path, const QVariant& payload, CMReply<QVariant> reply = {}) {
    CMRoot()->invoke(path, payload, reply);
    return reply;
}
QVariant response(const QString& id, int type, const QString& reason = QString()) {
    ZuvoNotificationPlayerResponse response;
    if (!id.isNull())
        response.setId(id);
    response.setType(Type::Enum(type));
    if (!reason.isEmpty())
        response.setErrorReason(reason);
    ZuvoValue value;
    value.setNotificationPlayerResponse(response);
    return value.__variant();
}
CMReply<QVariant> report(const ZuvoNotificationPlayerItem& item, int type, const QString& reason = {}) {
    return sendRaw(item.playbackResponsePath(), response(item.id(), type, reason));
}
bool acknowledged(const CMReply<QVariant>& ack) {
    return waitUntil([&] { return ack.isFinished(); }) && !ack.hasError() && !ack.value().isValid();
}

class NotificationPlayerTest : public ::testing::Test {
protected:
    CMReply<QVariant> play(ZuvoNotificationPlayerItem* enqueued) {
        const int before = service.enqueued.size();
        CMReply<QVariant> reply =
            player.playNotification(QStringLiteral("/sounds/bell.wav"), ZuvoNotificationItemPriority::high);
        EXPECT_TRUE(waitUntil([&] { return service.enqueued.size() == before + 1; }));
        if (service.enqueued.size() == before + 1)
            *enqueued = service.item(before);
        return reply;
    }
    QStringList errorLines() const {
        QStringList lines;
        for (const LogCapture::Entry& e : log.entries())
            if (e.logger == QLatin1String("Notifications") && e.level == log4cplus::ERROR_LOG_LEVEL)
                lines.append(e.message);
        return lines;
    }

    CMRootScope root;
    Service service{root.nodes()};
    const CMPath responsePath{"/alarms/notificationResponse"};
    NotificationPlayerInterface player{nullptr, root.nodes(), responsePath, QStringLiteral("alarm")};
    LogCapture log;
};

} // namespace

// A file is enqueued as a file item with a fresh id (prefix, dash, uuid); the
// report is handled from the event loop, never inside the send. An empty path
// fails at once and sends nothing.
TEST_F(NotificationPlayerTest, FileIsEnqueuedAndItsReplyWaitsForTheReport) {
    ZuvoNotificationPlayerItem item;
    const CMReply<QVariant> reply = play(&item);
    EXPECT_EQ(std::make_tuple(service.enqueued.first().role(), item.content(), item.isSetType(), item.type(),
                              item.priority(), item.playbackResponsePath()),
              std::make_tuple(ZuvoRoles::Activate(), QStringLiteral("/sounds/bell.wav"), true,
                              ZuvoNotificationPlayerItemType::file, ZuvoNotificationItemPriority::high,
                              responsePath));
    const ZuvoNotificationPlayerItem empty = player.makeEmptyNotification();
    EXPECT_EQ(std::make_tuple(empty.playbackResponsePath(), empty.isSetContent()),
              std::make_tuple(responsePath, false));
    for (const QString& id : {item.id(), empty.id()}) {
        EXPECT_TRUE(id.startsWith(QStringLiteral("alarm-"))) << id.toStdString();
        EXPECT_EQ(id.size(), 6 + 36) << id.toStdString();
    }
    EXPECT_NE(item.id(), empty.id());

    drainEvents();
    EXPECT_FALSE(reply.isFinished());
    const CMReply<QVariant> ack = report(item, Type::finished);
    EXPECT_EQ(std::make_tuple(ack.isFinished(), reply.isFinished()), std::make_tuple(false, false));
    EXPECT_TRUE(acknowledged(ack));
    EXPECT_TRUE(reply.isFinished());

    const CMError e = player.playNotification(QString(), ZuvoNotificationItemPriority::normal).error();
    EXPECT_EQ(
        QStringList({e.name(), e.title(), e.message()}),
        QStringList({"Error", CMError::DefaultTitle().toString(), "path to notification file is empty"}));
    drainEvents();
    EXPECT_EQ(service.enqueued.size(), 1);
}

// Finished (2) and error (4) end the notification once; a later report is
// for an unknown one. Queued, started, the player's cancelled and unknown
// types change nothing. No cancel is sent either way.
TEST_F(NotificationPlayerTest, ReportsByType) {
    const struct {
        int type;
        QString reason;
        bool ends;
        QString error; // empty: success
    } rows[] = {{Type::finished, QString(), true, QString()},
                {Type::error, QStringLiteral("decoder failed"), true,
                 QStringLiteral("Notification playback error: decoder failed")},
                {Type::error, QString(), true, QStringLiteral("Notification playback error: ")},
                {Type::queued, QString(), false, QString()},
                {Type::started, QString(), false, QString()},
                {Type::cancelled, QString(), false, QString()},
                {99, QString(), false, QString()}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        log.clear();
        ZuvoNotificationPlayerItem item;
        const CMReply<QVariant> reply = play(&item);
        EXPECT_TRUE(acknowledged(report(item, row.type, row.reason)));
        drainEvents();
        const CMError first = reply.error();
        const QStringList lines = row.error.isEmpty() ? QStringList() : QStringList{row.error};
        EXPECT_EQ(std::make_tuple(reply.isFinished(), first.message(), first.name(), errorLines()),
                  std::make_tuple(row.ends, row.error, lines.isEmpty() ? QString() : "Error", lines));
        log.clear();
        EXPECT_TRUE(acknowledged(report(item, Type::finished)));
        EXPECT_EQ(errorLines(), row.ends ? QStringList{kUnknown + item.id()} : QStringList());
        EXPECT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error(), first);
    }
    EXPECT_TRUE(service.cancelled.isEmpty());
}

// Reports that name no pending notification, malformed ones included, are
// acknowledged, logged (except a cancelled one) and leave others alone.
TEST_F(NotificationPlayerTest, ReportsForNoPendingNotificationAndAfterACancel) {
    ZuvoNotificationPlayerItem item;
    const CMReply<QVariant> pending = play(&item);
    const QString stranger = QStringLiteral("alarm-stranger");
    const std::pair<QVariant, QString> rows[] = {
        {response(stranger, Type::finished), kUnknown + stranger},
        {response(stranger, Type::cancelled), QString()},
        {QVariant(QStringLiteral("finished")), kUnknown},
        {QVariantHash{{ZuvoValue::NotificationPlayerResponse(), item.id()}}, kUnknown},
    };
    for (const auto& [payload, line] : rows) {
        log.clear();
        EXPECT_TRUE(acknowledged(sendRaw(responsePath, payload)));
        EXPECT_EQ(errorLines(), line.isNull() ? QStringList() : QStringList{line}) << line.toStdString();
    }
    EXPECT_FALSE(pending.isFinished());

    // Cancelled, it sends one cancel; later reports change nothing.
    log.clear();
    pending.cancel();
    ASSERT_TRUE(waitUntil([&] { return !service.cancelled.isEmpty(); }));
    EXPECT_EQ(std::make_tuple(ZuvoValue(service.cancelled.first().data().toHash()).string_(),
                              service.cancelled.first().role()),
              std::make_tuple(item.id(), ZuvoRoles::Activate()));
    EXPECT_TRUE(acknowledged(report(item, Type::cancelled)));
    EXPECT_TRUE(errorLines().isEmpty());
    EXPECT_TRUE(acknowledged(report(item, Type::finished)));
    EXPECT_EQ(errorLines(), QStringList{kUnknown + item.id()});
    EXPECT_EQ(pending.error().name(), CMVoidReply::ErrorCancel());
    drainEvents();
    EXPECT_EQ(service.cancelled.size(), 1);
}

// The answer to the enqueue is not examined: with no player in the tree the
// enqueue fails, and the notification still waits for its report. Once the
// interface is gone, its node has left the tree and no cancel is sent.
TEST(NotificationPlayer, FailedEnqueueAndDestroyedInterface) {
    CMRootScope root;
    auto player = std::make_unique<NotificationPlayerInterface>(nullptr, root.nodes(), CMPath("/chime"),
                                                                QStringLiteral("c"));
    const ZuvoNotificationPlayerItem item = player->makeEmptyNotification();
    const CMReply<QVariant> reply = player->playNotification(item);
    drainEvents();
    EXPECT_FALSE(reply.isFinished());
    EXPECT_TRUE(acknowledged(report(item, Type::finished)));
    EXPECT_TRUE(reply.isFinished() && !reply.hasError());

    Service service(root.nodes());
    const CMReply<QVariant> second =
        player->playNotification(QStringLiteral("/sounds/chime.wav"), ZuvoNotificationItemPriority::normal);
    ASSERT_TRUE(waitUntil([&] { return service.enqueued.size() == 1; }));
    player.reset();
    const CMReply<QVariant> ack = report(service.item(0), Type::finished);
    ASSERT_TRUE(waitUntil([&] { return ack.isFinished(); }));
    EXPECT_EQ(ack.error().name(), QStringLiteral("NodeNotFound"));
    second.cancel();
    drainEvents();
    EXPECT_TRUE(service.cancelled.isEmpty());
}
