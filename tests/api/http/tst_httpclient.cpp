#include "httpclient.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"

#include <QElapsedTimer>
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

HttpClientOptions options(qint64 readLimit = HttpClientOptions::DefaultReadSizeLimit,
                          bool allowFiles = false) {
    HttpClientOptions options;
    options.setReadSizeLimit(readLimit);
    options.setAllowLocalFiles(allowFiles);
    return options;
}

class HttpClientTest : public ::testing::Test {
protected:
    // Starts a fetch whose callback records into the returned outcome and
    // fails the test if it runs inside get().
    std::shared_ptr<Outcome> start(HttpClient& on, const QString& url, const HttpClientOptions& opts = {},
                                   HttpClient::RequestId* id = nullptr) {
        auto outcome = std::make_shared<Outcome>();
        m_insideGet = true;
        const HttpClient::RequestId started = on.get(ZuvoUrl(url), opts, [this, outcome](const auto& result) {
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
        const auto outcome = start(*client, url, opts);
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

TEST_F(HttpClientTest, AnswersDeliverCodeBodyAndHeadersOverHttp11AndHttp2) {
    HttpClientOptions sending;
    EXPECT_TRUE(sending.setRequestHeader("X-Player", "zuvo"));
    EXPECT_TRUE(sending.setRequestHeader("x-player", "zuvo 2")); // replaces, any case
    for (const QByteArray bad : {"Bad Name", ""})
        EXPECT_FALSE(sending.setRequestHeader(bad, "x"));
    EXPECT_FALSE(sending.setRequestHeader("X-Split", "a\r\nInjected: 1"));
    EXPECT_EQ(sending.requestHeaders().size(), 1);

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
            const HttpClientResult result = fetch(url(c.path), sending);
            EXPECT_EQ(result.status(), c.status);
            EXPECT_EQ(result.httpCode(), c.code);
            EXPECT_EQ(result.body(), c.body);
            EXPECT_EQ(result.url(), ZuvoUrl(url(c.path)));
            EXPECT_EQ(result.finalUrl().toQUrl(), QUrl(url(c.path)));
            EXPECT_EQ(result.headers().value(QStringLiteral("X-CUSTOM")), QStringLiteral("Value 1"));
            EXPECT_EQ(result.errorString().isEmpty(), c.status == Status::ok);
            EXPECT_EQ(server.lastRequestHeader(QLatin1String(c.path), "X-Player"), QByteArray("zuvo 2"));
            EXPECT_TRUE(server.lastRequestHeader(QLatin1String(c.path), "Injected").isEmpty());
        }
    }

    server.setRaw(QStringLiteral("/fields"),
                  "HTTP/1.1 200 OK\r\nX-A: 1\r\nx-a: 2\r\nX-B: b\r\n  more\r\nContent-Length: 2\r\n\r\nok");
    const HttpClientResult joined = fetch(url("/fields"));
    EXPECT_EQ(joined.headers().names(),
              QStringList({QStringLiteral("X-A"), QStringLiteral("X-B"), QStringLiteral("Content-Length")}));
    EXPECT_EQ(joined.headers().value(QStringLiteral("x-a")), QStringLiteral("1, 2"));
    EXPECT_EQ(joined.headers().value(QStringLiteral("x-b")), QStringLiteral("b more"));
}

TEST_F(HttpClientTest, ResponseHeaderIsCappedAtItsLimit) {
    // About 45 bytes a field: 2,000 fields pass the default 64 KiB, 100,000
    // (4.5 MB) pass it seventy-fold and must end at the cap, not after all.
    const struct {
        int fields;
        qint64 limit; // 0: the default
        Status::Enum status;
    } cases[] = {{200, 0, Status::ok},
                 {2000, 0, Status::headerSizeExceeded},
                 {2000, 1024 * 1024, Status::ok},
                 {100000, 0, Status::headerSizeExceeded}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.fields) + " fields, limit " + std::to_string(c.limit));
        const QString path = QStringLiteral("/flood%1").arg(c.fields);
        server.setHeaderFlood(path, c.fields);
        HttpClientOptions capped;
        if (c.limit > 0)
            capped.setHeaderSizeLimit(c.limit);
        QElapsedTimer clock;
        clock.start();
        const HttpClientResult result = fetch(server.url(path), capped);
        EXPECT_LT(clock.elapsed(), 10000) << "a hang guard, not a performance figure";
        EXPECT_EQ(result.status(), c.status);
        EXPECT_EQ(result.body(), c.status == Status::ok ? QByteArray("flood") : QByteArray());
        EXPECT_EQ(result.headers().contains(QStringLiteral("x-flood-%1").arg(c.fields - 1)),
                  c.status == Status::ok);
    }
}

TEST_F(HttpClientTest, RedirectsFollowedWithinTheLimit) {
    // Absolute, absolute-path and relative Locations; the first hop's body is
    // above the read limit and must not count against the final body.
    HttpTestRoute first;
    first.status = 301;
    first.headers = {{"Location", url("/r2").toUtf8()}};
    first.body = QByteArray(4000, 'x');
    server.setRoute(QStringLiteral("/r1"), first);
    server.setRedirect(QStringLiteral("/r2"), QStringLiteral("/dir/r3"), 307);
    server.setRedirect(QStringLiteral("/dir/r3"), QStringLiteral("final"));
    server.setResponse(QStringLiteral("/dir/final"), 200, HttpTestServer::pattern(1000));

    for (const int maxRedirects : {3, 2, 0}) {
        SCOPED_TRACE(maxRedirects);
        HttpClientOptions limited = options(1000);
        limited.setMaxRedirects(maxRedirects);
        const HttpClientResult result = fetch(url("/r1"), limited);
        EXPECT_EQ(result.url().toString(), url("/r1"));
        if (maxRedirects < 3) {
            EXPECT_EQ(result.status(), Status::tooManyRedirects);
            continue;
        }
        EXPECT_EQ(result.status(), Status::ok);
        EXPECT_EQ(result.body(), HttpTestServer::pattern(1000));
        EXPECT_EQ(result.finalUrl().toQUrl(), QUrl(url("/dir/final")));
    }

    client = std::make_unique<HttpClient>(nullptr, HttpClient::Http1_1, false);
    const int followed = server.requestCount(QStringLiteral("/dir/r3"));
    const HttpClientResult unfollowed = fetch(url("/r2"));
    EXPECT_EQ(unfollowed.status(), Status::httpError);
    EXPECT_EQ(unfollowed.httpCode(), 307);
    EXPECT_EQ(unfollowed.headers().value(QStringLiteral("location")), QStringLiteral("/dir/r3"));
    EXPECT_EQ(server.requestCount(QStringLiteral("/dir/r3")), followed);
}

// Refusals, failures, local files, and bodies cut at the read limit (decoded
// too) or at the total time limit: each fetch ends later, with its status.
TEST_F(HttpClientTest, EachFetchEndsWithItsStatusCodeAndBodyWithinItsLimits) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QFile file(dir.filePath(QStringLiteral("list.m3u")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("local playlist content");
    file.close();
    const QString fileUrl = QUrl::fromLocalFile(file.fileName()).toString();
    const QString noFile = QUrl::fromLocalFile(dir.filePath(QStringLiteral("missing"))).toString();
    const QString refused = QStringLiteral("http://127.0.0.1:%1/x").arg(HttpTestServer::unusedPort());
    server.setRedirect(QStringLiteral("/toFile"), fileUrl); // never followed, even with files allowed
    server.setCloseWithoutAnswer(QStringLiteral("/hangup"));
    server.setRaw(QStringLiteral("/notHttp"), "garbage\r\n\r\n");
    server.setRaw(QStringLiteral("/badField"), "HTTP/1.1 200 OK\r\nno colon\r\nContent-Length: 2\r\n\r\nxx");

    constexpr int limit = 1000;
    const QByteArray plain = HttpTestServer::pattern(3 * 1024 * 1024); // compresses far below the limit
    server.setResponse(QStringLiteral("/big"), 200, plain.left(5000));
    server.setResponse(QStringLiteral("/exact"), 200, plain.left(limit));
    server.setResponse(QStringLiteral("/missingBig"), 404, plain.left(5000));
    server.setResponse(QStringLiteral("/large"), 200, plain);
    server.setEndless(QStringLiteral("/chunked"), HttpTestRoute::Framing::Chunked);
    server.setEndless(QStringLiteral("/unframed"), HttpTestRoute::Framing::CloseDelimited);
    HttpTestRoute liar; // announces far more than it sends, then stays silent
    liar.body = plain.left(limit);
    liar.declaredLength = 100000;
    server.setRoute(QStringLiteral("/announced"), liar);
    server.setDeflate(QStringLiteral("/deflateBig"), plain.left(200000));
    server.setDeflate(QStringLiteral("/deflateExact"), plain.left(limit));
    server.setResponse(QStringLiteral("/deflateMissing"), 404, HttpTestServer::deflate(plain.left(300)),
                       {{"Content-Encoding", "deflate"}});
    server.setResponse(QStringLiteral("/corrupt"), 200, "not deflate data",
                       {{"Content-Encoding", "deflate"}});
    server.setNeverAnswer(QStringLiteral("/silent"));
    // Far slower than the time limit in total, never idle long enough for an
    // inactivity timeout.
    server.setTrickle(QStringLiteral("/trickle"), plain.left(2000), 10, 20);
    server.setTrickle(QStringLiteral("/short"), plain.left(10), 2, 10);

    using S = Status;
    const QByteArray local = "local playlist content";
    const struct {
        QString url;
        bool allowFiles;
        qint64 limit;  // 0: no limit of our own
        int timeoutMs; // 0: none
        Status::Enum status;
        int code;
        QByteArray body;
        bool partial; // a shorter start of body
    } cases[] = {
        {QString(), true, limit, 10000, S::invalidUrl, 0, {}, false},
        {QStringLiteral("http://[::1/x"), true, limit, 10000, S::invalidUrl, 0, {}, false},
        {QStringLiteral("http:///no-host"), true, limit, 10000, S::invalidUrl, 0, {}, false},
        {QStringLiteral("ftp://127.0.0.1/list.m3u"), true, limit, 10000, S::unsupportedScheme, 0, {}, false},
        {refused, true, limit, 10000, S::connectionRefused, 0, {}, false},
        {url("/hangup"), true, limit, 10000, S::networkError, 0, {}, false},
        {url("/notHttp"), true, limit, 10000, S::protocolError, 0, {}, false},
        {url("/badField"), true, limit, 10000, S::protocolError, 200, {}, false},
        {url("/toFile"), true, limit, 10000, S::unsupportedScheme, 302, {}, false},
        {fileUrl, false, limit, 10000, S::unsupportedScheme, 0, {}, false},
        {fileUrl, true, limit, 10000, S::ok, 0, local, false},
        {fileUrl, true, 5, 10000, S::sizeLimitExceeded, 0, local.left(5), false},
        {noFile, true, limit, 10000, S::networkError, 0, {}, false},
        {url("/big"), true, limit, 10000, S::sizeLimitExceeded, 200, plain.left(limit), false},
        {url("/exact"), true, limit, 10000, S::ok, 200, plain.left(limit), false},
        {url("/missingBig"), true, limit, 10000, S::sizeLimitExceeded, 404, plain.left(limit), false},
        {url("/large"), true, 0, 10000, S::ok, 200, plain, false},
        {url("/chunked"), true, limit, 10000, S::sizeLimitExceeded, 200, plain.left(limit), false},
        {url("/unframed"), true, limit, 10000, S::sizeLimitExceeded, 200, plain.left(limit), false},
        // Ended by the limit, not by time.
        {url("/announced"), true, limit, 10000, S::sizeLimitExceeded, 200, plain.left(limit), false},
        {url("/deflateBig"), true, limit, 10000, S::sizeLimitExceeded, 200, plain.left(limit), false},
        {url("/deflateExact"), true, limit, 10000, S::ok, 200, plain.left(limit), false},
        {url("/deflateMissing"), true, limit, 10000, S::httpError, 404, plain.left(300), false},
        {url("/corrupt"), true, limit, 10000, S::networkError, 200, {}, false},
        {url("/silent"), true, limit, 300, S::timeout, 0, {}, false},
        {url("/trickle"), true, limit * 10, 300, S::timeout, 200, plain.left(2000), true},
        {url("/short"), true, limit, 0, S::ok, 200, plain.left(10), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url.toStdString() + (c.allowFiles ? "" : " (files refused)"));
        HttpClientOptions limited = options(c.limit, c.allowFiles);
        limited.setTimeoutMs(c.timeoutMs);
        const HttpClientResult result = fetch(c.url, limited);
        EXPECT_EQ(result.status(), c.status);
        EXPECT_EQ(result.url().toString(), c.url);
        EXPECT_EQ(result.httpCode(), c.code);
        EXPECT_TRUE(c.partial ? result.body().size() < c.body.size() && c.body.startsWith(result.body())
                              : result.body() == c.body);
        EXPECT_EQ(result.errorString().isEmpty(), c.status == Status::ok);
        // A transfer ended early closes its connection, else an endless body
        // would go on.
        const bool early = (c.status == S::sizeLimitExceeded || c.status == S::timeout) &&
                           c.url.startsWith(QLatin1String("http:"));
        EXPECT_TRUE(!early || waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    }
    EXPECT_LT(server.bodyBytesSent(QStringLiteral("/chunked")), 8 * 1024 * 1024);
    EXPECT_LT(server.bodyBytesSent(QStringLiteral("/unframed")), 8 * 1024 * 1024);
}

TEST_F(HttpClientTest, CancelAndDestructionCallNoCallbackAndCallbacksMayReenterOrDelete) {
    server.setNeverAnswer(QStringLiteral("/silent"));
    server.setTrickle(QStringLiteral("/trickle"), HttpTestServer::pattern(1000), 10, 20);
    server.setResponse(QStringLiteral("/quick"), 200, "quick");
    server.setResponse(QStringLiteral("/second"), 200, "second");
    HttpClient other(nullptr);
    HttpClient::RequestId refused = nullptr, running = nullptr, finished = nullptr, foreign = nullptr;
    // A refused URL is pending until its completion is delivered.
    std::vector<std::shared_ptr<Outcome>> never = {
        start(*client, QStringLiteral("gopher://x"), {}, &refused)};
    EXPECT_TRUE(client->cancel(refused));
    never.push_back(start(*client, url("/silent"), {}, &running));
    const auto finishedOutcome = start(*client, url("/quick"), {}, &finished);
    start(other, url("/silent"), {}, &foreign);
    ASSERT_TRUE(waitUntil(
        [&] { return finishedOutcome->calls == 1 && server.requestCount(QStringLiteral("/silent")) == 2; },
        WaitMs));
    EXPECT_EQ(std::set<HttpClient::RequestId>({refused, running, finished, foreign}).size(), 4u);
    EXPECT_TRUE(client->cancel(running));
    EXPECT_FALSE(client->cancel(running));
    EXPECT_FALSE(client->cancel(nullptr));
    EXPECT_FALSE(client->cancel(finished));
    EXPECT_FALSE(client->cancel(foreign));
    EXPECT_EQ(client->pendingCount(), 0);
    EXPECT_TRUE(other.cancel(foreign));
    // Both silent transfers are closed; /quick's connection is kept alive.
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
    never.push_back(start(*client, url("/silent")));
    never.push_back(start(*client, url("/trickle")));
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/trickle")) == 1; }, WaitMs));
    bool deleted = false;
    client->get(ZuvoUrl(url("/quick")), {}, [&](const HttpClientResult&) {
        client.reset();
        deleted = true;
    });
    ASSERT_TRUE(waitUntil([&] { return deleted; }, WaitMs));
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));

    // Destroyed with a completion queued but not yet delivered.
    client = std::make_unique<HttpClient>(nullptr);
    never.push_back(start(*client, QStringLiteral("::not a url::")));
    client.reset();
    zuvotest::drainEvents();
    for (const auto& outcome : never)
        EXPECT_EQ(outcome->calls, 0);
}

} // namespace
