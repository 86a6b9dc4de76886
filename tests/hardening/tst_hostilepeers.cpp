// Hostile HTTP peers on the parse node's road (PlayListParseNode's playlist
// download): servers that trickle, never stop, inflate, flood headers, loop,
// or all of that at once. Every request ends in exactly one reply, and every
// download is gone afterwards (its connection closed).

#include <QDir>
#include <QHash>
#include <QSet>
#include <QTimer>
#include <algorithm>
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

ZuvoRoles itemAt(const QString& url) {
    const QVariantHash resource{{ZuvoResource::Uri(), url}};
    return ZuvoRoles(QVariantHash{
        {ZuvoRoles::MediaData(), QVariantHash{{ZuvoMediaData::Resources(), QVariantList{resource}}}}});
}

class HostilePeersTest : public ::testing::Test {
protected:
    void SetUp() override { (new PlayListParseNode(NodePath))->setNodes(root.nodes()); } // registry-owned

    // How often a reply completed and, read at once as a client does (a list
    // node goes after 10 s unused), the first and the last two rows of the
    // list it named.
    struct Seen {
        int completions = 0;
        ZuvoRowsRoles firstRows, lastRows;
    };

    CMReply<QVariant> request(const QString& url) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(NodePath, itemAt(url), reply);
        reply.onFinished(&watcher, [this](const CMReply<QVariant>& r) {
            ++seen[r].completions;
            if (r.hasError())
                return;
            const int count = (seen[r].firstRows = rows(r, 0, 9)).rowsCount();
            seen[r].lastRows = rows(r, qMax(0, count - 2), count - 1);
        });
        return reply;
    }

    static ZuvoRowsRoles rows(const CMReply<QVariant>& reply, int fromRow, int toRow) {
        CMReply<ZuvoRowsRoles> rowsReply;
        CMRoot()->getRows(CMPath::fromEncoded(reply.value().toString()), fromRow, toRow, 0,
                          {ZuvoRoles::MediaData()}, rowsReply);
        EXPECT_TRUE(rowsReply.isFinished() && !rowsReply.hasError()) << rowsReply.error();
        return rowsReply.value();
    }

    static QString uriOfRow(const ZuvoRowsRoles& answer, int i) {
        const QVariantList values = answer.rows().toList().value(i).toList();
        return ZuvoMediaData(values.value(0).toHash()).resources().value(0).uri();
    }

    // Each job owns its HTTP client, whose connections go with it.
    bool allDownloadsGone() {
        return waitUntil([&] { return server.openConnections() == 0; }, WaitMs);
    }

    CMRootScope root;
    HttpTestServer server;
    QObject watcher;
    QHash<CMVoidReply, Seen> seen; // by reply identity
};

// The longest gap between the ticks of a 5 ms timer on this thread, in wall
// time and in CPU time of this thread (the work that held up the event loop,
// without the time the kernel gave to other processes of a busy machine), and
// the most threads of the process seen at a tick.
class StallProbe {
public:
    StallProbe() {
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 wall = ns(CLOCK_MONOTONIC), cpu = ns(CLOCK_THREAD_CPUTIME_ID);
            longestWallMs = qMax(longestWallMs, (wall - m_lastWall) / 1e6);
            longestCpuMs = qMax(longestCpuMs, (cpu - m_lastCpu) / 1e6);
            m_lastWall = wall;
            m_lastCpu = cpu;
            mostThreads = qMax(mostThreads, threadCount());
        });
        m_timer.start(5);
    }
    static int threadCount() {
        return QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    }
    static qint64 ns(clockid_t clock) {
        timespec now{};
        clock_gettime(clock, &now);
        return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
    }

    double longestWallMs = 0;
    double longestCpuMs = 0;
    int mostThreads = 0;

private:
    QTimer m_timer;
    qint64 m_lastWall = ns(CLOCK_MONOTONIC);
    qint64 m_lastCpu = ns(CLOCK_THREAD_CPUTIME_ID);
};

TEST_F(HostilePeersTest, PlaylistDownloadsNeverStallTheEventLoopNorStartThreads) {
    const struct {
        const char* name;
        int fetches;
        std::function<void(const QString& path)> setUp;
    } peers[] = {
        {"header flood", 1, [&](const QString& path) { server.setHeaderFlood(path, 100000); }},
        {"endless body", 1, [&](const QString& path) { server.setEndless(path); }},
        {"deflate bomb", 1,
         [&](const QString& path) { server.setDeflate(path, QByteArray(int(4 * Limit), 'x')); }},
        {"100 concurrent", 100,
         [&](const QString& path) { server.setResponse(path, 200, "#EXTM3U\n" + QByteArray(20000, 'e')); }},
    };
    int index = 0;
    for (const auto& peer : peers) {
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
        // Budgets scale with ZUVO_TEST_TIME_SCALE (sanitizers, emulation). The
        // wall-time bound is loose, since a busy machine preempts the thread
        // for hundreds of milliseconds: it catches a thread blocked on a peer.
        EXPECT_LT(probe.longestCpuMs, zuvotest::scaledMs(50));
        EXPECT_LT(probe.longestWallMs, zuvotest::scaledMs(1000));
        EXPECT_LE(probe.mostThreads, threadsBefore + 2);
    }
    EXPECT_TRUE(allDownloadsGone());
}

TEST_F(HostilePeersTest, HundredConcurrentFetchesAmongHostilePeersEachEndOnce) {
    // Entry lines of 600 bytes: 10000 of them (the row limit) would pass the
    // read limit, so the rows of a cut document show where it was cut. The
    // body holds exactly Limit bytes: the whole lines that fit, then the start
    // of one more line, which still counts as an entry.
    const QByteArray head = "#EXTM3U\n";
    const QByteArray line = "track-" + QByteArray(589, 'x') + ".mp3\n";
    QByteArray document = head;
    while (document.size() < 2 * Limit)
        document += line;
    const int wholeLines = int((Limit - head.size()) / line.size());
    const int cutLength = int((Limit - head.size()) % line.size());
    ASSERT_GT(cutLength, 0);
    ASSERT_LT(HttpTestServer::deflate(document).size(), Limit / 50) << "a small download that inflates";
    HttpTestRoute chunked; // no length announced up front
    chunked.body = document;
    chunked.framing = HttpTestRoute::Framing::Chunked;

    const struct Kind {
        const char* name;
        int count;
        std::function<void(const QString& path, int i)> setUp;
        int rows;      // of the list it names; 0: the request fails as unknownFormat
        bool endsLate; // only the fetch time-out ends it (shortened here)
    } kinds[] = {
        {"good", 46,
         [&](const QString& path, int i) {
             QByteArray body = "#EXTM3U\n";
             for (int n = 0; n <= i % 5; ++n)
                 body += "entry" + QByteArray::number(i) + "-" + QByteArray::number(n) + ".mp3\n";
             server.setResponse(path, 200, body);
         },
         -1, false},
        {"trickle", 8,
         [&](const QString& path, int) { server.setTrickle(path, "#EXTM3U\nx.mp3\n", 1, 1000); }, 0, true},
        {"silent", 8, [&](const QString& path, int) { server.setNeverAnswer(path); }, 0, true},
        {"hang-up", 8, [&](const QString& path, int) { server.setCloseWithoutAnswer(path); }, 0, false},
        {"redirect loop", 8, [&](const QString& path, int) { server.setRedirect(path, path); }, 0, false},
        {"endless", 4, [&](const QString& path, int) { server.setEndless(path); }, 0, false},
        {"header flood", 4, [&](const QString& path, int) { server.setHeaderFlood(path, 100000); }, 0, false},
        // A 404 still carries a playlist body, and the status is not examined.
        {"missing", 8, [&](const QString& path, int) { server.setResponse(path, 404, "#EXTM3U\nno.mp3\n"); },
         1, false},
        {"oversize", 2, [&](const QString& path, int) { server.setRoute(path, chunked); }, wholeLines + 1,
         false},
        {"deflate bomb", 4, [&](const QString& path, int) { server.setDeflate(path, document); },
         wholeLines + 1, false},
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

    const QString base = server.url(QStringLiteral("/"));
    QSet<QString> listPaths;
    for (const Sent& s : sent) {
        SCOPED_TRACE(std::string(s.kind->name) + " " + std::to_string(s.i));
        EXPECT_EQ(seen[s.reply].completions, 1);
        if (s.kind->rows == 0) {
            EXPECT_EQ(s.reply.error().name(), QStringLiteral("unknownFormat"));
            continue;
        }
        ASSERT_FALSE(s.reply.hasError()) << s.reply.error();
        listPaths.insert(s.reply.value().toString());
        const Seen& answer = seen[s.reply];
        EXPECT_EQ(answer.firstRows.rowsCount(), s.kind->rows < 0 ? s.i % 5 + 1 : s.kind->rows);
        EXPECT_TRUE(s.kind->rows > 0 ||
                    uriOfRow(answer.firstRows, 0).endsWith(QStringLiteral("/entry%1-0.mp3").arg(s.i)));
        if (s.kind->rows > 1) {
            EXPECT_EQ(uriOfRow(answer.lastRows, 0), base + QString::fromLatin1(line.trimmed()));
            EXPECT_EQ(uriOfRow(answer.lastRows, 1), base + QString::fromLatin1(line.left(cutLength)));
        }
    }
    EXPECT_EQ(listPaths.size(), 60) << "one list node per parsed playlist";
    EXPECT_TRUE(allDownloadsGone());
}

} // namespace
