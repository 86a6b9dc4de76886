#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QUrl>
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

#include "logging.h"
#include "model/cmnodes.h"
#include "model/cmunusednodetimer.h"
#include "playlistdata.h"
#include "playlistparsenode.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/logcapture.h"

using zuvotest::HttpTestRoute;
using zuvotest::HttpTestServer;
using zuvotest::waitUntil;

namespace {

constexpr int WaitMs = 15000;
const CMPath NodePath("/playlistParser");

QByteArray readDataFile(const QString& name) {
    // ZUVO_TEST_DATA is set by CTest; the source tree's copy serves direct runs.
    const QString dir = qEnvironmentVariable(
        "ZUVO_TEST_DATA", QFileInfo(QStringLiteral(__FILE__)).dir().filePath(QStringLiteral("../../data")));
    QFile file(QDir(dir).filePath(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName();
    return file.readAll();
}

ZuvoResource resourceAt(const QString& uri) {
    ZuvoResource resource;
    resource.setUri(uri);
    return resource;
}

// An item whose resources are the given URIs.
ZuvoRoles itemWith(const QStringList& uris, const QString& serviceId = QString()) {
    ZuvoList<ZuvoResource> resources;
    for (const QString& uri : uris)
        resources.append(resourceAt(uri));
    ZuvoMetaData metaData;
    metaData.setServiceID(serviceId);
    ZuvoMediaData mediaData;
    mediaData.setMetaData(metaData);
    mediaData.setResources(resources);
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

// The row values of a get-rows answer.
QList<QVariantList> valuesOf(const ZuvoRowsRoles& answer) {
    QList<QVariantList> out;
    const QVariantList rows = answer.rows().toList();
    for (const QVariant& row : rows)
        out.append(row.toList());
    return out;
}

QString uriOf(const QVariant& mediaData) {
    return ZuvoMediaData(mediaData.toHash()).resources().value(0).uri();
}

class PlayListParseNodeTest : public ::testing::Test {
protected:
    void SetUp() override {
        node = new PlayListParseNode(NodePath); // owned by the registry
        node->setNodes(root.nodes());
    }

    CMReply<QVariant> request(const ZuvoRoles& roles) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(NodePath, roles, reply);
        return reply;
    }

    // Parses the playlist at url and returns the finished reply.
    CMReply<QVariant> parse(const QString& url) {
        const CMReply<QVariant> reply = request(itemWith({url}));
        EXPECT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs)) << url.toStdString();
        return reply;
    }

    static ZuvoRowsRoles getRows(const QString& path, int fromRow, int toRow, const QStringList& roles) {
        CMReply<ZuvoRowsRoles> reply;
        CMRoot()->getRows(CMPath::fromEncoded(path), fromRow, toRow, 0, roles, reply);
        EXPECT_TRUE(reply.isFinished()) << "get-rows must be answered at once";
        EXPECT_FALSE(reply.hasError()) << reply.error();
        return reply.value();
    }

    static void expectError(const CMReply<QVariant>& reply, const char* name, const char* message) {
        ASSERT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().name(), QString::fromLatin1(name));
        EXPECT_EQ(reply.error().message(), QString::fromLatin1(message));
        EXPECT_EQ(reply.error().title(), CMError::DefaultTitle().toString());
    }

    CMRootScope root;
    HttpTestServer server;
    PlayListParseNode* node = nullptr;
};

// Shortens the fetch time-out for the life of the guard.
class FetchTimeout {
public:
    explicit FetchTimeout(int ms) { PlayListData::setFetchTimeoutForTesting(ms); }
    ~FetchTimeout() { PlayListData::setFetchTimeoutForTesting(0); }
};

} // namespace

TEST_F(PlayListParseNodeTest, EveryFormatServedBecomesAListNode) {
    struct Case {
        const char* file;
        QByteArray contentType;
        int rows;
        QString firstUri; // of the row with the lowest index
    };
    const QString base = server.url(QStringLiteral("/lists/"));
    const std::vector<Case> cases = {
        {"station.asx", "video/x-ms-asf", 4, QStringLiteral("mms://media.example.com/live")},
        {"stream.ini", "video/x-ms-asf", 4, QStringLiteral("mmsh://wm.example.com/live?MSWMExt=.asf")},
        {"stream.ini", "video/x-ms-asf; charset=utf-8", 4,
         QStringLiteral("http://wm.example.com/live?MSWMExt=.asf")},
        {"party.m3u", "audio/x-mpegurl", 5, base + QStringLiteral("music/around the world.mp3")},
        {"utf16.m3u", "", 1, base + QStringLiteral("hopp\u00edpolla.mp3")},
        {"radio.pls", "audio/x-scpls", 3, QString()},
        {"library.wpl", "application/vnd.ms-wpl", 4,
         base + QStringLiteral("../Music/Air/Moon Safari/01 La femme d'argent.mp3")},
        {"urls.txt", "text/plain", 4, QStringLiteral("http://ice.example.net/jazz.mp3")},
    };
    int served = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const QString path = QStringLiteral("/lists/%1-%2").arg(served).arg(QString::fromLatin1(c.file));
        HttpTestServer::Headers headers;
        if (!c.contentType.isEmpty())
            headers.append({"Content-Type", c.contentType});
        server.setResponse(path, 200, readDataFile(QString::fromLatin1(c.file)), headers);

        const CMReply<QVariant> reply = parse(server.url(path));
        ASSERT_FALSE(reply.hasError()) << reply.error();
        const QString listPath = reply.value().toString();
        EXPECT_EQ(listPath, NodePath.toEncoded() + QStringLiteral("/%1").arg(served++));

        const ZuvoRowsRoles answer =
            getRows(listPath, 0, 99, {ZuvoRoles::Title(), ZuvoRoles::MediaData(), ZuvoRoles::Type()});
        EXPECT_EQ(answer.rowsCount(), c.rows);
        const QList<QVariantList> rows = valuesOf(answer);
        ASSERT_EQ(rows.size(), c.rows);
        for (const QVariantList& row : rows) {
            EXPECT_EQ(row.value(2).toInt(), 3);
        }
        if (!c.firstUri.isNull()) {
            EXPECT_EQ(uriOf(rows.first().value(1)), c.firstUri);
        }
    }
}

TEST_F(PlayListParseNodeTest, RowsCarryTheServiceOfTheRequest) {
    server.setResponse(QStringLiteral("/a.m3u"), 200, "#EXTM3U\nx.mp3\n");
    const CMReply<QVariant> reply =
        request(itemWith({server.url(QStringLiteral("/a.m3u"))}, QStringLiteral("svc")));
    ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs));
    const QList<QVariantList> rows =
        valuesOf(getRows(reply.value().toString(), 0, 0, {ZuvoRoles::MediaData()}));
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(ZuvoMediaData(rows.first().value(0).toHash()).metaData().serviceID(), QStringLiteral("svc"));
}

TEST_F(PlayListParseNodeTest, FailedDownloadsEndAsUnknownFormat) {
    const FetchTimeout shortened(300);
    server.setResponse(QStringLiteral("/missing"), 404, "<html><body>Not Found</body></html>",
                       {{"Content-Type", "text/html"}});
    server.setResponse(QStringLiteral("/empty"), 200, QByteArray());
    server.setResponse(QStringLiteral("/text"), 200, "just some text\n", {{"Content-Type", "text/plain"}});
    server.setNeverAnswer(QStringLiteral("/silent"));
    server.setCloseWithoutAnswer(QStringLiteral("/hangup"));
    server.setEndless(QStringLiteral("/huge"));
    server.setRedirect(QStringLiteral("/loop-a"), server.url(QStringLiteral("/loop-b")));
    server.setRedirect(QStringLiteral("/loop-b"), server.url(QStringLiteral("/loop-a")));
    const QString urls[] = {
        server.url(QStringLiteral("/missing")),
        server.url(QStringLiteral("/empty")),
        server.url(QStringLiteral("/text")),
        server.url(QStringLiteral("/silent")),
        server.url(QStringLiteral("/hangup")),
        server.url(QStringLiteral("/huge")),
        server.url(QStringLiteral("/loop-a")),
        QStringLiteral("http://127.0.0.1:%1/refused.m3u").arg(HttpTestServer::unusedPort()),
        QStringLiteral("file:///etc/hostname"),
    };
    for (const QString& url : urls) {
        SCOPED_TRACE(url.toStdString());
        LogCapture capture;
        const CMReply<QVariant> reply = parse(url);
        expectError(reply, "unknownFormat", "Unknown playlist format detected.");
        EXPECT_TRUE(
            capture.contains(log4cplus::INFO_LOG_LEVEL, QStringLiteral("Parsing playlist at uri: ") + url));
        EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("Unknown format found.")));
    }
    EXPECT_EQ(root.nodes()->allNodes().size(), 1) << "no list node for a failure";
}

TEST_F(PlayListParseNodeTest, LocalFilesAreReadOnlyWhenAllowed) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QFile file(dir.filePath(QStringLiteral("local.m3u")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#EXTM3U\n#EXTINF:5,Near\nsongs/near.mp3\nhttp://h/far.mp3\n");
    file.close();
    const QString url = QUrl::fromLocalFile(file.fileName()).toString();

    expectError(parse(url), "unknownFormat", "Unknown playlist format detected.");

    node->setAllowLocalFiles(true);
    const CMReply<QVariant> reply = parse(url);
    ASSERT_FALSE(reply.hasError()) << reply.error();
    const QList<QVariantList> rows =
        valuesOf(getRows(reply.value().toString(), 0, 9, {ZuvoRoles::MediaData()}));
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(uriOf(rows.at(0).value(0)),
              QUrl::fromLocalFile(dir.filePath(QStringLiteral("songs/near.mp3"))).toString())
        << "relative entries resolve against the file's folder";
    EXPECT_EQ(uriOf(rows.at(1).value(0)), QStringLiteral("http://h/far.mp3"));
}

TEST_F(PlayListParseNodeTest, RequestWithoutUrlFailsAtOnce) {
    ZuvoRoles activeWithoutUri = itemWith({});
    ZuvoMediaData mediaData = activeWithoutUri.mediaData();
    mediaData.setActiveResource(resourceAt(QString()));
    activeWithoutUri.setMediaData(mediaData);
    const std::vector<std::pair<const char*, QVariant>> requests = {
        {"no media data", ZuvoRoles().__variant()},
        {"no resources", itemWith({}).__variant()},
        {"empty URIs", itemWith({QString(), QStringLiteral("http://h/second.m3u")}).__variant()},
        {"empty active resource", activeWithoutUri.__variant()},
        {"not a hash", QVariant(42)},
    };
    for (const auto& r : requests) {
        SCOPED_TRACE(r.first);
        LogCapture capture;
        CMReply<QVariant> reply;
        CMRoot()->invoke(NodePath, r.second, reply);
        expectError(reply, "emptyUrl", "URL is empty in request!");
        EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("URL is empty in request!")));
    }
}

TEST_F(PlayListParseNodeTest, UrlComesFromTheActiveResourceElseTheFirstResource) {
    server.setResponse(QStringLiteral("/active.m3u"), 200, "#EXTM3U\na.mp3\n");
    server.setResponse(QStringLiteral("/first.m3u"), 200, "#EXTM3U\nb.mp3\n");
    server.setResponse(QStringLiteral("/second.m3u"), 200, "#EXTM3U\nc.mp3\n");
    const QStringList resources = {server.url(QStringLiteral("/first.m3u")),
                                   server.url(QStringLiteral("/second.m3u"))};

    struct Case {
        const char* name;
        QVariantHash active; // the active resource's hash
        QString fetched;
    };
    const std::vector<Case> cases = {
        {"active resource", resourceAt(server.url(QStringLiteral("/active.m3u"))).__hash(),
         QStringLiteral("/active.m3u")},
        {"active resource without URI", resourceAt(QString()).__hash(), QStringLiteral("/first.m3u")},
        {"no active resource", QVariantHash(), QStringLiteral("/first.m3u")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ZuvoRoles roles = itemWith(resources);
        ZuvoMediaData mediaData = roles.mediaData();
        mediaData.setActiveResource(ZuvoResource(c.active));
        roles.setMediaData(mediaData);
        const int before = server.requestCount(c.fetched);
        const CMReply<QVariant> reply = request(roles);
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs));
        EXPECT_FALSE(reply.hasError()) << reply.error();
        EXPECT_EQ(server.requestCount(c.fetched), before + 1);
    }
    EXPECT_EQ(server.requestCount(QStringLiteral("/second.m3u")), 0);
}

TEST_F(PlayListParseNodeTest, ListNodesAreNumberedPerSuccessfulParse) {
    server.setResponse(QStringLiteral("/a.m3u"), 200, "#EXTM3U\na.mp3\n");
    server.setResponse(QStringLiteral("/bad"), 200, "nothing");
    EXPECT_EQ(parse(server.url(QStringLiteral("/a.m3u"))).value().toString(),
              QStringLiteral("/playlistParser/0"));
    EXPECT_TRUE(parse(server.url(QStringLiteral("/bad"))).hasError());
    EXPECT_EQ(parse(server.url(QStringLiteral("/a.m3u"))).value().toString(),
              QStringLiteral("/playlistParser/1"));
    EXPECT_NE(root.nodes()->node(CMPath("/playlistParser/0")), nullptr);
    EXPECT_NE(root.nodes()->node(CMPath("/playlistParser/1")), nullptr);
}

TEST_F(PlayListParseNodeTest, ParallelRequestsEachGetTheirOwnAnswer) {
    server.setTrickle(QStringLiteral("/slow.m3u"), "#EXTM3U\nslow.mp3\n", 4, 20);
    server.setResponse(QStringLiteral("/fast.m3u"), 200, "#EXTM3U\nfast.mp3\nfast2.mp3\n");
    const CMReply<QVariant> slow = request(itemWith({server.url(QStringLiteral("/slow.m3u"))}));
    const CMReply<QVariant> fast = request(itemWith({server.url(QStringLiteral("/fast.m3u"))}));
    ASSERT_TRUE(waitUntil([&] { return slow.isFinished() && fast.isFinished(); }, WaitMs));
    EXPECT_EQ(getRows(slow.value().toString(), 0, 9, {}).rowsCount(), 1);
    EXPECT_EQ(getRows(fast.value().toString(), 0, 9, {}).rowsCount(), 2);
}

TEST_F(PlayListParseNodeTest, ListNodeGoesAfterTheUnusedInterval) {
    server.setResponse(QStringLiteral("/a.m3u"), 200, "#EXTM3U\na.mp3\n");
    const CMPath listPath =
        CMPath::fromEncoded(parse(server.url(QStringLiteral("/a.m3u"))).value().toString());
    CMNode* list = root.nodes()->node(listPath);
    ASSERT_NE(list, nullptr);
    auto* timer = list->findChild<CMUnusedNodeTimer*>(QStringLiteral("unusedNodeTimer"));
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval(), 10000);

    timer->setInterval(100);
    ASSERT_TRUE(waitUntil([&] { return root.nodes()->node(listPath) == nullptr; }, WaitMs));
    CMReply<ZuvoRowsRoles> reply;
    CMRoot()->getRows(listPath, 0, 0, 0, {}, reply);
    EXPECT_TRUE(reply.isFinished());
    EXPECT_TRUE(reply.hasError());
}

TEST_F(PlayListParseNodeTest, DestroyedNodeFailsRunningJobs) {
    server.setNeverAnswer(QStringLiteral("/silent"));
    const CMReply<QVariant> first = request(itemWith({server.url(QStringLiteral("/silent"))}));
    const CMReply<QVariant> second = request(itemWith({server.url(QStringLiteral("/silent"))}));
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/silent")) == 2; }, WaitMs));
    EXPECT_FALSE(first.isFinished());

    delete node;
    node = nullptr;
    expectError(first, "PlayListParseNodeIsDeleted", "PlayListParseNode is being destroyed");
    expectError(second, "PlayListParseNodeIsDeleted", "PlayListParseNode is being destroyed");
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    zuvotest::drainEvents();
    EXPECT_TRUE(root.nodes()->allNodes().isEmpty());
}

TEST(PlayListListNode, GetRowsProtocol) {
    CMRootScope root;
    QList<QVariant> rows;
    for (const char* title : {"zero", "one", "two"}) {
        ZuvoRoles roles;
        roles.setTitle(QString::fromLatin1(title));
        roles.setType(ZuvoRolesType::audio);
        rows.append(roles.__variant());
    }
    auto* list = new PlayListListNode(CMPath("/list"), rows); // owned by the registry
    list->setNodes(root.nodes());

    struct Case {
        int fromRow;
        int toRow;
        QStringList titles;   // "-" marks a row read outside the list
        bool refused = false; // more than 3 + 1024 entries
    };
    QStringList outside1024;
    for (int i = 0; i < PlayListListNode::MaxRowsOutsideList; ++i)
        outside1024.append(QStringLiteral("-"));
    const std::vector<Case> cases = {
        {0, 2, {"zero", "one", "two"}},
        {1, 1, {"one"}},
        {2, 99, {"two"}},
        {0, INT_MAX, {"zero", "one", "two"}},
        {3, 9, {}},
        {2, 1, {}},
        {0, -1, {}},
        {-2, 0, {"-", "-", "zero"}},
        {-3, 2, {"-", "-", "-", "zero", "one", "two"}},
        {-1024, INT_MAX, outside1024 + QStringList{"zero", "one", "two"}},
        {-1025, 2, {}, true},
        {INT_MIN, 5, {}, true},
        {INT_MIN, INT_MAX, {}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.fromRow << ".." << c.toRow);
        CMReply<ZuvoRowsRoles> reply;
        CMRoot()->getRows(CMPath("/list"), c.fromRow, c.toRow, 0,
                          {ZuvoRoles::Title(), QStringLiteral("nope"), ZuvoRoles::Type()}, reply);
        ASSERT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().name(), c.refused ? QStringLiteral("rowRangeTooLarge") : QString());
        if (c.refused)
            continue;
        EXPECT_EQ(reply.value().rowsCount(), 3);
        const QList<QVariantList> values = valuesOf(reply.value());
        ASSERT_EQ(values.size(), c.titles.size());
        for (int i = 0; i < values.size(); ++i) {
            ASSERT_EQ(values[i].size(), 3);
            EXPECT_FALSE(values[i][1].isValid()) << "a missing key reads as an invalid variant";
            if (c.titles[i] == QStringLiteral("-")) {
                EXPECT_FALSE(values[i][0].isValid());
                EXPECT_FALSE(values[i][2].isValid());
            } else {
                EXPECT_EQ(values[i][0].toString(), c.titles[i]);
                EXPECT_EQ(values[i][2].toInt(), 3);
            }
        }
    }

    // Parameters do not change the node's path; a path below it is not served.
    CMReply<ZuvoRowsRoles> withParams;
    CMRoot()->getRows(CMPath("/list?sort=title"), 0, 0, 0, {ZuvoRoles::Title()}, withParams);
    EXPECT_FALSE(withParams.hasError());
    EXPECT_EQ(withParams.value().rowsCount(), 3);
    CMReply<ZuvoRowsRoles> below;
    CMRoot()->getRows(CMPath("/list/sub"), 0, 0, 0, {ZuvoRoles::Title()}, below);
    EXPECT_TRUE(below.isFinished());
    EXPECT_EQ(below.error().name(), QStringLiteral("NotSupported"));
}
