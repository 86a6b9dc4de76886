#include "httpclient.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <gtest/gtest.h>
#include <memory>
#include <set>

using zuvotest::HttpTestRoute;
using zuvotest::HttpTestServer;

namespace {

constexpr int WaitMs = 15000;

// What arrived through one callback.
struct Outcome {
    int calls = 0;
    HttpClientResult result;
};

class HttpClientTest : public ::testing::Test {
protected:
    // Starts a fetch whose callback records into the returned outcome and
    // fails the test if it runs inside get().
    std::shared_ptr<Outcome> start(HttpClient& client, const QString& url,
                                   const HttpClientOptions& options = HttpClientOptions(),
                                   HttpClient::RequestId* id = nullptr) {
        auto outcome = std::make_shared<Outcome>();
        m_insideGet = true;
        const HttpClient::RequestId started =
            client.get(ZuvoUrl(url), options, [this, outcome](const HttpClientResult& result) {
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

    // Fetches url with the fixture's client and returns the one result.
    HttpClientResult fetch(const QString& url, const HttpClientOptions& options = HttpClientOptions()) {
        const auto outcome = start(*client, url, options);
        EXPECT_TRUE(zuvotest::waitUntil([&] { return outcome->calls > 0; }, WaitMs)) << url.toStdString();
        zuvotest::drainEvents();
        EXPECT_EQ(outcome->calls, 1) << url.toStdString();
        return outcome->result;
    }

    static HttpClientOptions withLimit(qint64 bytes) {
        HttpClientOptions options;
        options.setReadSizeLimit(bytes);
        return options;
    }

    HttpTestServer server;
    std::unique_ptr<HttpClient> client = std::make_unique<HttpClient>(nullptr);

private:
    bool m_insideGet = false;
};

// --- Answers ---------------------------------------------------------------

TEST_F(HttpClientTest, AnswersDeliverCodeBodyAndHeaders) {
    struct Case {
        const char* path;
        int code;
        QByteArray body;
        HttpClientStatus::Enum status;
    };
    const Case cases[] = {
        {"/ok", 200, "#EXTM3U\nhttp://h/a.mp3\n", HttpClientStatus::ok},
        {"/created", 201, "made", HttpClientStatus::ok},
        {"/empty", 204, "", HttpClientStatus::ok},
        {"/missing", 404, "no such playlist", HttpClientStatus::httpError},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        const QString path = QLatin1String(c.path);
        server.setResponse(path, c.code, c.body,
                           {{"Content-Type", "audio/x-mpegurl"}, {"X-Custom", "Value 1"}});
        const HttpClientResult result = fetch(server.url(path));
        EXPECT_EQ(result.status(), c.status);
        EXPECT_EQ(result.httpCode(), c.code);
        EXPECT_EQ(result.body(), c.body);
        EXPECT_EQ(result.url(), ZuvoUrl(server.url(path)));
        EXPECT_EQ(result.finalUrl().toQUrl(), QUrl(server.url(path)));
        EXPECT_EQ(result.headers().value(QStringLiteral("content-type")), QStringLiteral("audio/x-mpegurl"));
        EXPECT_EQ(result.headers().value(QStringLiteral("X-CUSTOM")), QStringLiteral("Value 1"));
        EXPECT_TRUE(result.headers().contains(QStringLiteral("x-custom")));
        EXPECT_EQ(result.errorString().isEmpty(), c.status == HttpClientStatus::ok);
        EXPECT_EQ(server.requestCount(path), 1);
    }
}

TEST_F(HttpClientTest, SendsRequestHeadersAndRefusesUnsafeOnes) {
    HttpClientOptions options;
    EXPECT_TRUE(options.setRequestHeader("X-Player", "zuvo"));
    EXPECT_TRUE(options.setRequestHeader("x-player", "zuvo 2")); // replaces, any case
    EXPECT_FALSE(options.setRequestHeader("Bad Name", "x"));
    EXPECT_FALSE(options.setRequestHeader("", "x"));
    EXPECT_FALSE(options.setRequestHeader("X-Split", "a\r\nInjected: 1"));
    EXPECT_EQ(options.requestHeaders().size(), 1);

    server.setResponse(QStringLiteral("/headers"), 200, "ok");
    EXPECT_EQ(fetch(server.url(QStringLiteral("/headers")), options).status(), HttpClientStatus::ok);
    EXPECT_EQ(server.lastRequestHeader(QStringLiteral("/headers"), "X-Player"), QByteArray("zuvo 2"));
    EXPECT_TRUE(server.lastRequestHeader(QStringLiteral("/headers"), "Injected").isEmpty());
}

TEST_F(HttpClientTest, Http2ClientFallsBackToHttp11Server) {
    client = std::make_unique<HttpClient>(nullptr, HttpClient::Http2);
    server.setResponse(QStringLiteral("/h2"), 200, "plain old http");
    const HttpClientResult result = fetch(server.url(QStringLiteral("/h2")));
    EXPECT_EQ(result.status(), HttpClientStatus::ok);
    EXPECT_EQ(result.body(), QByteArray("plain old http"));
}

TEST_F(HttpClientTest, ResponseHeaderIsCappedAtItsLimit) {
    // About 45 bytes a field: 2,000 fields pass the default 64 KiB, 100,000
    // (4.5 MB) pass it seventy-fold and must end at the cap, not after all.
    struct Case {
        int fields;
        qint64 limit; // 0: the default
        HttpClientStatus::Enum status;
    };
    const Case cases[] = {
        {50, 0, HttpClientStatus::ok},
        {200, 0, HttpClientStatus::ok},
        {2000, 0, HttpClientStatus::headerSizeExceeded},
        {2000, 1024 * 1024, HttpClientStatus::ok},
        {100000, 0, HttpClientStatus::headerSizeExceeded},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.fields) + " fields, limit " + std::to_string(c.limit));
        const QString path = QStringLiteral("/flood%1").arg(c.fields);
        server.setHeaderFlood(path, c.fields);
        HttpClientOptions options;
        if (c.limit > 0)
            options.setHeaderSizeLimit(c.limit);
        QElapsedTimer clock;
        clock.start();
        const HttpClientResult result = fetch(server.url(path), options);
        EXPECT_LT(clock.elapsed(), 10000) << "a hang guard, not a performance figure";
        EXPECT_EQ(result.status(), c.status);
        if (c.status == HttpClientStatus::ok) {
            EXPECT_TRUE(result.headers().contains(QStringLiteral("x-flood-%1").arg(c.fields - 1)));
            EXPECT_EQ(result.body(), QByteArray("flood"));
        } else {
            EXPECT_TRUE(result.body().isEmpty());
        }
    }
}

TEST_F(HttpClientTest, RepeatedAndFoldedFieldsAreJoined) {
    server.setRaw(QStringLiteral("/fields"), "HTTP/1.1 200 OK\r\nX-A: 1\r\nx-a: 2\r\nX-B: b\r\n  more\r\n"
                                             "Content-Length: 2\r\n\r\nok");
    const HttpClientResult result = fetch(server.url(QStringLiteral("/fields")));
    EXPECT_EQ(result.status(), HttpClientStatus::ok);
    EXPECT_EQ(result.headers().names(),
              QStringList({QStringLiteral("X-A"), QStringLiteral("X-B"), QStringLiteral("Content-Length")}));
    EXPECT_EQ(result.headers().value(QStringLiteral("x-a")), QStringLiteral("1, 2"));
    EXPECT_EQ(result.headers().value(QStringLiteral("x-b")), QStringLiteral("b more"));
}

// --- Redirects -------------------------------------------------------------

TEST_F(HttpClientTest, RedirectsFollowedWithinTheLimit) {
    // Absolute, absolute-path and relative Locations; the first hop carries a
    // body above the read limit, which must not count against the final body
    // of exactly the limit.
    HttpTestRoute first;
    first.status = 301;
    first.headers = {{"Location", server.url(QStringLiteral("/r2")).toUtf8()}};
    first.body = QByteArray(4000, 'x');
    server.setRoute(QStringLiteral("/r1"), first);
    server.setRedirect(QStringLiteral("/r2"), QStringLiteral("/dir/r3"), 307);
    server.setRedirect(QStringLiteral("/dir/r3"), QStringLiteral("final"), 302);
    const QByteArray finalBody = HttpTestServer::pattern(1000);
    server.setResponse(QStringLiteral("/dir/final"), 200, finalBody);

    struct Case {
        int maxRedirects;
        HttpClientStatus::Enum status;
    };
    for (const Case c :
         {Case{10, HttpClientStatus::ok}, Case{3, HttpClientStatus::ok},
          Case{2, HttpClientStatus::tooManyRedirects}, Case{0, HttpClientStatus::tooManyRedirects}}) {
        SCOPED_TRACE(c.maxRedirects);
        HttpClientOptions options = withLimit(1000);
        options.setMaxRedirects(c.maxRedirects);
        const HttpClientResult result = fetch(server.url(QStringLiteral("/r1")), options);
        EXPECT_EQ(result.status(), c.status);
        EXPECT_EQ(result.url().toString(), server.url(QStringLiteral("/r1")));
        if (c.status == HttpClientStatus::ok) {
            EXPECT_EQ(result.body(), finalBody);
            EXPECT_EQ(result.httpCode(), 200);
            EXPECT_EQ(result.finalUrl().toQUrl(), QUrl(server.url(QStringLiteral("/dir/final"))));
        }
    }
}

TEST_F(HttpClientTest, RedirectDeliveredAsItIsWhenNotFollowing) {
    client = std::make_unique<HttpClient>(nullptr, HttpClient::Http1_1, false);
    server.setRedirect(QStringLiteral("/moved"), QStringLiteral("/target"));
    server.setResponse(QStringLiteral("/target"), 200, "target");
    const HttpClientResult result = fetch(server.url(QStringLiteral("/moved")));
    EXPECT_EQ(result.status(), HttpClientStatus::httpError);
    EXPECT_EQ(result.httpCode(), 302);
    EXPECT_EQ(result.headers().value(QStringLiteral("location")), QStringLiteral("/target"));
    EXPECT_EQ(server.requestCount(QStringLiteral("/target")), 0);
}

TEST_F(HttpClientTest, RedirectNeverLeadsToALocalFile) {
    QTemporaryFile secret;
    ASSERT_TRUE(secret.open());
    secret.write("secret-content");
    secret.flush();
    server.setRedirect(QStringLiteral("/sneaky"), QUrl::fromLocalFile(secret.fileName()).toString());
    HttpClientOptions options;
    options.setAllowLocalFiles(true);
    const HttpClientResult result = fetch(server.url(QStringLiteral("/sneaky")), options);
    EXPECT_EQ(result.status(), HttpClientStatus::unsupportedScheme);
    EXPECT_FALSE(result.body().contains("secret-content"));
}

// --- Refusals and failures ---------------------------------------------------

TEST_F(HttpClientTest, RefusalsAndFailuresComeLaterAsStatus) {
    server.setCloseWithoutAnswer(QStringLiteral("/hangup"));
    server.setRaw(QStringLiteral("/notHttp"), "garbage\r\n\r\n");
    server.setRaw(QStringLiteral("/badField"), "HTTP/1.1 200 OK\r\nno colon\r\nContent-Length: 2\r\n\r\nxx");
    const QString refusedUrl = QStringLiteral("http://127.0.0.1:%1/x").arg(HttpTestServer::unusedPort());
    struct Case {
        QString url;
        HttpClientStatus::Enum status;
    };
    const Case cases[] = {
        {QString(), HttpClientStatus::invalidUrl},
        {QStringLiteral("http://[::1/x"), HttpClientStatus::invalidUrl},
        {QStringLiteral("http:///no-host"), HttpClientStatus::invalidUrl},
        {QStringLiteral("ftp://127.0.0.1/list.m3u"), HttpClientStatus::unsupportedScheme},
        {QStringLiteral("file:///etc/hostname"), HttpClientStatus::unsupportedScheme},
        {refusedUrl, HttpClientStatus::connectionRefused},
        {server.url(QStringLiteral("/hangup")), HttpClientStatus::networkError},
        {server.url(QStringLiteral("/notHttp")), HttpClientStatus::protocolError},
        {server.url(QStringLiteral("/badField")), HttpClientStatus::protocolError},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url.toStdString());
        const HttpClientResult result = fetch(c.url);
        EXPECT_EQ(result.status(), c.status);
        EXPECT_EQ(result.url().toString(), c.url);
        if (c.status != HttpClientStatus::protocolError) {
            EXPECT_EQ(result.httpCode(), 0);
        }
        EXPECT_TRUE(result.body().isEmpty());
        EXPECT_FALSE(result.errorString().isEmpty());
    }
}

TEST_F(HttpClientTest, LocalFilesOnlyWhenAllowedAndWithinTheLimit) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QFile file(dir.filePath(QStringLiteral("list.m3u")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("local playlist content");
    file.close();
    const QString fileUrl = QUrl::fromLocalFile(file.fileName()).toString();
    const QString missingUrl = QUrl::fromLocalFile(dir.filePath(QStringLiteral("missing.m3u"))).toString();

    struct Case {
        QString url;
        bool allow;
        qint64 limit;
        HttpClientStatus::Enum status;
        QByteArray body;
    };
    const Case cases[] = {
        {fileUrl, false, 0, HttpClientStatus::unsupportedScheme, QByteArray()},
        {fileUrl, true, 0, HttpClientStatus::ok, "local playlist content"},
        {fileUrl, true, 5, HttpClientStatus::sizeLimitExceeded, "local"},
        {missingUrl, true, 0, HttpClientStatus::networkError, QByteArray()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url.toStdString() + (c.allow ? " allowed" : " refused"));
        HttpClientOptions options = withLimit(c.limit);
        options.setAllowLocalFiles(c.allow);
        const HttpClientResult result = fetch(c.url, options);
        EXPECT_EQ(result.status(), c.status);
        EXPECT_EQ(result.body(), c.body);
        EXPECT_EQ(result.httpCode(), 0);
    }
}

// --- Total time limit ---------------------------------------------------------

TEST_F(HttpClientTest, TotalTimeLimitCoversSilentAndTricklingServers) {
    const QByteArray slowBody = HttpTestServer::pattern(2000);
    server.setNeverAnswer(QStringLiteral("/silent"));
    // Far slower than the limit in total, but never idle long enough for an
    // inactivity timeout.
    server.setTrickle(QStringLiteral("/trickle"), slowBody, 10, 20);
    server.setTrickle(QStringLiteral("/short"), "0123456789", 2, 10);

    struct Case {
        const char* path;
        int timeoutMs;
        HttpClientStatus::Enum status;
    };
    const Case cases[] = {
        {"/silent", 300, HttpClientStatus::timeout},
        {"/trickle", 300, HttpClientStatus::timeout},
        {"/short", 0, HttpClientStatus::ok},
        {"/short", 10000, HttpClientStatus::ok},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.path) + " " + std::to_string(c.timeoutMs));
        HttpClientOptions options;
        options.setTimeoutMs(c.timeoutMs);
        const HttpClientResult result = fetch(server.url(QLatin1String(c.path)), options);
        EXPECT_EQ(result.status(), c.status);
        if (QLatin1String(c.path) == QLatin1String("/trickle")) {
            EXPECT_EQ(result.httpCode(), 200);
            EXPECT_LT(result.body().size(), slowBody.size());
            EXPECT_TRUE(slowBody.startsWith(result.body()));
        }
        if (c.status == HttpClientStatus::ok) {
            EXPECT_EQ(result.body(), QByteArray("0123456789"));
        }
    }
}

// --- Read-size limit ------------------------------------------------------------

TEST_F(HttpClientTest, BodyIsCutAtTheReadLimit) {
    constexpr qint64 limit = 1000;
    const QByteArray big = HttpTestServer::pattern(5000);
    server.setResponse(QStringLiteral("/big"), 200, big);
    server.setResponse(QStringLiteral("/exact"), 200, big.left(limit));
    server.setResponse(QStringLiteral("/below"), 200, big.left(limit - 1));
    server.setResponse(QStringLiteral("/missingBig"), 404, big);
    server.setEndless(QStringLiteral("/chunked"), HttpTestRoute::Framing::Chunked);
    server.setEndless(QStringLiteral("/unframed"), HttpTestRoute::Framing::CloseDelimited);
    HttpTestRoute liar; // announces far more than it sends, then stays silent
    liar.body = big.left(limit);
    liar.declaredLength = 100000;
    server.setRoute(QStringLiteral("/announced"), liar);

    struct Case {
        const char* path;
        HttpClientStatus::Enum status;
        qint64 bodySize;
    };
    const Case cases[] = {
        {"/big", HttpClientStatus::sizeLimitExceeded, limit},
        {"/exact", HttpClientStatus::ok, limit},
        {"/below", HttpClientStatus::ok, limit - 1},
        {"/missingBig", HttpClientStatus::sizeLimitExceeded, limit},
        {"/chunked", HttpClientStatus::sizeLimitExceeded, limit},
        {"/unframed", HttpClientStatus::sizeLimitExceeded, limit},
        {"/announced", HttpClientStatus::sizeLimitExceeded, limit},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        HttpClientOptions options = withLimit(limit);
        options.setTimeoutMs(10000); // "/announced" must end by the limit, not by time
        const HttpClientResult result = fetch(server.url(QLatin1String(c.path)), options);
        EXPECT_EQ(result.status(), c.status);
        EXPECT_EQ(result.body(), big.left(int(c.bodySize)));
        EXPECT_EQ(result.errorString().isEmpty(), c.status == HttpClientStatus::ok);
        if (QByteArray(c.path) == "/chunked" || QByteArray(c.path) == "/unframed") {
            // Requests of one client go over one kept-alive connection in
            // turn; an endless body is stopped only by closing it.
            EXPECT_TRUE(zuvotest::waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
        }
    }
    EXPECT_LT(server.bodyBytesSent(QStringLiteral("/chunked")), 8 * 1024 * 1024);
    EXPECT_LT(server.bodyBytesSent(QStringLiteral("/unframed")), 8 * 1024 * 1024);
}

TEST_F(HttpClientTest, CompressedBodiesAreDecodedWithinTheLimit) {
    constexpr qint64 limit = 1000;
    // Highly compressible: the encoded bodies are far below the limit.
    const QByteArray plain = HttpTestServer::pattern(200000);
    server.setGzip(QStringLiteral("/gzipBig"), plain);
    server.setGzip(QStringLiteral("/gzipExact"), plain.left(limit));
    HttpTestRoute deflate;
    deflate.body = qCompress(plain.left(900)).mid(4); // zlib stream
    deflate.headers = {{"Content-Encoding", "deflate"}};
    server.setRoute(QStringLiteral("/deflate"), deflate);
    HttpTestRoute missing;
    missing.status = 404;
    missing.body = plain.left(300);
    missing.gzip = true;
    server.setRoute(QStringLiteral("/gzipMissing"), missing);
    HttpTestRoute corrupt;
    corrupt.body = "this is not gzip data at all";
    corrupt.headers = {{"Content-Encoding", "gzip"}};
    server.setRoute(QStringLiteral("/corrupt"), corrupt);
    HttpTestRoute truncated;
    truncated.body = HttpTestServer::gzip(plain.left(900)).left(20);
    truncated.headers = {{"Content-Encoding", "gzip"}};
    server.setRoute(QStringLiteral("/truncated"), truncated);

    struct Case {
        const char* path;
        HttpClientStatus::Enum status;
        int bodySize; // of plain's start; -1: none expected in particular
    };
    const Case cases[] = {
        {"/gzipBig", HttpClientStatus::sizeLimitExceeded, int(limit)},
        {"/gzipExact", HttpClientStatus::ok, int(limit)},
        {"/deflate", HttpClientStatus::ok, 900},
        {"/gzipMissing", HttpClientStatus::httpError, 300},
        {"/corrupt", HttpClientStatus::networkError, -1},
        // libcurl 7.88 does not notice a gzip stream cut short inside a
        // complete answer: the decoded start arrives as the body.
        {"/truncated", HttpClientStatus::ok, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        const HttpClientResult result = fetch(server.url(QLatin1String(c.path)), withLimit(limit));
        EXPECT_EQ(result.status(), c.status);
        if (c.bodySize >= 0) {
            EXPECT_EQ(result.body(), plain.left(c.bodySize));
        }
        EXPECT_TRUE(plain.startsWith(result.body()));
    }
}

TEST_F(HttpClientTest, NoReadLimitKeepsLargeBodies) {
    const QByteArray large = HttpTestServer::pattern(3 * 1024 * 1024);
    server.setResponse(QStringLiteral("/large"), 200, large);
    const HttpClientResult result = fetch(server.url(QStringLiteral("/large")), withLimit(0));
    EXPECT_EQ(result.status(), HttpClientStatus::ok);
    EXPECT_EQ(result.body(), large);
}

// --- Cancel ------------------------------------------------------------------------

TEST_F(HttpClientTest, CancelStopsARunningTransferForGood) {
    server.setNeverAnswer(QStringLiteral("/silent"));
    HttpClient::RequestId id = nullptr;
    const auto cancelled = start(*client, server.url(QStringLiteral("/silent")), HttpClientOptions(), &id);
    ASSERT_TRUE(
        zuvotest::waitUntil([&] { return server.requestCount(QStringLiteral("/silent")) == 1; }, WaitMs));

    EXPECT_TRUE(client->cancel(id));
    EXPECT_FALSE(client->cancel(id));
    EXPECT_EQ(client->pendingCount(), 0);
    EXPECT_TRUE(zuvotest::waitUntil([&] { return server.openConnections() == 0; }, WaitMs));

    // The client goes on working; the cancelled callback never comes.
    server.setResponse(QStringLiteral("/after"), 200, "after");
    EXPECT_EQ(fetch(server.url(QStringLiteral("/after"))).body(), QByteArray("after"));
    EXPECT_EQ(cancelled->calls, 0);
}

TEST_F(HttpClientTest, CancelAppliesOnlyToTheClientsOwnPendingRequests) {
    // A refused URL is pending until its completion is delivered.
    HttpClient::RequestId refused = nullptr;
    const auto refusedOutcome =
        start(*client, QStringLiteral("gopher://nowhere"), HttpClientOptions(), &refused);
    EXPECT_TRUE(client->cancel(refused));

    server.setResponse(QStringLiteral("/quick"), 200, "quick");
    HttpClient::RequestId finished = nullptr;
    const auto outcome = start(*client, server.url(QStringLiteral("/quick")), HttpClientOptions(), &finished);
    ASSERT_TRUE(zuvotest::waitUntil([&] { return outcome->calls == 1; }, WaitMs));

    HttpClient other(nullptr);
    server.setNeverAnswer(QStringLiteral("/silent"));
    HttpClient::RequestId foreign = nullptr;
    start(other, server.url(QStringLiteral("/silent")), HttpClientOptions(), &foreign);

    EXPECT_FALSE(client->cancel(nullptr));
    EXPECT_FALSE(client->cancel(finished));
    EXPECT_FALSE(client->cancel(foreign));
    EXPECT_TRUE(other.cancel(foreign));
    EXPECT_EQ(refusedOutcome->calls, 0);
}

// --- Many requests and lifetime ------------------------------------------------------

TEST_F(HttpClientTest, ManyRequestsAtOnceEachAnsweredOnce) {
    constexpr int count = 50;
    std::vector<std::shared_ptr<Outcome>> outcomes;
    std::set<HttpClient::RequestId> ids;
    for (int i = 0; i < count; ++i) {
        const QString path = QStringLiteral("/many/%1").arg(i);
        server.setResponse(path, 200, "body " + QByteArray::number(i));
        HttpClient::RequestId id = nullptr;
        // Every tenth one is refused at once, mixed in with the real ones.
        const QString url = i % 10 == 9 ? QStringLiteral("nope://%1").arg(i) : server.url(path);
        outcomes.push_back(start(*client, url, HttpClientOptions(), &id));
        ids.insert(id);
    }
    EXPECT_EQ(int(ids.size()), count);
    EXPECT_EQ(client->pendingCount(), count);
    ASSERT_TRUE(zuvotest::waitUntil([&] { return client->pendingCount() == 0; }, WaitMs));
    zuvotest::drainEvents();
    for (int i = 0; i < count; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(outcomes[i]->calls, 1);
        if (i % 10 == 9) {
            EXPECT_EQ(outcomes[i]->result.status(), HttpClientStatus::unsupportedScheme);
        } else {
            EXPECT_EQ(outcomes[i]->result.status(), HttpClientStatus::ok);
            EXPECT_EQ(outcomes[i]->result.body(), "body " + QByteArray::number(i));
        }
    }
}

TEST_F(HttpClientTest, DestroyedClientCallsNoCallback) {
    server.setNeverAnswer(QStringLiteral("/silent"));
    server.setTrickle(QStringLiteral("/trickle"), HttpTestServer::pattern(1000), 10, 20);
    std::vector<std::shared_ptr<Outcome>> outcomes = {
        start(*client, server.url(QStringLiteral("/silent"))),
        start(*client, server.url(QStringLiteral("/trickle"))),
    };
    ASSERT_TRUE(zuvotest::waitUntil([&] { return server.totalRequestCount() == 2; }, WaitMs));
    // Its completion is queued but not yet delivered.
    outcomes.push_back(start(*client, QStringLiteral("::not a url::")));
    client.reset();
    EXPECT_TRUE(zuvotest::waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    zuvotest::drainEvents();
    for (const auto& outcome : outcomes)
        EXPECT_EQ(outcome->calls, 0);
}

TEST_F(HttpClientTest, CallbackMayDeleteTheClientOrStartAnotherRequest) {
    server.setResponse(QStringLiteral("/first"), 200, "first");
    server.setResponse(QStringLiteral("/second"), 200, "second");
    server.setNeverAnswer(QStringLiteral("/silent"));

    // A callback that starts a follow-up request on the same client.
    QByteArray followUp;
    client->get(ZuvoUrl(server.url(QStringLiteral("/first"))), HttpClientOptions(),
                [&](const HttpClientResult&) {
                    client->get(ZuvoUrl(server.url(QStringLiteral("/second"))), HttpClientOptions(),
                                [&](const HttpClientResult& result) { followUp = result.body(); });
                });
    ASSERT_TRUE(zuvotest::waitUntil([&] { return !followUp.isEmpty(); }, WaitMs));
    EXPECT_EQ(followUp, QByteArray("second"));

    // A callback that deletes the client while another request still runs.
    const auto silent = start(*client, server.url(QStringLiteral("/silent")));
    bool deleted = false;
    client->get(ZuvoUrl(server.url(QStringLiteral("/first"))), HttpClientOptions(),
                [&](const HttpClientResult&) {
                    client.reset();
                    deleted = true;
                });
    ASSERT_TRUE(zuvotest::waitUntil([&] { return deleted; }, WaitMs));
    EXPECT_TRUE(zuvotest::waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    zuvotest::drainEvents();
    EXPECT_EQ(silent->calls, 0);
}

} // namespace
