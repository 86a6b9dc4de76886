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

// Shortens the fetch time-out for the life of the guard.
class FetchTimeout {
public:
    explicit FetchTimeout(int ms) { PlayListData::setFetchTimeoutForTesting(ms); }
    ~FetchTimeout() { PlayListData::setFetchTimeoutForTesting(0); }
};

} // namespace

TEST(PlayListData, PathToUri) {
    struct Case {
        const char* url;
        const char* path;
        const char* uri;
    };
    const Case cases[] = {
        {"http://h/p/list.m3u", "mms://x/y", "mms://x/y"},
        {"http://h/p/list.m3u", "rtsp://x", "rtsp://x"},
        {"http://h/p/list.m3u", "HTTP_2://x", "HTTP_2://x"},
        {"http://h/p/list.m3u", "a b.mp3", "http://h/p/a b.mp3"},
        {"http://h/dir/", "/a.mp3", "http://h/dir//a.mp3"},
        {"http://h/p/list.m3u", "../a.mp3", "http://h/p/../a.mp3"},
        {"http://h/p/list.m3u", "C:/a.mp3", "http://h/p/C:/a.mp3"},
        {"http://h/p/list.m3u", "x-y://z", "http://h/p/x-y://z"},
        {"http://h/p/list.m3u", " http://x", "http://h/p/ http://x"},
        {"http://h/p/list.m3u", "", ""},
        {"list.m3u", "a.mp3", "a.mp3"},
        {"", "a.mp3", "a.mp3"},
    };
    for (const Case& c : cases) {
        const PlayListData data(QString::fromUtf8(c.url), CMSetDataRequest());
        EXPECT_EQ(data.pathToURI(QString::fromUtf8(c.path)), QString::fromUtf8(c.uri))
            << c.url << " + " << c.path;
    }
}

TEST(PlayListData, RefusesWhatCannotBeFetched) {
    LogCapture capture;
    PlayListData empty{QString(), CMSetDataRequest()};
    EXPECT_FALSE(empty.fetch());
    EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("Can not fetch empty url!")));
    EXPECT_FALSE(empty.cancelFetch());
    EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL,
                                 QStringLiteral("Error canceling HttpClient: fetcherId is NULL!")));

    HttpTestServer server;
    server.setNeverAnswer(QStringLiteral("/slow"));
    PlayListData data(server.url(QStringLiteral("/slow")), CMSetDataRequest());
    EXPECT_TRUE(data.fetch());
    EXPECT_FALSE(data.fetch());
    EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("Fetch already in progress")));
}

TEST(PlayListData, KeepsBodyAndContentTypeOfAnyAnswer) {
    HttpTestServer server;
    server.setResponse(QStringLiteral("/list.m3u"), 200, "#EXTM3U\na.mp3\n",
                       {{"Content-Type", "audio/x-mpegurl"}});
    server.setResponse(QStringLiteral("/missing"), 404, "not here", {{"Content-Type", "text/plain"}});
    server.setResponse(QStringLiteral("/bare"), 200, "x");
    struct Case {
        QString url;
        QByteArray body;
        QString contentType;
    };
    const Case cases[] = {
        {server.url(QStringLiteral("/list.m3u")), "#EXTM3U\na.mp3\n", QStringLiteral("audio/x-mpegurl")},
        {server.url(QStringLiteral("/missing")), "not here", QStringLiteral("text/plain")},
        {server.url(QStringLiteral("/bare")), "x", QString()},
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
        EXPECT_EQ(data.data(), c.body);
        EXPECT_EQ(data.contentType(), c.contentType);
    }
}

TEST(PlayListData, CancelledFetchNeverCompletes) {
    HttpTestServer server;
    server.setNeverAnswer(QStringLiteral("/slow"));
    PlayListData data(server.url(QStringLiteral("/slow")), CMSetDataRequest());
    int done = 0;
    QObject::connect(&data, &PlayListData::fetchDone, [&done] { ++done; });
    ASSERT_TRUE(data.fetch());
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/slow")) == 1; }, WaitMs));

    EXPECT_TRUE(data.cancelFetch());
    EXPECT_FALSE(data.isFetching());
    EXPECT_FALSE(data.cancelFetch());
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    zuvotest::drainEvents();
    EXPECT_EQ(done, 0);

    // Idle again: a new fetch may start.
    EXPECT_TRUE(data.fetch());
}

TEST(PlayListData, BodyIsCutAtTheReadLimit) {
    HttpTestServer server;
    server.setEndless(QStringLiteral("/endless"));
    PlayListData data(server.url(QStringLiteral("/endless")), CMSetDataRequest());
    int done = 0;
    QObject::connect(&data, &PlayListData::fetchDone, [&done] { ++done; });
    ASSERT_TRUE(data.fetch());
    ASSERT_TRUE(waitUntil([&] { return done > 0; }, WaitMs));
    EXPECT_EQ(data.data().size(), 5 * 1024 * 1024);
}

TEST(PlayListData, SilentServerEndsAtTheTimeout) {
    const FetchTimeout shortened(300);
    HttpTestServer server;
    server.setNeverAnswer(QStringLiteral("/silent"));
    PlayListData data(server.url(QStringLiteral("/silent")), CMSetDataRequest());
    int done = 0;
    QObject::connect(&data, &PlayListData::fetchDone, [&done] { ++done; });
    ASSERT_TRUE(data.fetch());
    ASSERT_TRUE(waitUntil([&] { return done > 0; }, WaitMs));
    EXPECT_TRUE(data.data().isEmpty());
}

TEST(PlayListData, DestructionEndsARunningTransfer) {
    HttpTestServer server;
    server.setNeverAnswer(QStringLiteral("/slow"));
    auto data = std::make_unique<PlayListData>(server.url(QStringLiteral("/slow")), CMSetDataRequest());
    ASSERT_TRUE(data->fetch());
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/slow")) == 1; }, WaitMs));
    data.reset();
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
}
