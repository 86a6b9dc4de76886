#include <QFile>
#include <QTemporaryDir>
#include <QUrl>
#include <climits>
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

using zuvotest::HttpTestServer;
using zuvotest::waitUntil;

namespace {

constexpr int WaitMs = 15000;
const CMPath NodePath("/playlistParser");

ZuvoResource resourceAt(const QString& uri) {
    ZuvoResource resource;
    resource.setUri(uri);
    return resource;
}

// An item of the service "svc" whose resources are the given URIs.
ZuvoRoles itemWith(const QStringList& uris) {
    ZuvoList<ZuvoResource> resources;
    for (const QString& uri : uris)
        resources.append(resourceAt(uri));
    ZuvoMetaData metaData;
    metaData.setServiceID(QStringLiteral("svc"));
    ZuvoMediaData mediaData;
    mediaData.setMetaData(metaData);
    mediaData.setResources(resources);
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

class PlayListParseNodeTest : public ::testing::Test {
protected:
    void SetUp() override {
        node = new PlayListParseNode(NodePath); // owned by the registry
        node->setNodes(root.nodes());
    }

    CMReply<QVariant> request(const QVariant& roles) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(NodePath, roles, reply);
        return reply;
    }

    // Parses the playlist at url and returns the finished reply.
    CMReply<QVariant> parse(const QString& url) {
        const CMReply<QVariant> reply = request(itemWith({url}).__variant());
        EXPECT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs)) << url.toStdString();
        return reply;
    }

    // The URIs of the rows of a list node, whose rows are audio items of "svc".
    static QStringList rowsOf(const QString& path) {
        CMReply<ZuvoRowsRoles> reply;
        CMRoot()->getRows(CMPath::fromEncoded(path), 0, 99, 0, {ZuvoRoles::MediaData(), ZuvoRoles::Type()},
                          reply);
        EXPECT_TRUE(reply.isFinished()) << "get-rows must be answered at once";
        EXPECT_FALSE(reply.hasError()) << reply.error();
        QStringList uris;
        for (const QVariant& value : reply.value().rows().toList()) {
            const QVariantList row = value.toList();
            const ZuvoMediaData mediaData(row.value(0).toHash());
            EXPECT_EQ(row.value(1).toInt(), 3);
            EXPECT_EQ(mediaData.metaData().serviceID(), QStringLiteral("svc"));
            uris.append(mediaData.resources().value(0).uri());
        }
        EXPECT_EQ(reply.value().rowsCount(), uris.size());
        return uris;
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

} // namespace

// Every URL ends as a list node, numbered per successful parse, whose rows
// resolve against the URL, see its Content-Type and carry the requesting
// service; or, whatever went wrong on the way, as unknownFormat.
TEST_F(PlayListParseNodeTest, UrlsBecomeListNodesOrUnknownFormat) {
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("local.m3u")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#EXTM3U\nsongs/near.mp3\n");
    file.close();
    const QByteArray ini = "[Reference]\r\nRef1=http://wm.example.com/live\r\n";
    server.setResponse(QStringLiteral("/lists/a.m3u"), 200, "#EXTM3U\nsub/a.mp3\nb.mp3\n");
    server.setResponse(QStringLiteral("/asf.ini"), 200, ini, {{"Content-Type", "video/x-ms-asf"}});
    server.setResponse(QStringLiteral("/plain.ini"), 200, ini,
                       {{"Content-Type", "video/x-ms-asf; charset=utf-8"}});
    server.setResponse(QStringLiteral("/text"), 200, "nothing");
    server.setResponse(QStringLiteral("/missing"), 404, "<html>Not Found</html>",
                       {{"Content-Type", "text/html"}});
    server.setNeverAnswer(QStringLiteral("/silent"));
    server.setCloseWithoutAnswer(QStringLiteral("/hangup"));
    server.setEndless(QStringLiteral("/huge"));
    server.setRedirect(QStringLiteral("/loop-a"), server.url(QStringLiteral("/loop-b")));
    server.setRedirect(QStringLiteral("/loop-b"), server.url(QStringLiteral("/loop-a")));
    struct Case {
        QString url;
        int rows; // -1: unknownFormat
        QString firstUri;
        bool allowLocalFiles = false;
    };
    const QString local = QUrl::fromLocalFile(file.fileName()).toString();
    const Case cases[] = {
        {server.url(QStringLiteral("/lists/a.m3u")), 2, server.url(QStringLiteral("/lists/sub/a.mp3"))},
        {server.url(QStringLiteral("/text")), -1, QString()},
        {server.url(QStringLiteral("/asf.ini")), 1, QStringLiteral("mmsh://wm.example.com/live")},
        {server.url(QStringLiteral("/plain.ini")), 1, QStringLiteral("http://wm.example.com/live")},
        {server.url(QStringLiteral("/missing")), -1, QString()},
        {server.url(QStringLiteral("/silent")), -1, QString()},
        {server.url(QStringLiteral("/hangup")), -1, QString()},
        {server.url(QStringLiteral("/huge")), -1, QString()},
        {server.url(QStringLiteral("/loop-a")), -1, QString()},
        {QStringLiteral("http://127.0.0.1:%1/refused.m3u").arg(HttpTestServer::unusedPort()), -1, QString()},
        {local, -1, QString()},
        {local, 1, QUrl::fromLocalFile(dir.filePath(QStringLiteral("songs/near.mp3"))).toString(), true},
    };
    PlayListData::setFetchTimeoutForTesting(300);
    int listNodes = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url.toStdString());
        node->setAllowLocalFiles(c.allowLocalFiles);
        LogCapture capture;
        const CMReply<QVariant> reply = parse(c.url);
        EXPECT_TRUE(
            capture.contains(log4cplus::INFO_LOG_LEVEL, QStringLiteral("Parsing playlist at uri: ") + c.url));
        EXPECT_EQ(capture.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("Unknown format found.")),
                  c.rows < 0);
        if (c.rows < 0) {
            expectError(reply, "unknownFormat", "Unknown playlist format detected.");
            continue;
        }
        ASSERT_FALSE(reply.hasError()) << reply.error();
        EXPECT_EQ(reply.value().toString(), QStringLiteral("/playlistParser/%1").arg(listNodes++));
        const QStringList uris = rowsOf(reply.value().toString());
        EXPECT_EQ(uris.size(), c.rows);
        EXPECT_EQ(uris.value(0), c.firstUri);
    }
    PlayListData::setFetchTimeoutForTesting(0);
    EXPECT_EQ(root.nodes()->allNodes().size(), 1 + listNodes);

    // A list node goes after its unused interval.
    const CMPath listPath("/playlistParser/0");
    auto* timer =
        root.nodes()->node(listPath)->findChild<CMUnusedNodeTimer*>(QStringLiteral("unusedNodeTimer"));
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval(), 10000);
    timer->setInterval(100);
    ASSERT_TRUE(waitUntil([&] { return root.nodes()->node(listPath) == nullptr; }, WaitMs));
    CMReply<ZuvoRowsRoles> reply;
    CMRoot()->getRows(listPath, 0, 0, 0, {}, reply);
    EXPECT_TRUE(reply.isFinished() && reply.hasError());
}

TEST_F(PlayListParseNodeTest, RequestWithoutUrlFailsAtOnce) {
    ZuvoRoles activeWithoutUri = itemWith({});
    ZuvoMediaData mediaData = activeWithoutUri.mediaData();
    mediaData.setActiveResource(resourceAt(QString()));
    activeWithoutUri.setMediaData(mediaData);
    const QVariant requests[] = {
        ZuvoRoles().__variant(),
        itemWith({}).__variant(),
        itemWith({QString(), QStringLiteral("http://h/second.m3u")}).__variant(),
        activeWithoutUri.__variant(),
        QVariant(42),
    };
    for (const QVariant& r : requests) {
        SCOPED_TRACE(r.toString().toStdString());
        LogCapture capture;
        expectError(request(r), "emptyUrl", "URL is empty in request!");
        EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("URL is empty in request!")));
    }
}

TEST_F(PlayListParseNodeTest, UrlComesFromTheActiveResourceElseTheFirstResource) {
    for (const char* path : {"/active.m3u", "/first.m3u", "/second.m3u"})
        server.setResponse(QString::fromLatin1(path), 200, "#EXTM3U\na.mp3\n");
    const std::vector<std::pair<QVariantHash, QString>> cases = {
        {resourceAt(server.url(QStringLiteral("/active.m3u"))).__hash(), QStringLiteral("/active.m3u")},
        {resourceAt(QString()).__hash(), QStringLiteral("/first.m3u")},
        {QVariantHash(), QStringLiteral("/first.m3u")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.second.toStdString());
        ZuvoRoles roles =
            itemWith({server.url(QStringLiteral("/first.m3u")), server.url(QStringLiteral("/second.m3u"))});
        ZuvoMediaData mediaData = roles.mediaData();
        mediaData.setActiveResource(ZuvoResource(c.first));
        roles.setMediaData(mediaData);
        const int before = server.requestCount(c.second);
        const CMReply<QVariant> reply = request(roles.__variant());
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs));
        EXPECT_FALSE(reply.hasError()) << reply.error();
        EXPECT_EQ(server.requestCount(c.second), before + 1);
    }
    EXPECT_EQ(server.requestCount(QStringLiteral("/second.m3u")), 0);
}

TEST_F(PlayListParseNodeTest, ParallelRequestsEachGetTheirOwnAnswer) {
    server.setTrickle(QStringLiteral("/slow.m3u"), "#EXTM3U\nslow.mp3\n", 4, 20);
    server.setResponse(QStringLiteral("/fast.m3u"), 200, "#EXTM3U\nfast.mp3\nfast2.mp3\n");
    const CMReply<QVariant> slow = request(itemWith({server.url(QStringLiteral("/slow.m3u"))}).__variant());
    const CMReply<QVariant> fast = request(itemWith({server.url(QStringLiteral("/fast.m3u"))}).__variant());
    ASSERT_TRUE(waitUntil([&] { return slow.isFinished() && fast.isFinished(); }, WaitMs));
    EXPECT_EQ(rowsOf(slow.value().toString()).size(), 1);
    EXPECT_EQ(rowsOf(fast.value().toString()).size(), 2);
}

TEST_F(PlayListParseNodeTest, DestroyedNodeFailsRunningJobs) {
    server.setNeverAnswer(QStringLiteral("/silent"));
    const CMReply<QVariant> replies[] = {
        request(itemWith({server.url(QStringLiteral("/silent"))}).__variant()),
        request(itemWith({server.url(QStringLiteral("/silent"))}).__variant())};
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/silent")) == 2; }, WaitMs));
    EXPECT_FALSE(replies[0].isFinished());

    delete node;
    for (const CMReply<QVariant>& reply : replies)
        expectError(reply, "PlayListParseNodeIsDeleted", "PlayListParseNode is being destroyed");
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
    (new PlayListListNode(CMPath("/list"), rows))->setNodes(root.nodes()); // owned by the registry

    struct Case {
        int fromRow;
        int toRow;
        QString rows;         // per row its title and type, "" outside the list
        bool refused = false; // more than 3 + 1024 entries
    };
    const std::vector<Case> cases = {
        {1, 1, "one3"},
        {2, 99, "two3"},
        {0, INT_MAX, "zero3,one3,two3"},
        {3, 9, ""},
        {2, 1, ""},
        {-2, 0, ",,zero3"},
        {-1024, INT_MAX, QString(PlayListListNode::MaxRowsOutsideList, QLatin1Char(',')) + "zero3,one3,two3"},
        {-1025, 2, "", true},
        {INT_MIN, INT_MAX, "", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.fromRow << ".." << c.toRow);
        CMReply<ZuvoRowsRoles> reply;
        CMRoot()->getRows(CMPath("/list"), c.fromRow, c.toRow, 0,
                          {ZuvoRoles::Title(), QStringLiteral("nope"), ZuvoRoles::Type()}, reply);
        ASSERT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().name(), c.refused ? QStringLiteral("rowRangeTooLarge") : QString());
        EXPECT_EQ(reply.value().rowsCount(), c.refused ? 0 : 3);
        QStringList rows;
        for (const QVariant& value : reply.value().rows().toList()) {
            const QVariantList row = value.toList();
            EXPECT_EQ(row.size(), 3);
            EXPECT_FALSE(row.value(1).isValid()) << "a missing key reads as an invalid variant";
            rows.append(row.value(0).toString() + row.value(2).toString());
        }
        EXPECT_EQ(rows.join(QLatin1Char(',')).toStdString(), c.rows.toStdString());
    }

    // Parameters do not change the node's path; a path below it is not served.
    CMReply<ZuvoRowsRoles> withParams;
    CMRoot()->getRows(CMPath("/list?sort=title"), 0, 0, 0, {ZuvoRoles::Title()}, withParams);
    EXPECT_EQ(withParams.value().rowsCount(), 3);
    CMReply<ZuvoRowsRoles> below;
    CMRoot()->getRows(CMPath("/list/sub"), 0, 0, 0, {ZuvoRoles::Title()}, below);
    EXPECT_EQ(below.error().name(), QStringLiteral("NotSupported"));
}
