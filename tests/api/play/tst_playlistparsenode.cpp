#include <QUrl>
#include <climits>
#include <gtest/gtest.h>
#include <memory>
#include <tuple>
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

// An item of the service "svc": resources at uris, unless null an active one.
QVariant item(const QStringList& uris, const QString& active = QString()) {
    ZuvoList<ZuvoResource> resources; // the active one last
    for (const QString& uri : uris + QStringList(active)) {
        resources.append(ZuvoResource());
        resources.last().setUri(uri);
    }
    ZuvoMediaData mediaData;
    if (!active.isNull())
        mediaData.setActiveResource(resources.last());
    resources.removeLast();
    mediaData.setResources(resources);
    ZuvoMetaData metaData;
    metaData.setServiceID(QStringLiteral("svc"));
    mediaData.setMetaData(metaData);
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles.__variant();
}

class PlayListParseNodeTest : public ::testing::Test {
protected:
    void SetUp() override {
        node = new PlayListParseNode(NodePath); // owned by the registry
        node->setNodes(root.nodes());
        const QByteArray ini = "[Reference]\r\nRef1=http://wm.example.com/live\r\n";
        for (const char* path : {"/a/l.m3u", "/b/l.m3u", "/c/l.m3u"})
            server.setResponse(QString::fromLatin1(path), 200, "#EXTM3U\nsub/x.mp3\ny.mp3\n");
        server.setResponse(QStringLiteral("/asf.ini"), 200, ini, {{"Content-Type", "video/x-ms-asf"}});
        server.setResponse("/plain.ini", 200, ini, {{"Content-Type", "video/x-ms-asf; charset=utf-8"}});
        server.setResponse(QStringLiteral("/text"), 200, "nothing");
        server.setNeverAnswer(QStringLiteral("/silent"));
    }

    QString url(const char* path) const { return server.url(QString::fromLatin1(path)); }

    static CMReply<QVariant> request(const QVariant& roles) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(NodePath, roles, reply);
        return reply;
    }

    static void expectError(const CMReply<QVariant>& reply, const QString& name, const char* message) {
        ASSERT_TRUE(reply.isFinished());
        EXPECT_EQ(reply.error().name(), name);
        EXPECT_EQ(reply.error().message(), QString::fromLatin1(message));
        EXPECT_EQ(reply.error().title(), CMError::DefaultTitle().toString());
    }

    CMRootScope root;
    HttpTestServer server;
    PlayListParseNode* node = nullptr;
};

} // namespace

// A fetch refused, cancelled or destroyed never reports (fetches that end: the
// requests below); a destroyed node fails its running jobs.
TEST_F(PlayListParseNodeTest, FetchesEndNeverAndDestroyedNodeFailsJobs) {
    const QString silent = url("/silent");
    const auto requested = [&](int n) {
        return waitUntil([&] { return server.requestCount(QStringLiteral("/silent")) == n; }, WaitMs);
    };
    LogCapture capture;
    EXPECT_FALSE(PlayListData(QString(), CMSetDataRequest()).fetch());
    auto data = std::make_unique<PlayListData>(silent, CMSetDataRequest());
    int done = 0;
    QObject::connect(data.get(), &PlayListData::fetchDone, [&done] { ++done; });
    ASSERT_TRUE(data->fetch());
    EXPECT_TRUE(data->isFetching());
    EXPECT_FALSE(data->fetch());
    ASSERT_TRUE(requested(1));
    EXPECT_TRUE(data->cancelFetch());
    EXPECT_FALSE(data->isFetching());
    EXPECT_FALSE(data->cancelFetch());
    ASSERT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    zuvotest::drainEvents();
    EXPECT_EQ(done, 0);
    for (const char* line : {"Can not fetch empty url!", "Fetch already in progress",
                             "Error canceling HttpClient: fetcherId is NULL!"})
        EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, QString::fromLatin1(line))) << line;
    ASSERT_TRUE(data->fetch()); // idle again
    ASSERT_TRUE(requested(2));
    data.reset();
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));

    const CMReply<QVariant> replies[] = {request(item({silent})), request(item({silent}))};
    ASSERT_TRUE(requested(4));
    EXPECT_FALSE(replies[0].isFinished());
    delete node;
    for (const CMReply<QVariant>& reply : replies)
        expectError(reply, QStringLiteral("PlayListParseNodeIsDeleted"),
                    "PlayListParseNode is being destroyed");
    EXPECT_TRUE(waitUntil([&] { return server.openConnections() == 0; }, WaitMs));
    zuvotest::drainEvents();
    EXPECT_TRUE(root.nodes()->allNodes().isEmpty());
}

// A request ends as a list node, numbered per parse, whose rows resolve against
// the active (else first) resource's URL, see its Content-Type and carry the
// requesting service; as unknownFormat; or, without a URL, at once as emptyUrl.
TEST_F(PlayListParseNodeTest, RequestsBecomeListNodesOrErrors) {
    const QString data = qEnvironmentVariable("ZUVO_TEST_DATA");
    const QString local = QUrl::fromLocalFile(data + QStringLiteral("/party.m3u")).toString();
    const QString unknown = QStringLiteral("unknownFormat");
    struct Case {
        QVariant request;
        QString result; // the first row's URI, else the error name
        int rows = 0;
        bool allowLocalFiles = false;
    };
    const Case cases[] = {
        {item({url("/text")}), unknown},
        {item({url("/a/l.m3u"), url("/b/l.m3u")}), url("/a/sub/x.mp3"), 2},
        {item({url("/a/l.m3u"), url("/b/l.m3u")}, url("/c/l.m3u")), url("/c/sub/x.mp3"), 2},
        {item({url("/asf.ini")}), QStringLiteral("mmsh://wm.example.com/live"), 1},
        {item({url("/plain.ini")}), QStringLiteral("http://wm.example.com/live"), 1}, // type with parameters
        {item({QStringLiteral("http://127.0.0.1:%1/refused.m3u").arg(HttpTestServer::unusedPort())}),
         unknown},
        {item({local}), unknown},
        {item({local}), QUrl::fromLocalFile(data + QStringLiteral("/music/around the world.mp3")).toString(),
         5, true},
        {item({}), QStringLiteral("emptyUrl")},
    };
    int listNodes = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.request.toString().toStdString() + " " + c.result.toStdString());
        node->setAllowLocalFiles(c.allowLocalFiles);
        LogCapture capture;
        const CMReply<QVariant> reply = request(c.request);
        if (c.result == QStringLiteral("emptyUrl")) {
            expectError(reply, c.result, "URL is empty in request!");
            EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, "URL is empty in request!"));
            continue;
        }
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }, WaitMs));
        if (c.rows == 0) {
            EXPECT_TRUE(capture.contains(log4cplus::ERROR_LOG_LEVEL, "Unknown format found."));
            expectError(reply, c.result, "Unknown playlist format detected.");
            continue;
        }
        ASSERT_FALSE(reply.hasError()) << reply.error();
        const QString path = QStringLiteral("/playlistParser/%1").arg(listNodes++);
        EXPECT_EQ(reply.value().toString(), path);
        CMReply<ZuvoRowsRoles> rows;
        CMRoot()->getRows(CMPath::fromEncoded(path), 0, 99, 0, {ZuvoRoles::MediaData()}, rows);
        ASSERT_TRUE(rows.isFinished()) << "get-rows must be answered at once";
        EXPECT_EQ(rows.value().rowsCount(), c.rows);
        const ZuvoMediaData first(rows.value().rows().toList().value(0).toList().value(0).toHash());
        EXPECT_EQ(first.metaData().serviceID(), QStringLiteral("svc"));
        EXPECT_EQ(first.resources().value(0).uri(), c.result);
    }
    EXPECT_EQ(server.requestCount(QStringLiteral("/b/l.m3u")), 0);
    EXPECT_EQ(root.nodes()->allNodes().size(), 1 + listNodes);

    // The first list node's rows (x.mp3, y.mp3) by range: clamped to the last
    // row, an index below 0 reads as a row without any key, up to a bound.
    const QString outside1024(PlayListListNode::MaxRowsOutsideList, QLatin1Char(','));
    const std::vector<std::tuple<int, int, QString>> ranges = {{1, 1, "y.mp3"},
                                                               {0, INT_MAX, "x.mp3,y.mp3"},
                                                               {2, 9, ""},
                                                               {1, 0, ""},
                                                               {-2, 0, ",,x.mp3"},
                                                               {-1024, INT_MAX, outside1024 + "x.mp3,y.mp3"},
                                                               {-1025, 1, "rowRangeTooLarge"},
                                                               {INT_MIN, INT_MAX, "rowRangeTooLarge"}};
    for (const auto& [fromRow, toRow, expected] : ranges) {
        SCOPED_TRACE(testing::Message() << fromRow << ".." << toRow);
        CMReply<ZuvoRowsRoles> reply; // parameters do not change the node's path
        CMRoot()->getRows(CMPath("/playlistParser/0?sort=title"), fromRow, toRow, 0,
                          {ZuvoRoles::MediaData(), "nope"}, reply);
        ASSERT_TRUE(reply.isFinished());
        QStringList got;
        for (const QVariant& value : reply.value().rows().toList()) {
            const QVariantList row = value.toList();
            EXPECT_EQ(row.size(), 2);
            EXPECT_FALSE(row.value(1).isValid()) << "a missing key reads as an invalid variant";
            got.append(ZuvoMediaData(row.value(0).toHash()).resources().value(0).uri().section('/', -1));
        }
        EXPECT_EQ(reply.hasError() ? reply.error().name() : got.join(','), expected);
        EXPECT_EQ(reply.value().rowsCount(), reply.hasError() ? 0 : 2);
    }

    CMReply<ZuvoRowsRoles> below; // other paths go to CMNode
    CMRoot()->getRows(CMPath("/playlistParser/0/sub"), 0, 0, 0, {ZuvoRoles::Title()}, below);
    EXPECT_EQ(below.error().name(), QStringLiteral("NotSupported"));

    // A list node goes after its unused interval.
    const CMPath listPath("/playlistParser/0");
    auto* timer =
        root.nodes()->node(listPath)->findChild<CMUnusedNodeTimer*>(QStringLiteral("unusedNodeTimer"));
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval(), 10000);
    timer->setInterval(100);
    EXPECT_TRUE(waitUntil([&] { return root.nodes()->node(listPath) == nullptr; }, WaitMs));
}
