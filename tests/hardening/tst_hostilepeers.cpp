// Hostile HTTP peers met on the parse node's road: the playlist download of
// PlayListParseNode against servers that trickle, never stop, inflate,
// flood headers, loop, or all of that at once. Every request ends in exactly
// one reply, and every download is gone afterwards (its connection closed).
// The raw HTTP client cases live with the client's own tests.

#include <QDir>
#include <QHash>
#include <QSet>
#include <QTimer>
#include <cstdio>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "model/cmnodes.h"
#include "playlistdata.h"
#include "playlistparsenode.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"

using zuvotest::HttpTestRoute;
using zuvotest::HttpTestServer;
using zuvotest::waitUntil;

namespace {

constexpr int WaitMs = 60000; // a hang guard: slow runs (valgrind) need the time
constexpr qint64 Limit = PlayListData::FetchReadSizeLimit;
const CMPath NodePath("/hardening/playlistParser");

// An M3U entry line of 600 bytes: 10000 of them (the row limit) would pass
// the read limit, so the rows a cut document gives show where it was cut.
QByteArray longEntryLine() {
    const QByteArray stem = "track-";
    const QByteArray suffix = ".mp3\n";
    return stem + QByteArray(600 - stem.size() - suffix.size(), 'x') + suffix;
}

ZuvoRoles itemAt(const QString& url) {
    ZuvoResource resource;
    resource.setUri(url);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

// Sets the playlist fetch time-out for the life of the guard.
class FetchTimeout {
public:
    explicit FetchTimeout(int ms) { PlayListData::setFetchTimeoutForTesting(ms); }
    ~FetchTimeout() { PlayListData::setFetchTimeoutForTesting(0); }
    Q_DISABLE_COPY(FetchTimeout)
};

class HostilePeersTest : public ::testing::Test {
protected:
    void SetUp() override {
        node = new PlayListParseNode(NodePath); // owned by the registry
        node->setNodes(root.nodes());
    }

    // What a client saw of one reply: how often it completed and, as a
    // client reads them at once (a list node goes after 10 s unused), the
    // first rows of the list node it named.
    struct Seen {
        int completions = 0;
        ZuvoRowsRoles firstRows;
    };

    // Sends a parse request for url; records what its completion brings.
    CMReply<QVariant> request(const QString& url) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(NodePath, itemAt(url), reply);
        reply.onFinished(&watcher, [this](const CMReply<QVariant>& r) {
            Seen& s = seen[r];
            ++s.completions;
            if (!r.hasError())
                s.firstRows = rows(r, 0, 9);
        });
        return reply;
    }

    CMReply<QVariant> parse(const QString& url) {
        const CMReply<QVariant> reply = request(url);
        EXPECT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs)) << url.toStdString();
        return reply;
    }

    static ZuvoRowsRoles rows(const CMReply<QVariant>& reply, int fromRow, int toRow) {
        CMReply<ZuvoRowsRoles> rowsReply;
        CMRoot()->getRows(CMPath::fromEncoded(reply.value().toString()), fromRow, toRow, 0,
                          {ZuvoRoles::MediaData()}, rowsReply);
        EXPECT_TRUE(rowsReply.isFinished());
        EXPECT_FALSE(rowsReply.hasError()) << rowsReply.error();
        return rowsReply.value();
    }

    static QString uriOfRow(const ZuvoRowsRoles& answer, int i) {
        const QVariantList values = answer.rows().toList().value(i).toList();
        return ZuvoMediaData(values.value(0).toHash()).resources().value(0).uri();
    }

    // Every download is over once its connection is closed: each job owns
    // its HTTP client, whose connections go with it.
    bool allDownloadsGone() {
        return waitUntil([&] { return server.openConnections() == 0; }, WaitMs);
    }

    CMRootScope root;
    HttpTestServer server;
    PlayListParseNode* node = nullptr;
    QObject watcher;
    QHash<CMVoidReply, Seen> seen; // by reply identity
};

TEST_F(HostilePeersTest, TricklingServerIsEndedByTheTotalTimeout) {
    // One byte a second: far too slow for a playlist of 17 bytes, never idle
    // long enough for an inactivity timeout.
    const QByteArray body = "#EXTM3U\nslow.mp3\n";
    server.setTrickle(QStringLiteral("/trickle.m3u"), body, 1, 1000);
    const FetchTimeout timeout(2500);

    const CMReply<QVariant> reply = parse(server.url(QStringLiteral("/trickle.m3u")));
    EXPECT_EQ(reply.error().name(), QStringLiteral("unknownFormat"));
    EXPECT_LT(server.bodyBytesSent(QStringLiteral("/trickle.m3u")), body.size());
    EXPECT_TRUE(allDownloadsGone());
}

TEST_F(HostilePeersTest, NeverEndingDocumentsAreCutAtTheReadLimit) {
    const QByteArray head = "#EXTM3U\n";
    const QByteArray line = longEntryLine();
    QByteArray inflating = head;
    while (inflating.size() < 2 * Limit)
        inflating += line;
    server.setEndlessText(QStringLiteral("/endless.m3u"), head, line, HttpTestRoute::Framing::Chunked,
                          qint64(1) << 30);
    server.setGzip(QStringLiteral("/bomb.m3u"), inflating);
    ASSERT_LT(HttpTestServer::gzip(inflating).size(), Limit / 50) << "a small download that inflates";

    // The body holds exactly Limit bytes: the whole lines that fit, then the
    // start of one more line, which still counts as an entry.
    const qint64 entriesBytes = Limit - head.size();
    const int wholeLines = int(entriesBytes / line.size());
    const int cutLength = int(entriesBytes % line.size());
    ASSERT_GT(cutLength, 0);
    const QString base = server.url(QStringLiteral("/"));

    for (const QString& path : {QStringLiteral("/endless.m3u"), QStringLiteral("/bomb.m3u")}) {
        SCOPED_TRACE(path.toStdString());
        const CMReply<QVariant> reply = parse(server.url(path));
        ASSERT_FALSE(reply.hasError()) << reply.error();
        const ZuvoRowsRoles last = rows(reply, wholeLines - 1, wholeLines + 5);
        EXPECT_EQ(last.rowsCount(), wholeLines + 1);
        EXPECT_EQ(uriOfRow(last, 0), base + QString::fromLatin1(line.trimmed()));
        EXPECT_EQ(uriOfRow(last, 1), base + QString::fromLatin1(line.left(cutLength)));
        EXPECT_TRUE(allDownloadsGone());
    }
    // The endless server was stopped near the limit, not after its gigabyte;
    // what it got ahead sits in socket buffers.
    EXPECT_LT(server.bodyBytesSent(QStringLiteral("/endless.m3u")), 4 * Limit);
}

TEST_F(HostilePeersTest, HeaderFloodEndsInOneReply) {
    // 200 fields pass; 100,000 (4.5 MB) end at the header cap, so the
    // document behind them is never read.
    for (const int fields : {200, 100000}) {
        SCOPED_TRACE(fields);
        const QString path = QStringLiteral("/flood%1.m3u").arg(fields);
        server.setHeaderFlood(path, fields, 32, "#EXTM3U\nflooded.mp3\n");
        const CMReply<QVariant> reply = parse(server.url(path));
        EXPECT_EQ(seen[reply].completions, 1);
        if (fields == 200) {
            ASSERT_FALSE(reply.hasError()) << reply.error();
            EXPECT_EQ(seen[reply].firstRows.rowsCount(), 1);
        } else {
            EXPECT_EQ(reply.error().name(), QStringLiteral("unknownFormat"));
        }
    }
    EXPECT_TRUE(allDownloadsGone());
}

// The longest gap between the ticks of a 5 ms repeating timer on this
// thread, and the most threads of the process seen at a tick, while it lives.
// A gap is measured twice: in wall time, and in CPU time of this thread
// (the work that held up the event loop, without the time the kernel gave to
// other processes of a busy machine).
class StallProbe {
public:
    StallProbe() {
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { tick(); });
        m_timer.start(5);
        m_lastWall = wallNs();
        m_lastCpu = cpuNs();
    }
    double longestWallGapMs() const { return m_longestWall / 1e6; }
    double longestCpuGapMs() const { return m_longestCpu / 1e6; }
    int mostThreads() const { return m_mostThreads; }

    static int threadCount() {
        return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    }

private:
    static qint64 nanoseconds(clockid_t clock) {
        timespec now{};
        clock_gettime(clock, &now);
        return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
    }
    static qint64 wallNs() { return nanoseconds(CLOCK_MONOTONIC); }
    static qint64 cpuNs() { return nanoseconds(CLOCK_THREAD_CPUTIME_ID); }

    void tick() {
        const qint64 wall = wallNs();
        const qint64 cpu = cpuNs();
        m_longestWall = qMax(m_longestWall, wall - m_lastWall);
        m_longestCpu = qMax(m_longestCpu, cpu - m_lastCpu);
        m_lastWall = wall;
        m_lastCpu = cpu;
        m_mostThreads = qMax(m_mostThreads, threadCount());
    }

    QTimer m_timer;
    qint64 m_lastWall = 0;
    qint64 m_lastCpu = 0;
    qint64 m_longestWall = 0;
    qint64 m_longestCpu = 0;
    int m_mostThreads = 0;
};

TEST_F(HostilePeersTest, PlaylistDownloadsNeverStallTheEventLoopNorStartThreads) {
    const auto slowRedirect = [&](const QString& path, const QString& to) {
        HttpTestRoute hop; // each hop takes 100 ms to send its 5-byte body
        hop.status = 302;
        hop.headers = {{"Location", to.toUtf8()}};
        hop.body = "redir";
        hop.trickleBytes = 1;
        hop.trickleIntervalMs = 20;
        server.setRoute(path, hop);
    };
    struct Peer {
        const char* name;
        int fetches;
        std::function<void(const QString& path)> setUp;
    };
    const Peer peers[] = {
        {"header flood", 1, [&](const QString& path) { server.setHeaderFlood(path, 100000); }},
        {"trickle", 1, [&](const QString& path) { server.setTrickle(path, "#EXTM3U\nx.mp3\n", 1, 200); }},
        {"endless body", 1, [&](const QString& path) { server.setEndless(path); }},
        {"gzip bomb", 1, [&](const QString& path) { server.setGzip(path, QByteArray(int(4 * Limit), 'x')); }},
        {"slow redirect chain", 1,
         [&](const QString& path) {
             for (int hop = 0; hop < 5; ++hop)
                 slowRedirect(path + QString::number(hop), path + QString::number(hop + 1));
             server.setResponse(path + QStringLiteral("5"), 200, "#EXTM3U\nend.mp3\n");
             slowRedirect(path, path + QStringLiteral("0"));
         }},
        {"100 concurrent", 100,
         [&](const QString& path) { server.setResponse(path, 200, "#EXTM3U\n" + QByteArray(20000, 'e')); }},
    };
    const FetchTimeout timeout(1500); // ends the trickle
    int index = 0;
    for (const Peer& peer : peers) {
        SCOPED_TRACE(peer.name);
        const QString path = QStringLiteral("/stall/%1").arg(index++);
        peer.setUp(path);
        const int threadsBefore = StallProbe::threadCount();
        std::vector<std::unique_ptr<PlayListData>> jobs;
        int done = 0;
        StallProbe probe;
        for (int i = 0; i < peer.fetches; ++i) {
            jobs.push_back(std::make_unique<PlayListData>(server.url(path), CMSetDataRequest()));
            QObject::connect(jobs.back().get(), &PlayListData::fetchDone, [&done] { ++done; });
            ASSERT_TRUE(jobs.back()->fetch());
        }
        ASSERT_TRUE(waitUntil([&] { return done == peer.fetches; }, WaitMs));
        // Budgets scale with ZUVO_TEST_TIME_SCALE (sanitizers, emulation).
        EXPECT_LT(probe.longestCpuGapMs(), zuvotest::scaledMs(50));
        // Nothing blocks the thread either (no work, yet no tick): a bound
        // that a loaded machine's scheduling still meets.
        EXPECT_LT(probe.longestWallGapMs(), zuvotest::scaledMs(250));
        EXPECT_LE(probe.mostThreads(), threadsBefore + 2);
        std::printf("[ stall    ] %-20s longest gap %6.1f ms wall, %5.1f ms CPU; threads %d -> at most %d\n",
                    peer.name, probe.longestWallGapMs(), probe.longestCpuGapMs(), threadsBefore,
                    probe.mostThreads());
    }
    EXPECT_TRUE(allDownloadsGone());
}

TEST_F(HostilePeersTest, HundredConcurrentFetchesAmongHostilePeersEachEndOnce) {
    struct Kind {
        const char* name;
        int count;
        std::function<void(const QString& path, int i)> setUp;
        bool parsed;   // else the request fails as unknownFormat
        bool endsLate; // only the fetch time-out ends it (shortened here)
    };
    const std::vector<Kind> kinds = {
        {"good", 50,
         [&](const QString& path, int i) {
             QByteArray body = "#EXTM3U\n";
             for (int n = 0; n <= i % 5; ++n)
                 body += "entry" + QByteArray::number(i) + "-" + QByteArray::number(n) + ".mp3\n";
             server.setResponse(path, 200, body);
         },
         true, false},
        {"trickle", 8,
         [&](const QString& path, int) { server.setTrickle(path, "#EXTM3U\nx.mp3\n", 1, 1000); }, false,
         true},
        {"silent", 8, [&](const QString& path, int) { server.setNeverAnswer(path); }, false, true},
        {"hang-up", 8, [&](const QString& path, int) { server.setCloseWithoutAnswer(path); }, false, false},
        {"redirect loop", 8, [&](const QString& path, int) { server.setRedirect(path, path); }, false, false},
        {"endless", 4, [&](const QString& path, int) { server.setEndless(path); }, false, false},
        {"missing", 8, [&](const QString& path, int) { server.setResponse(path, 404, "#EXTM3U\nno.mp3\n"); },
         true, false},
        {"gzip bomb", 6,
         [&](const QString& path, int) {
             server.setGzip(path, "#EXTM3U\nbomb.mp3\n#" + QByteArray(int(2 * Limit), 'x'));
         },
         true, false},
    };
    struct Sent {
        const Kind* kind;
        int i;
        CMReply<QVariant> reply;
    };
    std::vector<Sent> sent;
    int index = 0;
    for (const Kind& kind : kinds) {
        for (int n = 0; n < kind.count; ++n, ++index) {
            const QString path = QStringLiteral("/peer%1").arg(index);
            kind.setUp(path, index);
            // The others end by themselves, however slowly this machine runs.
            const FetchTimeout timeout(kind.endsLate ? 2000 : 0);
            sent.push_back({&kind, index, request(server.url(path))});
        }
    }
    ASSERT_EQ(sent.size(), 100u);
    ASSERT_TRUE(waitUntil(
        [&] {
            for (const Sent& s : sent) {
                if (!s.reply.isFinished())
                    return false;
            }
            return true;
        },
        WaitMs));
    zuvotest::drainEvents();

    QSet<QString> listPaths;
    for (const Sent& s : sent) {
        SCOPED_TRACE(std::string(s.kind->name) + " " + std::to_string(s.i));
        EXPECT_EQ(seen[s.reply].completions, 1);
        if (!s.kind->parsed) {
            EXPECT_EQ(s.reply.error().name(), QStringLiteral("unknownFormat"));
            continue;
        }
        // A 404 still carries a playlist body, and the status is not
        // examined; a gzip bomb still starts with its playlist.
        ASSERT_FALSE(s.reply.hasError()) << s.reply.error();
        listPaths.insert(s.reply.value().toString());
        const ZuvoRowsRoles answer = seen[s.reply].firstRows;
        if (QByteArray(s.kind->name) == "good") {
            EXPECT_EQ(answer.rowsCount(), s.i % 5 + 1);
            EXPECT_TRUE(uriOfRow(answer, 0).endsWith(QStringLiteral("/entry%1-0.mp3").arg(s.i)));
        } else {
            EXPECT_EQ(answer.rowsCount(), 1);
        }
    }
    EXPECT_EQ(listPaths.size(), 64) << "one list node per parsed playlist";
    EXPECT_TRUE(allDownloadsGone());
}

} // namespace
