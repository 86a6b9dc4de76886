#include "httpclient.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/logcapture.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>
#include <set>

using zuvotest::HttpTestRoute;
using zuvotest::HttpTestServer;
using zuvotest::waitUntil;
using Status = HttpClientStatus;

namespace {

constexpr int WaitMs = 15000;

struct Outcome {
    int calls = 0;
    HttpClientResult result;
};

class HttpClientTest : public ::testing::Test {
protected:
    // Starts a fetch whose callback records into the returned outcome and
    // fails the test if it runs inside get().
    std::shared_ptr<Outcome> start(const QString& url, HttpClient::RequestId* id = nullptr,
                                   const HttpClientOptions& opts = {}) {
        auto outcome = std::make_shared<Outcome>();
        m_insideGet = true;
        const HttpClient::RequestId started =
            client->get(ZuvoUrl(url), opts, [this, outcome](const auto& result) {
                EXPECT_FALSE(m_insideGet) << "callback called inside get()";
                ++outcome->calls;
                outcome->result = result;
            });
        m_insideGet = false;
        EXPECT_NE(started, nullptr);
        if (id)
            *id = started;
        return outcome;
    }

    HttpClientResult fetch(const QString& url, const HttpClientOptions& opts = {}) {
        const auto outcome = start(url, nullptr, opts);
        EXPECT_TRUE(waitUntil([&] { return outcome->calls > 0; }, WaitMs)) << url.toStdString();
        zuvotest::drainEvents();
        EXPECT_EQ(outcome->calls, 1) << url.toStdString();
        return outcome->result;
    }

    QString url(const char* path) const { return server.url(QLatin1String(path)); }

    HttpTestServer server;
    std::unique_ptr<HttpClient> client = std::make_unique<HttpClient>(nullptr);

private:
    bool m_insideGet = false;
};

TEST_F(HttpClientTest, AnswersDeliverCodeBodyAndHeadersAndRedirectsAreFollowedWithinTheLimit) {
    HttpClientOptions sending; // the second field replaces the first (any case); bad ones are refused
    const std::vector<bool> accepted = {
        sending.setRequestHeader("X-Player", "zuvo"), sending.setRequestHeader("x-player", "zuvo 2"),
        sending.setRequestHeader("Bad Name", "x"), sending.setRequestHeader("", "x"),
        sending.setRequestHeader("X-Split", "a\r\nInjected: 1")};
    EXPECT_EQ(accepted, std::vector<bool>({true, true, false, false, false}));
    EXPECT_EQ(sending.requestHeaders().size(), 1);
    LogCapture log; // answers, even error statuses, are no errors of the client

    const struct {
        const char* path;
        int code;
        QByteArray body;
        Status::Enum status;
    } cases[] = {{"/ok", 200, "#EXTM3U\nhttp://h/a.mp3\n", Status::ok},
                 {"/empty", 204, "", Status::ok},
                 {"/missing", 404, "no such playlist", Status::httpError}};
    for (const HttpClient::HttpVersion version : {HttpClient::Http1_1, HttpClient::Http2}) {
        client = std::make_unique<HttpClient>(nullptr, version); // HTTP/2 falls back to 1.1
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.path) + (version == HttpClient::Http2 ? " h2" : ""));
            server.setResponse(QLatin1String(c.path), c.code, c.body, {{"X-Custom", "Value 1"}});
            const HttpClientResult r = fetch(url(c.path), sending);
            const QByteArray sent = server.lastRequestHead(c.path).toLower();
            EXPECT_EQ(std::make_tuple(r.status(), r.httpCode(), r.body(), r.errorString().isEmpty(),
                                      r.headers().value(QStringLiteral("X-CUSTOM")),
                                      sent.contains("\nx-player: zuvo 2\r") && !sent.contains("injected")),
                      std::make_tuple(c.status, c.code, c.body, c.status == Status::ok,
                                      QStringLiteral("Value 1"), true));
            EXPECT_TRUE(r.url() == ZuvoUrl(url(c.path)) && r.finalUrl().toQUrl() == QUrl(url(c.path)));
        }
    }

    server.setRaw(QStringLiteral("/fields"),
                  "HTTP/1.1 200 OK\r\nX-A: 1\r\nx-a: 2\r\nX-B: b\r\n  more\r\nContent-Length: 2\r\n\r\nok");
    const auto joined = fetch(url("/fields")).headers();
    EXPECT_EQ(std::make_tuple(joined.names().join(' '), joined.value(QStringLiteral("x-a")),
                              joined.value(QStringLiteral("x-b")), joined.contains(QStringLiteral("x-c"))),
              std::make_tuple(QStringLiteral("X-A X-B Content-Length"), QStringLiteral("1, 2"),
                              QStringLiteral("b more"), false));

    // Redirects by absolute, absolute-path and relative Locations; the first
    // hop's body is above the read limit and must not count against the final body.
    server.setResponse(QStringLiteral("/r1"), 301, QByteArray(4000, 'x'),
                       {{"Location", url("/r2").toUtf8()}});
    server.setRedirect(QStringLiteral("/r2"), QStringLiteral("/dir/r3"), 307);
    server.setRedirect(QStringLiteral("/dir/r3"), QStringLiteral("final"));
    server.setResponse(QStringLiteral("/dir/final"), 200, HttpTestServer::pattern(1000));
    for (const int maxRedirects : {3, 2, 0}) {
        SCOPED_TRACE(maxRedirects);
        HttpClientOptions limited;
        limited.setReadSizeLimit(1000);
        limited.setMaxRedirects(maxRedirects);
        const HttpClientResult result = fetch(url("/r1"), limited);
        const bool followed = maxRedirects == 3;
        EXPECT_EQ(result.status(), followed ? Status::ok : Status::tooManyRedirects);
        EXPECT_TRUE(!followed || (result.body() == HttpTestServer::pattern(1000) &&
                                  result.finalUrl().toQUrl() == QUrl(url("/dir/final"))));
    }

    client = std::make_unique<HttpClient>(nullptr, HttpClient::Http1_1, false);
    const int followed = server.requestCount(QStringLiteral("/dir/r3"));
    const HttpClientResult unfollowed = fetch(url("/r2"));
    EXPECT_EQ(std::make_tuple(unfollowed.status(), unfollowed.httpCode(),
                              unfollowed.headers().value(QStringLiteral("location")).toStdString(),
                              server.requestCount(QStringLiteral("/dir/r3"))),
              std::make_tuple(Status::httpError, 307, std::string("/dir/r3"), followed));
    const QRegularExpression errorLine(QStringLiteral("^ERROR "), QRegularExpression::MultilineOption);
    EXPECT_FALSE(log.toString().contains(errorLine)) << log.toString().toStdString();
}

// Refusals, failures, local files, header floods, bodies cut at the read limit (decoded too) or at the
// total time limit: each fetch ends later, with its status, well within a hang guard.
TEST_F(HttpClientTest, EachFetchEndsWithItsStatusCodeAndBodyWithinItsLimits) {
    const QByteArray local = "local playlist content";
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("list.m3u")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(local) == local.size() && file.flush());
    const QString fileUrl = QUrl::fromLocalFile(file.fileName()).toString();
    const QString noFile = QUrl::fromLocalFile(dir.filePath(QStringLiteral("missing"))).toString();
    const QString refused = QStringLiteral("http://127.0.0.1:%1/x").arg(HttpTestServer::unusedPort());
    server.setRedirect(QStringLiteral("/toFile"), fileUrl); // never followed, even with files allowed
    server.setRaw(QStringLiteral("/hangup"), {});
    server.setRaw(QStringLiteral("/notHttp"), "garbage\r\n\r\n");
    server.setRaw(QStringLiteral("/badField"), "HTTP/1.1 200 OK\r\nno colon\r\nContent-Length: 2\r\n\r\nxx");
    // 2,000 fields of about 45 bytes pass the default 64 KiB (a 100,000 flood: tst_hostilepeers).
    server.setHeaderFlood(QStringLiteral("/flood"), 2000);

    constexpr int limit = 1000;
    const QByteArray plain = HttpTestServer::pattern(3 * 1024 * 1024); // compresses far below the limit
    server.setResponse(QStringLiteral("/big"), 200, plain.left(5000));
    server.setResponse(QStringLiteral("/exact"), 200, plain.left(limit));
    server.setResponse(QStringLiteral("/large"), 200, plain);
    // Endless bodies: a client that reads on past the limit runs into the time limit.
    server.setEndless(QStringLiteral("/chunked"));
    HttpTestRoute liar(HttpTestRoute::Behaviour::Answer, 200, plain.left(limit)); // then stays silent
    liar.declaredLength = 100000;
    server.setRoute(QStringLiteral("/announced"), liar);
    server.setDeflate(QStringLiteral("/deflateBig"), plain.left(200000));
    server.setDeflate(QStringLiteral("/deflateExact"), plain.left(limit));
    server.setResponse(QStringLiteral("/corrupt"), 200, "not deflate data",
                       {{"Content-Encoding", "deflate"}});
    server.setNeverAnswer(QStringLiteral("/silent"));
    // Far slower than the time limit in total, never idle long enough for an
    // inactivity timeout.
    server.setTrickle(QStringLiteral("/trickle"), plain.left(2000), 10, 20);
    server.setTrickle(QStringLiteral("/short"), plain.left(10), 2, 10);

    using S = Status;
    const struct {
        QString url;
        Status::Enum status;
        int code;
        QByteArray body;
        qint64 limit = 1000;   // 0: no limit of our own
        int timeoutMs = 10000; // 0: none
        bool allowFiles = true;
        bool partial = false;   // a shorter start of body
        qint64 headerLimit = 0; // 0: the default
    } cases[] = {
        {QString(), S::invalidUrl, 0, {}},
        {QStringLiteral("http://[::1/x"), S::invalidUrl, 0, {}},
        {QStringLiteral("http:///no-host"), S::invalidUrl, 0, {}},
        {QStringLiteral("ftp://127.0.0.1/list.m3u"), S::unsupportedScheme, 0, {}},
        {refused, S::connectionRefused, 0, {}},
        {url("/hangup"), S::networkError, 0, {}},
        {url("/notHttp"), S::protocolError, 0, {}},
        {url("/badField"), S::protocolError, 200, {}},
        {url("/toFile"), S::unsupportedScheme, 302, {}},
        {fileUrl, S::unsupportedScheme, 0, {}, limit, 10000, false},
        {fileUrl, S::ok, 0, local},
        {fileUrl, S::sizeLimitExceeded, 0, local.left(5), 5},
        {noFile, S::networkError, 0, {}},
        {url("/flood"), S::headerSizeExceeded, 200, {}},
        {url("/flood"), S::ok, 200, "flood", limit, 10000, true, false, 1024 * 1024},
        {url("/big"), S::sizeLimitExceeded, 200, plain.left(limit)},
        {url("/exact"), S::ok, 200, plain.left(limit)},
        {url("/large"), S::ok, 200, plain, 0},
        {url("/chunked"), S::sizeLimitExceeded, 200, plain.left(limit)},
        {url("/announced"), S::sizeLimitExceeded, 200, plain.left(limit)}, // by the limit, not by time
        {url("/deflateBig"), S::sizeLimitExceeded, 200, plain.left(limit)},
        {url("/deflateExact"), S::ok, 200, plain.left(limit)},
        {url("/corrupt"), S::networkError, 200, {}},
        {url("/silent"), S::timeout, 0, {}, limit, 300},
        {url("/trickle"), S::timeout, 200, plain.left(2000), limit * 10, 300, true, true},
        {url("/short"), S::ok, 200, plain.left(10), limit, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url.toStdString() + (c.allowFiles ? "" : " (files refused)"));
        HttpClientOptions limited;
        limited.setReadSizeLimit(c.limit);
        limited.setAllowLocalFiles(c.allowFiles);
        limited.setTimeoutMs(c.timeoutMs);
        if (c.headerLimit > 0)
            limited.setHeaderSizeLimit(c.headerLimit);
        QElapsedTimer clock;
        clock.start();
        const HttpClientResult result = fetch(c.url, limited);
        EXPECT_LT(clock.elapsed(), zuvotest::scaledMs(8000)) << "a hang guard, not a performance figure";
        EXPECT_EQ(std::make_tuple(result.status(), result.httpCode(), result.errorString().isEmpty(),
                                  result.url().toString()),
                  std::make_tuple(c.status, c.code, c.status == Status::ok, c.url));
        EXPECT_TRUE(c.partial ? result.body().size() < c.body.size() && c.body.startsWith(result.body())
                              : result.body() == c.body);
        // A transfer ended early closes its connection (an endless body would go on).
        const bool early =
            c.status == S::sizeLimitExceeded || c.status == S::timeout || c.status == S::headerSizeExceeded;
        EXPECT_TRUE(!early || !c.url.startsWith(QLatin1String("http:")) ||
                    waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    }
}

TEST_F(HttpClientTest, CancelAndDestructionCallNoCallbackAndCallbacksMayReenterOrDelete) {
    server.setNeverAnswer(QStringLiteral("/silent"));
    server.setResponse(QStringLiteral("/quick"), 200, "quick");
    server.setResponse(QStringLiteral("/second"), 200, "second");
    HttpClient::RequestId refused = nullptr, running = nullptr, finished = nullptr;
    // A refused URL is pending until its completion is delivered.
    std::vector<std::shared_ptr<Outcome>> never = {start(QStringLiteral("gopher://x"), &refused)};
    EXPECT_TRUE(client->cancel(refused));
    never.push_back(start(url("/silent"), &running));
    const auto finishedOutcome = start(url("/quick"), &finished);
    ASSERT_TRUE(waitUntil(
        [&] { return finishedOutcome->calls == 1 && server.requestCount(QStringLiteral("/silent")) == 1; },
        WaitMs));
    EXPECT_EQ(std::set<HttpClient::RequestId>({refused, running, finished}).size(), 3u);
    const std::vector<bool> cancelled = {client->cancel(running), client->cancel(running),
                                         client->cancel(nullptr), client->cancel(finished)};
    EXPECT_EQ(cancelled, std::vector<bool>({true, false, false, false}));
    EXPECT_EQ(client->pendingCount(), 0);
    // The silent transfer is closed; /quick's connection is kept alive.
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 1; }, WaitMs));

    // The client goes on working; a callback may start a follow-up on it.
    QByteArray bodies;
    client->get(ZuvoUrl(url("/quick")), {}, [&](const HttpClientResult& first) {
        client->get(ZuvoUrl(url("/second")), {},
                    [&, first](const HttpClientResult& result) { bodies = first.body() + result.body(); });
    });
    ASSERT_TRUE(waitUntil([&] { return !bodies.isEmpty(); }, WaitMs));
    EXPECT_EQ(bodies, QByteArray("quicksecond"));

    // A callback that deletes the client while others still run.
    never.push_back(start(url("/silent")));
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/silent")) == 2; }, WaitMs));
    client->get(ZuvoUrl(url("/quick")), {}, [&](const HttpClientResult&) { client.reset(); });
    ASSERT_TRUE(waitUntil([&] { return !client; }, WaitMs));
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));

    // Destroyed with a completion queued but not yet delivered.
    client = std::make_unique<HttpClient>(nullptr);
    never.push_back(start(QStringLiteral("::not a url::")));
    client.reset();
    zuvotest::drainEvents();
    for (const auto& outcome : never)
        EXPECT_EQ(outcome->calls, 0);
}

} // namespace
