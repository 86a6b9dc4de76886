// A stream the streamer cannot play because it is a playlist: the play logic
// has it parsed by the playlist parse node (over a loopback HTTP server) and
// plays the first entry that has a URL.

#include <QStringList>
#include <gtest/gtest.h>

#include "logging.h"
#include "mimetypes.h"
#include "model/cmactivatenode.h"
#include "model/cmnodes.h"
#include "playlistparsenode.h"
#include "playlogicinterface.h"
#include "streamerplaylogic.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/logcapture.h"
#include "support/teststreamerservice.h"

using zuvotest::HttpTestServer;
using zuvotest::waitUntil;
using Command = TestStreamerService::Command;

namespace {

const CMPath LogicPath("/test/handoff");
const CMPath PrePlayPath("/test/handoff/prePlayService");
constexpr int WaitMs = 10000;

// Exposes the next-media step so a test can leave a request queued.
class HandOffPlayLogic : public StreamerPlayLogic {
public:
    using StreamerPlayLogic::sendSetNextMediaCommand;
    using StreamerPlayLogic::StreamerPlayLogic;
};

// A pre-play service that never answers: a request sent through it stays
// queued in the play logic.
class SilentService : public QObject {
public:
    explicit SilentService(CMNodes* nodes) {
        CMActivateNode::create(nodes, PrePlayPath)->setInvoke(this, &SilentService::take);
    }
    void take(const CMSetDataRequest& request) { requests.append(request); }
    QList<CMSetDataRequest> requests;
};

ZuvoRoles itemAt(const QString& uri, const QString& title) {
    ZuvoResource resource;
    resource.setUri(uri);
    resource.setMimeType(QStringLiteral("audio/x-scpls"));
    resource.setDuration(120000);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>() << resource);
    mediaData.setActiveResource(resource);
    ZuvoRoles roles;
    roles.setTitle(title);
    roles.setMediaData(mediaData);
    return roles;
}

QStringList blanks(int n) {
    QStringList list;
    for (int i = 0; i < n; ++i)
        list.append(QString());
    return list;
}

// An ASX document: one entry per string, an empty string an entry without
// any reference.
QByteArray asxWith(const QStringList& refs) {
    QByteArray body = "<asx version=\"3.0\">\n";
    for (const QString& ref : refs) {
        body += "<entry><title>t</title>";
        if (!ref.isEmpty())
            body += "<ref href=\"" + ref.toUtf8() + "\"/>";
        body += "</entry>\n";
    }
    return body + "</asx>\n";
}

// One world per case: registry, streamer, HTTP server, parse node, play
// logic and its client.
struct World {
    World() {
        auto* parseNode = new PlayListParseNode(ZuvoPlayerContentPlayLogicPlaylistPath()); // registry-owned
        parseNode->setNodes(root.nodes());
    }

    // Plays item, lets the streamer start it and then refuse it with code.
    void playAndRefuse(const ZuvoRoles& item, int code) {
        client->playContainer(ZuvoRoles(), item, 0, 0);
        ASSERT_TRUE(streamer.waitForCount(Command::play, 1));
        ASSERT_TRUE(waitUntil([&] { return client->data().state() != ZuvoPlayLogicState::stopped; }));
        ZuvoStreamerData refused = TestStreamerService::makeData(1, ZuvoPlayLogicState::stopped);
        refused.setTrackRoles(item);
        refused.setError(TestStreamerService::makeError(code));
        streamer.publishData(refused);
    }

    // The roles of the newest play command.
    ZuvoRoles lastPlayed() const { return ZuvoStreamerPlayArgs(streamer.last(Command::play).args()).roles(); }

    CMRootScope root;
    TestStreamerService streamer{root.nodes()};
    HttpTestServer server;
    HandOffPlayLogic logic{root.nodes(), LogicPath};
    PlayLogicInterface* client = PlayLogicInterface::instance(LogicPath);
};

} // namespace

TEST(PlaylistHandOff, UnplayableStreamIsParsedAndItsFirstEntryPlayed) {
    // Every "not a media stream" code leads to the parser.
    for (const int code : {-14, -15, -22}) {
        SCOPED_TRACE(code);
        World w;
        w.server.setResponse(QStringLiteral("/radio.m3u"), 200,
                             "#EXTM3U\n#EXTINF:-1,One\nhttp://radio/one.mp3\nhttp://radio/two.mp3\n",
                             {{"Content-Type", "audio/x-mpegurl"}});
        LogCapture log;
        const ZuvoRoles item = itemAt(w.server.url(QStringLiteral("/radio.m3u")), QStringLiteral("My radio"));
        w.playAndRefuse(item, code);
        ASSERT_TRUE(w.streamer.waitForCount(Command::play, 2, WaitMs)) << log.toString().toStdString();

        const ZuvoRoles played = w.lastPlayed();
        const ZuvoResource active = played.mediaData().activeResource();
        EXPECT_EQ(active.uri().toStdString(), "http://radio/one.mp3");
        EXPECT_EQ(active.mimeType(), MimeTypes::Audio::unknown());
        EXPECT_EQ(active.duration(), -1);
        EXPECT_EQ(played.title(), QStringLiteral("My radio")) << "the item's own data stays";
        EXPECT_EQ(played.mediaData().resources(), item.mediaData().resources());
        EXPECT_TRUE(log.contains(log4cplus::INFO_LOG_LEVEL, QStringLiteral("Got 2 from ")))
            << log.toString().toStdString();
        EXPECT_EQ(w.logic.currentTrackRoles().mediaData().activeResource().uri().toStdString(),
                  "http://radio/one.mp3");
        EXPECT_TRUE(w.client->data().error().isEmpty());

        w.client->stop(ZuvoPlayLogicStopReason::user);
        w.streamer.publishData(TestStreamerService::makeData(2, ZuvoPlayLogicState::stopped));
        ASSERT_TRUE(waitUntil([&] { return w.client->data().state() == ZuvoPlayLogicState::stopped; }));
    }
}

TEST(PlaylistHandOff, OnlyTheFirstTenEntriesAreSearchedForAUrl) {
    struct Case {
        const char* name;
        QStringList refs;
        QString played; // empty: the playback ends with failedParseUrl
    };
    const Case cases[] = {
        {"third entry has the first URL",
         {QString(), QString(), QStringLiteral("http://h/3.mp3"), QStringLiteral("http://h/4.mp3")},
         QStringLiteral("http://h/3.mp3")},
        {"tenth entry is still looked at", blanks(9) << QStringLiteral("http://h/10.mp3"),
         QStringLiteral("http://h/10.mp3")},
        {"eleventh entry is not", blanks(10) << QStringLiteral("http://h/11.mp3"), QString()},
        {"no entry has a URL", {QString(), QString()}, QString()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        World w;
        LogCapture log;
        w.server.setResponse(QStringLiteral("/list.asx"), 200, asxWith(c.refs));
        w.playAndRefuse(itemAt(w.server.url(QStringLiteral("/list.asx")), QStringLiteral("List")), -15);
        if (!c.played.isEmpty()) {
            ASSERT_TRUE(w.streamer.waitForCount(Command::play, 2, WaitMs)) << log.toString().toStdString();
            EXPECT_EQ(w.lastPlayed().mediaData().activeResource().uri(), c.played);
            w.client->stop(ZuvoPlayLogicStopReason::user);
            w.streamer.publishData(TestStreamerService::makeData(2, ZuvoPlayLogicState::stopped));
        } else {
            const QString message =
                QStringLiteral("Returned data does not contain any URL after parsing playlist file!");
            ASSERT_TRUE(waitUntil([&] { return w.client->data().error() == message; }, WaitMs))
                << log.toString().toStdString();
            EXPECT_TRUE(log.contains(
                log4cplus::WARN_LOG_LEVEL,
                QStringLiteral("returned data does not contain any URL after parsing playlist file")));
            EXPECT_EQ(w.streamer.count(Command::play), 1);
            w.client->stop(ZuvoPlayLogicStopReason::user);
        }
        ASSERT_TRUE(waitUntil([&] { return w.client->data().state() == ZuvoPlayLogicState::stopped; }));
    }
}

TEST(PlaylistHandOff, ParserFailureEndsThePlaybackWithItsError) {
    World w;
    w.server.setResponse(QStringLiteral("/gone.pls"), 404, "<html>Not Found</html>",
                         {{"Content-Type", "text/html"}});
    LogCapture log;
    w.playAndRefuse(itemAt(w.server.url(QStringLiteral("/gone.pls")), QStringLiteral("Gone")), -15);
    ASSERT_TRUE(waitUntil(
        [&] { return w.client->data().error() == QStringLiteral("Unknown playlist format detected."); },
        WaitMs))
        << log.toString().toStdString();
    EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("reply error: unknownFormat")))
        << log.toString().toStdString();
    EXPECT_EQ(w.streamer.count(Command::play), 1);
}

TEST(PlaylistHandOff, EntryIsDroppedWhileAnotherPlayRequestWaits) {
    World w;
    SilentService prePlay(w.root.nodes());
    w.server.setResponse(QStringLiteral("/radio.pls"), 200, "[playlist]\nFile1=http://radio/one.mp3\n");
    const ZuvoRoles item = itemAt(w.server.url(QStringLiteral("/radio.pls")), QStringLiteral("Radio"));
    w.client->playContainer(ZuvoRoles(), item, 0, 0);
    ASSERT_TRUE(w.streamer.waitForCount(Command::play, 1));

    // A next track whose pre-play never answers stays queued.
    ZuvoRoles next = itemAt(QStringLiteral("http://h/next.mp3"), QStringLiteral("Next"));
    ZuvoMediaData mediaData = next.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    metaData.setPrePlayPath(PrePlayPath);
    mediaData.setMetaData(metaData);
    next.setMediaData(mediaData);
    w.logic.sendSetNextMediaCommand(next, QVariantHash());
    ASSERT_TRUE(waitUntil([&] { return prePlay.requests.size() == 1; }));

    LogCapture log;
    ZuvoStreamerData refused = TestStreamerService::makeData(1, ZuvoPlayLogicState::stopped);
    refused.setTrackRoles(item);
    refused.setError(TestStreamerService::makeError(-15));
    w.streamer.publishData(refused);
    ASSERT_TRUE(waitUntil(
        [&] {
            return log.contains(
                log4cplus::WARN_LOG_LEVEL,
                QStringLiteral("Another play request in progress, ignore roles from playlist parser"));
        },
        WaitMs))
        << log.toString().toStdString();
    zuvotest::drainEvents();
    EXPECT_EQ(w.streamer.count(Command::play), 1) << "the playlist's entry is not played";
    EXPECT_EQ(w.streamer.count(Command::setNextMedia), 0);
}
