#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "model/cmnodes.h"
#include "notificationplayer.h"
#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/testnotificationservice.h"

using zuvotest::drainEvents;
using zuvotest::waitUntil;
using Type = ZuvoNotificationPlayerResponseType;

namespace {

const QString kUnknown = QStringLiteral("Received response for unknown notification: ");

// True once the client has acknowledged a report (empty value, no error).
bool acknowledged(const CMReply<QVariant>& ack) {
    return waitUntil([&] { return ack.isFinished(); }) && !ack.hasError() && !ack.value().isValid();
}

class NotificationPlayerTest : public ::testing::Test {
protected:
    // Plays a file and waits until the service has received it.
    CMReply<QVariant> play(ZuvoNotificationPlayerItem* enqueued) {
        const int before = service.enqueued().size();
        CMReply<QVariant> reply =
            player.playNotification(QStringLiteral("/sounds/bell.wav"), ZuvoNotificationItemPriority::high);
        EXPECT_TRUE(waitUntil([&] { return service.enqueued().size() == before + 1; }));
        if (service.enqueued().size() == before + 1)
            *enqueued = service.enqueued().last();
        return reply;
    }

    QStringList errorLines() const {
        QStringList lines;
        for (const LogCapture::Entry& e : log.entries()) {
            if (e.logger == QLatin1String("Notifications") && e.level == log4cplus::ERROR_LOG_LEVEL)
                lines.append(e.message);
        }
        return lines;
    }

    CMRootScope root;
    TestNotificationService service{root.nodes()};
    const CMPath responsePath{"/alarms/notificationResponse"};
    NotificationPlayerInterface player{nullptr, root.nodes(), responsePath, QStringLiteral("alarm")};
    LogCapture log;
};

} // namespace

TEST_F(NotificationPlayerTest, FileIsEnqueuedAsFileItemAndReplyWaits) {
    ZuvoNotificationPlayerItem item;
    const CMReply<QVariant> reply = play(&item);

    ASSERT_EQ(service.enqueueRequests().size(), 1);
    EXPECT_EQ(service.enqueueRequests().first().role(), ZuvoRoles::Activate());
    EXPECT_EQ(item.content(), QStringLiteral("/sounds/bell.wav"));
    EXPECT_TRUE(item.isSetType());
    EXPECT_EQ(item.type(), ZuvoNotificationPlayerItemType::file);
    EXPECT_EQ(item.priority(), ZuvoNotificationItemPriority::high);
    EXPECT_EQ(item.playbackResponsePath(), responsePath);
    EXPECT_FALSE(reply.isFinished());
}

TEST_F(NotificationPlayerTest, IdsArePrefixDashUuidAndDiffer) {
    ZuvoNotificationPlayerItem first;
    ZuvoNotificationPlayerItem second;
    play(&first);
    play(&second);
    const ZuvoNotificationPlayerItem empty = player.makeEmptyNotification();

    const QStringList ids{first.id(), second.id(), empty.id()};
    for (const QString& id : ids) {
        EXPECT_TRUE(id.startsWith(QStringLiteral("alarm-"))) << id.toStdString();
        EXPECT_EQ(id.size(), int(sizeof("alarm-")) - 1 + 36) << id.toStdString();
    }
    EXPECT_NE(ids[0], ids[1]);
    EXPECT_NE(ids[1], ids[2]);
    EXPECT_EQ(empty.playbackResponsePath(), responsePath);
    EXPECT_FALSE(empty.isSetContent());
}

TEST_F(NotificationPlayerTest, EmptyPathFailsAtOnceAndSendsNothing) {
    const CMReply<QVariant> reply = player.playNotification(QString(), ZuvoNotificationItemPriority::normal);

    ASSERT_TRUE(reply.isFinished());
    EXPECT_EQ(reply.error().name(), QStringLiteral("Error"));
    EXPECT_EQ(reply.error().message(), QStringLiteral("path to notification file is empty"));
    EXPECT_EQ(reply.error().title(), CMError::DefaultTitle().toString());
    drainEvents();
    EXPECT_TRUE(service.enqueued().isEmpty());
}

// Types 2 and 4 end the notification once; a repeated report is unknown.
TEST_F(NotificationPlayerTest, FinishedOrErrorReportCompletesReplyOnce) {
    struct Case {
        const char* name;
        Type::Enum type;
        QString reason;
        QString expectedError; // empty: success
    };
    const std::vector<Case> cases = {
        {"finished", Type::finished, QString(), QString()},
        {"error", Type::error, QStringLiteral("decoder failed"),
         QStringLiteral("Notification playback error: decoder failed")},
        {"error without reason", Type::error, QString(), QStringLiteral("Notification playback error: ")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();
        ZuvoNotificationPlayerItem item;
        const CMReply<QVariant> reply = play(&item);

        EXPECT_TRUE(acknowledged(TestNotificationService::report(item, c.type, c.reason)));
        ASSERT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().message(), c.expectedError);
        EXPECT_EQ(reply.error().name(), c.expectedError.isEmpty() ? QString() : QStringLiteral("Error"));
        EXPECT_EQ(errorLines(), c.expectedError.isEmpty() ? QStringList() : QStringList{c.expectedError});

        log.clear();
        const CMError first = reply.error();
        EXPECT_TRUE(acknowledged(TestNotificationService::report(item, Type::finished)));
        EXPECT_EQ(errorLines(), QStringList{kUnknown + item.id()});
        EXPECT_EQ(reply.error(), first);
    }
    EXPECT_TRUE(service.cancelled().isEmpty());
}

// Queued, started, the player's own cancelled and unknown values change nothing.
TEST_F(NotificationPlayerTest, OtherReportsLeaveReplyPending) {
    const std::vector<int> types = {Type::queued, Type::started, Type::cancelled, 99, -1};
    for (const int type : types) {
        SCOPED_TRACE(type);
        ZuvoNotificationPlayerItem item;
        const CMReply<QVariant> reply = play(&item);

        EXPECT_TRUE(acknowledged(TestNotificationService::report(item, Type::Enum(type))));
        drainEvents();
        EXPECT_FALSE(reply.isFinished());

        // Still pending: the end of playback still reaches it.
        EXPECT_TRUE(acknowledged(TestNotificationService::report(item, Type::finished)));
        EXPECT_TRUE(reply.isFinished());
        EXPECT_FALSE(reply.hasError());
    }
    EXPECT_TRUE(errorLines().isEmpty()) << log.toString().toStdString();
}

// Reports that name no pending notification, malformed ones included, are
// acknowledged, logged (except a cancelled one) and leave others alone.
TEST_F(NotificationPlayerTest, ReportsForNoPendingNotificationAreAcknowledged) {
    ZuvoNotificationPlayerItem pendingItem;
    const CMReply<QVariant> pending = play(&pendingItem);

    auto payload = [](const QString& id, int type) {
        ZuvoNotificationPlayerResponse response;
        if (!id.isNull())
            response.setId(id);
        response.setType(Type::Enum(type));
        ZuvoValue value;
        value.setNotificationPlayerResponse(response);
        return value.__variant();
    };
    struct Case {
        const char* name;
        QVariant payload;
        QStringList expectedErrors;
    };
    const QString stranger = QStringLiteral("alarm-stranger");
    const std::vector<Case> cases = {
        {"unknown id finished", payload(stranger, Type::finished), {kUnknown + stranger}},
        {"unknown id error", payload(stranger, Type::error), {kUnknown + stranger}},
        {"unknown id started", payload(stranger, Type::started), {kUnknown + stranger}},
        {"unknown id cancelled", payload(stranger, Type::cancelled), {}},
        {"missing id", payload(QString(), Type::finished), {kUnknown}},
        {"not a hash", QVariant(QStringLiteral("finished")), {kUnknown}},
        {"list", QVariant(QVariantList{pendingItem.id(), 2}), {kUnknown}},
        {"no value", QVariant(), {kUnknown}},
        {"response not a hash",
         QVariantHash{{ZuvoValue::NotificationPlayerResponse(), pendingItem.id()}},
         {kUnknown}},
        {"id of wrong type",
         QVariantHash{{ZuvoValue::NotificationPlayerResponse(),
                       QVariantHash{{ZuvoNotificationPlayerResponse::Id(), 7},
                                    {ZuvoNotificationPlayerResponse::Type(), 2}}}},
         {kUnknown}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();
        EXPECT_TRUE(acknowledged(TestNotificationService::sendRaw(responsePath, c.payload)));
        EXPECT_EQ(errorLines(), c.expectedErrors);
    }
    EXPECT_FALSE(pending.isFinished());
}

TEST_F(NotificationPlayerTest, CancelSendsOneCancelAndLaterReportsChangeNothing) {
    ZuvoNotificationPlayerItem item;
    const CMReply<QVariant> reply = play(&item);

    reply.cancel();
    EXPECT_EQ(reply.error().name(), CMVoidReply::ErrorCancel());
    ASSERT_TRUE(waitUntil([&] { return !service.cancelled().isEmpty(); }));
    EXPECT_EQ(service.cancelled(), QStringList{item.id()});
    EXPECT_EQ(service.cancelRequests().first().role(), ZuvoRoles::Activate());

    // The player confirms the cancel: acknowledged, nothing else.
    EXPECT_TRUE(acknowledged(TestNotificationService::report(item, Type::cancelled)));
    EXPECT_TRUE(errorLines().isEmpty());
    // A late end of playback is no longer pending.
    EXPECT_TRUE(acknowledged(TestNotificationService::report(item, Type::finished)));
    EXPECT_EQ(errorLines(), QStringList{kUnknown + item.id()});
    EXPECT_EQ(reply.error().name(), CMVoidReply::ErrorCancel());

    drainEvents();
    EXPECT_EQ(service.cancelled().size(), 1);
}

TEST_F(NotificationPlayerTest, ReportIsHandledFromEventLoopNotInsideSend) {
    ZuvoNotificationPlayerItem item;
    const CMReply<QVariant> reply = play(&item);

    const CMReply<QVariant> ack = TestNotificationService::report(item, Type::finished);
    EXPECT_FALSE(ack.isFinished());
    EXPECT_FALSE(reply.isFinished());
    EXPECT_TRUE(acknowledged(ack));
    EXPECT_TRUE(reply.isFinished());
}

TEST_F(NotificationPlayerTest, InterfacesInOneTreeSeeOnlyTheirOwnReports) {
    const CMPath doorPath("/door/notificationResponse");
    NotificationPlayerInterface door(nullptr, root.nodes(), doorPath, QStringLiteral("door"));
    ZuvoNotificationPlayerItem alarmItem;
    const CMReply<QVariant> alarmReply = play(&alarmItem);
    const CMReply<QVariant> doorReply =
        door.playNotification(QStringLiteral("/sounds/chime.wav"), ZuvoNotificationItemPriority::low);
    ASSERT_TRUE(waitUntil([&] { return service.enqueued().size() == 2; }));
    const ZuvoNotificationPlayerItem doorItem = service.enqueued().last();
    EXPECT_TRUE(doorItem.id().startsWith(QStringLiteral("door-")));
    EXPECT_EQ(doorItem.playbackResponsePath(), doorPath);

    // The alarm's id sent to the door's node is unknown there.
    EXPECT_TRUE(acknowledged(TestNotificationService::report(doorPath, alarmItem.id(), Type::finished)));
    EXPECT_EQ(errorLines(), QStringList{kUnknown + alarmItem.id()});
    EXPECT_FALSE(alarmReply.isFinished());

    EXPECT_TRUE(acknowledged(TestNotificationService::report(doorItem, Type::error, QStringLiteral("busy"))));
    EXPECT_EQ(doorReply.error().message(), QStringLiteral("Notification playback error: busy"));
    EXPECT_FALSE(alarmReply.isFinished());

    EXPECT_TRUE(acknowledged(TestNotificationService::report(alarmItem, Type::finished)));
    EXPECT_TRUE(alarmReply.isFinished());
    EXPECT_FALSE(alarmReply.hasError());
}

// The answer to the enqueue invocation is not examined: with no player in the
// tree the enqueue fails, and the notification still waits for its report.
TEST(NotificationPlayer, FailedEnqueueLeavesNotificationPending) {
    CMRootScope root;
    const CMPath path("/chime/response");
    NotificationPlayerInterface player(nullptr, root.nodes(), path, QStringLiteral("chime"));
    const ZuvoNotificationPlayerItem item = player.makeEmptyNotification();
    const CMReply<QVariant> reply = player.playNotification(item);

    drainEvents();
    EXPECT_FALSE(reply.isFinished());
    EXPECT_TRUE(acknowledged(TestNotificationService::report(item, Type::finished)));
    EXPECT_TRUE(reply.isFinished());
    EXPECT_FALSE(reply.hasError());
}

// Once the interface is gone its node has left the tree and nothing of it runs.
TEST(NotificationPlayer, DestroyedInterfaceLeavesTreeAndSendsNoCancel) {
    CMRootScope root;
    TestNotificationService service(root.nodes());
    const CMPath path("/chime/response");
    auto player =
        std::make_unique<NotificationPlayerInterface>(nullptr, root.nodes(), path, QStringLiteral("chime"));
    const CMReply<QVariant> reply =
        player->playNotification(QStringLiteral("/sounds/chime.wav"), ZuvoNotificationItemPriority::normal);
    ASSERT_TRUE(waitUntil([&] { return service.enqueued().size() == 1; }));

    player.reset();
    const CMReply<QVariant> ack = TestNotificationService::report(service.enqueued().first(), Type::finished);
    ASSERT_TRUE(waitUntil([&] { return ack.isFinished(); }));
    EXPECT_EQ(ack.error().name(), QStringLiteral("NodeNotFound"));
    reply.cancel();
    drainEvents();
    EXPECT_TRUE(service.cancelled().isEmpty());
}
