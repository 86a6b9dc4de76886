// Hostile HTTP peers on the parse node's road (PlayListParseNode's playlist
// download): servers that stall, never stop, inflate, flood headers, loop,
// or all of that at once. Every request ends in exactly one reply, and every
// download is gone afterwards (its connection closed).

#include <QDir>
#include <QHash>
#include <QSet>
#include <QTimer>
#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
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

ZuvoRoles itemAt(const QString& url) {
    const QVariantHash resource{{ZuvoResource::Uri(), url}};
    return ZuvoRoles(QVariantHash{
        {ZuvoRoles::MediaData(), QVariantHash{{ZuvoMediaData::Resources(), QVariantList{resource}}}}});
}

class HostilePeersTest : public ::testing::Test {
protected:
    // Entry lines of 600 bytes: 10000 of them (the row limit) would pass the read
    // limit, so a cut document has the whole lines that fit plus a started one.
    void SetUp() override {
        (new PlayListParseNode(NodePath))->setNodes(root.nodes()); // registry-owned
        QByteArray document = "#EXTM3U\n";
        while (document.size() < 2 * Limit)
            document += line;
        HttpTestRoute chunked(HttpTestRoute::Behaviour::Answer, 200, document);
        chunked.chunked = true; // no length announced
        server.setRoute(QStringLiteral("/oversize"), chunked);
        server.setDeflate(QStringLiteral("/deflateBomb"), document);
        server.setHeaderFlood(QStringLiteral("/flood"), 100000);
        server.setEndless(QStringLiteral("/endless"));
        server.setNeverAnswer(QStringLiteral("/silent"));
        server.setRaw(QStringLiteral("/hangUp"), {});
        server.setRedirect(QStringLiteral("/loop"), QStringLiteral("/loop"));
        server.setResponse(QStringLiteral("/missing"), 404, "#EXTM3U\nno.mp3\n");
    }

    // Completions of a reply and, read at once as a client does (a list node
    // goes after 10 s unused), the row count of the list it named.
    struct Seen {
        int completions = 0, rows = -1;
    };

    CMReply<QVariant> request(const QString& url) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(NodePath, itemAt(url), reply);
        reply.onFinished(&watcher, [this](const CMReply<QVariant>& r) {
            ++seen[r].completions;
            CMReply<ZuvoRowsRoles> rows;
            if (!r.hasError())
                CMRoot()->getRows(CMPath::fromEncoded(r.value().toString()), 0, 0, 0,
                                  {ZuvoRoles::MediaData()}, rows);
            EXPECT_EQ(rows.isFinished() && !rows.hasError(), !r.hasError()) << rows.error();
            seen[r].rows = rows.value().rowsCount();
        });
        return reply;
    }

    const QByteArray line = "track-" + QByteArray(589, 'x') + ".mp3\n";
    const int wholeLines = int((Limit - 8) / line.size()); // after "#EXTM3U\n"
    CMRootScope root;
    HttpTestServer server;
    QObject watcher;
    QHash<CMVoidReply, Seen> seen; // by reply identity
};

// The longest gap between the ticks of a 5 ms timer on this thread, in wall time and in CPU time of
// this thread (the work that held up the event loop, without the time the kernel gave to other
// processes of a busy machine), and the most threads of the process seen at a tick.
struct StallProbe {
    static qint64 ns(clockid_t clock) {
        timespec now{};
        clock_gettime(clock, &now);
        return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
    }
    static int threadCount() {
        return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    }

    StallProbe() {
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, [this] {
            const qint64 wall = ns(CLOCK_MONOTONIC), cpu = ns(CLOCK_THREAD_CPUTIME_ID);
            longestWallMs = qMax(longestWallMs, (wall - std::exchange(lastWall, wall)) / 1e6);
            longestCpuMs = qMax(longestCpuMs, (cpu - std::exchange(lastCpu, cpu)) / 1e6);
            mostThreads = qMax(mostThreads, threadCount());
        });
        timer.start(5);
    }

    QTimer timer;
    qint64 lastWall = ns(CLOCK_MONOTONIC), lastCpu = ns(CLOCK_THREAD_CPUTIME_ID);
    double longestWallMs = 0, longestCpuMs = 0;
    int mostThreads = 0;
};

TEST_F(HostilePeersTest, PlaylistDownloadsNeverStallTheEventLoopNorStartThreads) {
    const std::pair<const char*, int> peers[] = {
        {"/flood", 1}, {"/endless", 1}, {"/deflateBomb", 1}, {"/missing", 100}};
    for (const auto& [path, fetches] : peers) {
        SCOPED_TRACE(path);
        const int threadsBefore = StallProbe::threadCount();
        std::vector<std::unique_ptr<PlayListData>> jobs;
        int done = 0;
        StallProbe probe;
        for (int i = 0; i < fetches; ++i) {
            jobs.push_back(
                std::make_unique<PlayListData>(server.url(QLatin1String(path)), CMSetDataRequest()));
            QObject::connect(jobs.back().get(), &PlayListData::fetchDone, [&done] { ++done; });
            ASSERT_TRUE(jobs.back()->fetch());
        }
        ASSERT_TRUE(waitUntil([&, fetches = fetches] { return done == fetches; }, WaitMs));
        // Budgets scale with ZUVO_TEST_TIME_SCALE. The wall-time bound is loose (a busy
        // machine preempts the thread): it catches a thread blocked on a peer.
        EXPECT_LT(probe.longestCpuMs, zuvotest::scaledMs(50));
        EXPECT_LT(probe.longestWallMs, zuvotest::scaledMs(1000));
        EXPECT_LE(probe.mostThreads, threadsBefore + 2);
    }
    // Each job owns its HTTP client, whose connections go with it.
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
}

TEST_F(HostilePeersTest, HundredConcurrentFetchesAmongHostilePeersEachEndOnce) {
    const struct Kind {
        const char* path; // "/good": a playlist of its own for each request
        int count;
        int rows;      // of the list it names (a 404 too); 0: the request fails as unknownFormat
        bool endsLate; // only the fetch time-out ends it (shortened here)
    } kinds[] = {{"/good", 54, -1, false},
                 {"/silent", 8, 0, true},
                 {"/hangUp", 8, 0, false},
                 {"/loop", 8, 0, false},
                 {"/endless", 4, 0, false},
                 {"/flood", 4, 0, false},
                 {"/oversize", 2, wholeLines + 1, false},
                 {"/deflateBomb", 4, wholeLines + 1, false},
                 {"/missing", 8, 1, false}};
    struct Sent {
        const Kind* kind;
        int i;
        CMReply<QVariant> reply;
    };
    std::vector<Sent> sent;
    for (const Kind& kind : kinds) {
        for (int n = 0, index = int(sent.size()); n < kind.count; ++n, ++index) {
            QString path = QLatin1String(kind.path);
            if (kind.rows < 0) {
                QByteArray body = "#EXTM3U\n";
                for (int entry = 0; entry <= index % 5; ++entry)
                    body += "entry" + QByteArray::number(index) + "-" + QByteArray::number(entry) + ".mp3\n";
                server.setResponse(path += QString::number(index), 200, body);
            }
            // The others end by themselves, however slowly this machine runs.
            PlayListData::setFetchTimeoutForTesting(kind.endsLate ? 2000 : 0);
            sent.push_back({&kind, index, request(server.url(path))});
        }
    }
    PlayListData::setFetchTimeoutForTesting(0);
    ASSERT_EQ(sent.size(), 100u);
    ASSERT_TRUE(waitUntil(
        [&] {
            return std::all_of(sent.begin(), sent.end(), [](const Sent& s) { return s.reply.isFinished(); });
        },
        WaitMs));
    zuvotest::drainEvents();

    QSet<QString> listPaths;
    for (const Sent& s : sent) {
        SCOPED_TRACE(std::string(s.kind->path) + " " + std::to_string(s.i));
        EXPECT_EQ(seen[s.reply].completions, 1);
        if (s.kind->rows == 0) {
            EXPECT_EQ(s.reply.error().name(), QStringLiteral("unknownFormat"));
            continue;
        }
        ASSERT_FALSE(s.reply.hasError()) << s.reply.error();
        listPaths.insert(s.reply.value().toString());
        EXPECT_EQ(seen[s.reply].rows, s.kind->rows < 0 ? s.i % 5 + 1 : s.kind->rows);
    }
    EXPECT_EQ(listPaths.size(), 68) << "one list node per parsed playlist";
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
}

} // namespace
