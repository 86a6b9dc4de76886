#include <QRegularExpression>
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
    QList<CMSetDataRequest> enqueued, cancelled;
};

CMReply<QVariant> sendRaw(const CMPath& path, const QVariant& payload, CMReply<QVariant> reply = {}) {
    CMRoot()->invoke(path, payload, reply);
    return reply;
}
QVariant response(const QString& id, int type, const QString& reason = QString()) {
    ZuvoNotificationPlayerResponse response;
    response.setId(id);
    response.setType(Type::Enum(type));
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
    const QRegularExpression uuid(QStringLiteral("^alarm-[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$"));
    for (const QString& id : {item.id(), empty.id()})
        EXPECT_TRUE(uuid.match(id).hasMatch()) << id.toStdString();
    EXPECT_NE(item.id(), empty.id());

    drainEvents();
    const CMReply<QVariant> ack = report(item, Type::finished);
    EXPECT_EQ(std::make_tuple(ack.isFinished(), reply.isFinished()), std::make_tuple(false, false));
    EXPECT_TRUE(acknowledged(ack) && reply.isFinished());

    const CMError e = player.playNotification(QString(), ZuvoNotificationItemPriority::normal).error();
    EXPECT_EQ(
        QStringList({e.name(), e.title(), e.message()}),
        QStringList({"Error", CMError::DefaultTitle().toString(), "path to notification file is empty"}));
    drainEvents();
    EXPECT_EQ(service.enqueued.size(), 1);
}

// Finished (2) and error (4) end the notification once; a later report is
// for an unknown one. Queued, the player's cancelled and unknown
// types change nothing. No cancel is sent either way.
TEST_F(NotificationPlayerTest, ReportsByType) {
    const std::tuple<int, QString, bool, QString> rows[] = {
        // type, reason, ends, error (none: success)
        {Type::finished, "", true, ""},
        {Type::error, "decoder failed", true, "Notification playback error: decoder failed"},
        {Type::error, "", true, "Notification playback error: "},
        {Type::queued, "", false, ""},
        {Type::cancelled, "", false, ""},
        {99, "", false, ""}};
    for (const auto& [type, reason, ends, error] : rows) {
        SCOPED_TRACE(type);
        log.clear();
        ZuvoNotificationPlayerItem item;
        const CMReply<QVariant> reply = play(&item);
        EXPECT_TRUE(acknowledged(report(item, type, reason)));
        drainEvents();
        const CMError first = reply.error();
        const QStringList lines = error.isEmpty() ? QStringList() : QStringList{error};
        EXPECT_EQ(std::make_tuple(reply.isFinished(), first.message(), first.name(), errorLines()),
                  std::make_tuple(ends, error, lines.isEmpty() ? QString() : "Error", lines));
        log.clear();
        EXPECT_TRUE(acknowledged(report(item, Type::finished)));
        EXPECT_EQ(errorLines(), ends ? QStringList{kUnknown + item.id()} : QStringList());
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
    EXPECT_TRUE(acknowledged(report(item, Type::finished)));
    EXPECT_EQ(errorLines(), QStringList{kUnknown + item.id()});
    EXPECT_EQ(pending.error().name(), CMVoidReply::ErrorCancel());
    drainEvents();
    EXPECT_EQ(service.cancelled.size(), 1);
}

// Once the interface is gone, its node has left the tree and no cancel is sent.
TEST_F(NotificationPlayerTest, DestroyedInterface) {
    auto gone = std::make_unique<NotificationPlayerInterface>(nullptr, root.nodes(), CMPath("/chime"),
                                                              QStringLiteral("c"));
    const CMReply<QVariant> reply = gone->playNotification(gone->makeEmptyNotification());
    ASSERT_TRUE(waitUntil([&] { return service.enqueued.size() == 1; }));
    gone.reset();
    const CMReply<QVariant> ack = report(service.item(0), Type::finished);
    ASSERT_TRUE(waitUntil([&] { return ack.isFinished(); }));
    EXPECT_EQ(ack.error().name(), QStringLiteral("NodeNotFound"));
    reply.cancel();
    drainEvents();
    EXPECT_TRUE(service.cancelled.isEmpty());
}
