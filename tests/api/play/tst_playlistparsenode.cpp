#include <QDir>
#include <QFile>
#include <QFileInfo>
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

    // Parses the playlist at url (for the service serviceId) and returns the finished reply.
    CMReply<QVariant> parse(const QString& url, const QString& serviceId = QString()) {
        const CMReply<QVariant> reply = request(itemWith({url}, serviceId).__variant());
        EXPECT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs)) << url.toStdString();
        return reply;
    }

    // The rows of a list node: per row, the values of Title, MediaData and Type.
    static QList<QVariantList> rowsOf(const QString& path, int* rowsCount = nullptr) {
        CMReply<ZuvoRowsRoles> reply;
        CMRoot()->getRows(CMPath::fromEncoded(path), 0, 99, 0,
                          {ZuvoRoles::Title(), ZuvoRoles::MediaData(), ZuvoRoles::Type()}, reply);
        EXPECT_TRUE(reply.isFinished()) << "get-rows must be answered at once";
        EXPECT_FALSE(reply.hasError()) << reply.error();
        if (rowsCount)
            *rowsCount = reply.value().rowsCount();
        QList<QVariantList> out;
        for (const QVariant& row : reply.value().rows().toList())
            out.append(row.toList());
        return out;
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

QString uriOf(const QVariant& mediaData) {
    return ZuvoMediaData(mediaData.toHash()).resources().value(0).uri();
}

} // namespace

// Served playlists become list nodes numbered per successful parse, whose
// rows resolve against the playlist's URL, see its Content-Type and carry the
// requesting service.
TEST_F(PlayListParseNodeTest, ServedPlaylistsBecomeNumberedListNodes) {
    struct Case {
        const char* path;
        QByteArray body;
        QByteArray contentType;
        int rows; // -1: unknownFormat
        QString firstUri;
    };
    const QString base = server.url(QStringLiteral("/lists/"));
    const QByteArray ini = "[Reference]\r\nRef1=http://wm.example.com/live\r\n";
    const std::vector<Case> cases = {
        {"/lists/a.m3u", "#EXTM3U\nsub/a.mp3\nb.mp3\n", "audio/x-mpegurl", 2,
         base + QStringLiteral("sub/a.mp3")},
        {"/lists/bad", "nothing", "text/plain", -1, QString()},
        {"/lists/asf.ini", ini, "video/x-ms-asf", 1, QStringLiteral("mmsh://wm.example.com/live")},
        {"/lists/plain.ini", ini, "video/x-ms-asf; charset=utf-8", 1,
         QStringLiteral("http://wm.example.com/live")},
    };
    int listNodes = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        server.setResponse(QString::fromLatin1(c.path), 200, c.body, {{"Content-Type", c.contentType}});
        const CMReply<QVariant> reply = parse(server.url(QString::fromLatin1(c.path)), QStringLiteral("svc"));
        if (c.rows < 0) {
            expectError(reply, "unknownFormat", "Unknown playlist format detected.");
            continue;
        }
        ASSERT_FALSE(reply.hasError()) << reply.error();
        EXPECT_EQ(reply.value().toString(), QStringLiteral("/playlistParser/%1").arg(listNodes++));
        int rowsCount = 0;
        const QList<QVariantList> rows = rowsOf(reply.value().toString(), &rowsCount);
        EXPECT_EQ(rowsCount, c.rows);
        ASSERT_EQ(rows.size(), c.rows);
        EXPECT_EQ(uriOf(rows.first().value(1)), c.firstUri);
        for (const QVariantList& row : rows) {
            EXPECT_EQ(row.value(2).toInt(), 3);
            EXPECT_EQ(ZuvoMediaData(row.value(1).toHash()).metaData().serviceID(), QStringLiteral("svc"));
        }
    }
    EXPECT_NE(root.nodes()->node(CMPath("/playlistParser/0")), nullptr);
    EXPECT_NE(root.nodes()->node(CMPath("/playlistParser/1")), nullptr);
}

TEST_F(PlayListParseNodeTest, FailedDownloadsEndAsUnknownFormat) {
    PlayListData::setFetchTimeoutForTesting(300);
    server.setResponse(QStringLiteral("/missing"), 404, "<html>Not Found</html>",
                       {{"Content-Type", "text/html"}});
    server.setNeverAnswer(QStringLiteral("/silent"));
    server.setCloseWithoutAnswer(QStringLiteral("/hangup"));
    server.setEndless(QStringLiteral("/huge"));
    server.setRedirect(QStringLiteral("/loop-a"), server.url(QStringLiteral("/loop-b")));
    server.setRedirect(QStringLiteral("/loop-b"), server.url(QStringLiteral("/loop-a")));
    const QString urls[] = {
        server.url(QStringLiteral("/missing")),
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
        expectError(parse(url), "unknownFormat", "Unknown playlist format detected.");
        EXPECT_TRUE(
            capture.contains(log4cplus::INFO_LOG_LEVEL, QStringLiteral("Parsing playlist at uri: ") + url));
        EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QStringLiteral("Unknown format found.")));
    }
    PlayListData::setFetchTimeoutForTesting(0);
    EXPECT_EQ(root.nodes()->allNodes().size(), 1) << "no list node for a failure";
}

TEST_F(PlayListParseNodeTest, LocalFilesAreReadOnlyWhenAllowed) {
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("local.m3u")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#EXTM3U\nsongs/near.mp3\nhttp://h/far.mp3\n");
    file.close();
    const QString url = QUrl::fromLocalFile(file.fileName()).toString();
    expectError(parse(url), "unknownFormat", "Unknown playlist format detected.");

    node->setAllowLocalFiles(true);
    const CMReply<QVariant> reply = parse(url);
    ASSERT_FALSE(reply.hasError()) << reply.error();
    const QList<QVariantList> rows = rowsOf(reply.value().toString());
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(uriOf(rows.at(0).value(1)),
              QUrl::fromLocalFile(dir.filePath(QStringLiteral("songs/near.mp3"))).toString());
    EXPECT_EQ(uriOf(rows.at(1).value(1)), QStringLiteral("http://h/far.mp3"));
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
    EXPECT_TRUE(reply.isFinished() && reply.hasError());
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
        QStringList titles;   // "-" marks a row read outside the list
        bool refused = false; // more than 3 + 1024 entries
    };
    QStringList outside1024;
    for (int i = 0; i < PlayListListNode::MaxRowsOutsideList; ++i)
        outside1024.append(QStringLiteral("-"));
    const std::vector<Case> cases = {
        {1, 1, {"one"}},
        {2, 99, {"two"}},
        {0, INT_MAX, {"zero", "one", "two"}},
        {3, 9, {}},
        {2, 1, {}},
        {-2, 0, {"-", "-", "zero"}},
        {-1024, INT_MAX, outside1024 + QStringList{"zero", "one", "two"}},
        {-1025, 2, {}, true},
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
        const QVariantList values = reply.value().rows().toList();
        ASSERT_EQ(values.size(), c.titles.size());
        for (int i = 0; i < values.size(); ++i) {
            const QVariantList row = values[i].toList();
            ASSERT_EQ(row.size(), 3);
            EXPECT_FALSE(row[1].isValid()) << "a missing key reads as an invalid variant";
            const bool inside = c.titles[i] != QStringLiteral("-");
            EXPECT_EQ(row[0].isValid(), inside);
            EXPECT_EQ(row[2].isValid(), inside);
            if (inside) {
                EXPECT_EQ(row[0].toString(), c.titles[i]);
                EXPECT_EQ(row[2].toInt(), 3);
            }
        }
    }

    // Parameters do not change the node's path; a path below it is not served.
    CMReply<ZuvoRowsRoles> withParams;
    CMRoot()->getRows(CMPath("/list?sort=title"), 0, 0, 0, {ZuvoRoles::Title()}, withParams);
    EXPECT_EQ(withParams.value().rowsCount(), 3);
    CMReply<ZuvoRowsRoles> below;
    CMRoot()->getRows(CMPath("/list/sub"), 0, 0, 0, {ZuvoRoles::Title()}, below);
    EXPECT_EQ(below.error().name(), QStringLiteral("NotSupported"));
}
