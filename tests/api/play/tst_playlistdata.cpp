#include <gtest/gtest.h>
#include <memory>

#include "playlistdata.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/logcapture.h"

using zuvotest::HttpTestServer;
using zuvotest::waitUntil;

namespace {
constexpr int WaitMs = 15000;
} // namespace

// Whatever the answer (error status, none; read limit and time-out in
// tst_hostilepeers), fetchDone() comes once with what arrived.
TEST(PlayListData, KeepsBodyAndContentTypeOfAnyAnswer) {
    HttpTestServer server;
    server.setResponse(QStringLiteral("/list.m3u"), 200, "#EXTM3U\n", {{"Content-Type", "audio/x-mpegurl"}});
    server.setResponse(QStringLiteral("/missing"), 404, "not here", {{"Content-Type", "text/plain"}});
    struct Case {
        QString url;
        QByteArray body;
        QString contentType;
    };
    const Case cases[] = {
        {server.url(QStringLiteral("/list.m3u")), "#EXTM3U\n", QStringLiteral("audio/x-mpegurl")},
        {server.url(QStringLiteral("/missing")), "not here", QStringLiteral("text/plain")},
        {QStringLiteral("http://127.0.0.1:%1/refused").arg(HttpTestServer::unusedPort()), QByteArray(),
         QString()},
        {QStringLiteral("ftp://127.0.0.1/x"), QByteArray(), QString()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url.toStdString());
        PlayListData data(c.url, CMSetDataRequest());
        int done = 0;
        QObject::connect(&data, &PlayListData::fetchDone, [&done] { ++done; });
        ASSERT_TRUE(data.fetch());
        EXPECT_TRUE(data.isFetching());
        ASSERT_TRUE(waitUntil([&] { return done > 0; }, WaitMs));
        zuvotest::drainEvents();
        EXPECT_EQ(done, 1);
        EXPECT_FALSE(data.isFetching());
        EXPECT_EQ(data.data().toStdString(), c.body.toStdString());
        EXPECT_EQ(data.contentType(), c.contentType);
    }
}

TEST(PlayListData, RefusalsCancelAndDestruction) {
    LogCapture capture;
    EXPECT_FALSE(PlayListData(QString(), CMSetDataRequest()).fetch());
    HttpTestServer server;
    server.setNeverAnswer(QStringLiteral("/slow"));
    auto data = std::make_unique<PlayListData>(server.url(QStringLiteral("/slow")), CMSetDataRequest());
    int done = 0;
    QObject::connect(data.get(), &PlayListData::fetchDone, [&done] { ++done; });
    ASSERT_TRUE(data->fetch());
    EXPECT_FALSE(data->fetch());
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/slow")) == 1; }, WaitMs));
    EXPECT_TRUE(data->cancelFetch());
    EXPECT_FALSE(data->isFetching());
    EXPECT_FALSE(data->cancelFetch());
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    zuvotest::drainEvents();
    EXPECT_EQ(done, 0);
    for (const char* line : {"Can not fetch empty url!", "Fetch already in progress",
                             "Error canceling HttpClient: fetcherId is NULL!"})
        EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QString::fromLatin1(line))) << line;

    // Idle again: a new fetch starts; destroying the job ends it.
    ASSERT_TRUE(data->fetch());
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/slow")) == 2; }, WaitMs));
    data.reset();
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
}
