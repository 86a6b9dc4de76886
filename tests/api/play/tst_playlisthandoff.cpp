// A stream the streamer cannot play because it is a playlist: the play logic
// has it parsed by the playlist parse node (over a loopback HTTP server) and
// plays the first entry that has a URL.

#include <gtest/gtest.h>

#include "logging.h"
#include "mimetypes.h"
#include "playlistparsenode.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

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

// An item titled "My radio" whose resource is at uri, played through the
// pre-play service when viaPrePlay.
ZuvoRoles itemAt(const QString& uri, bool viaPrePlay = false) {
    ZuvoResource resource;
    resource.setUri(uri);
    resource.setMimeType(QStringLiteral("audio/x-scpls"));
    resource.setDuration(120000);
    ZuvoMetaData metaData;
    metaData.setPrePlayPath(viaPrePlay ? PrePlayPath : CMPath());
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>() << resource);
    mediaData.setActiveResource(resource);
    mediaData.setMetaData(metaData);
    ZuvoRoles roles;
    roles.setTitle(QStringLiteral("My radio"));
    roles.setMediaData(mediaData);
    return roles;
}

} // namespace

// Every "not a media stream" code leads to the parser; the first of the first
// ten entries that has a URL is played, unless another play request waits;
// else the playback ends with an error.
TEST(PlaylistHandOff, UnplayableStreamIsParsedAndItsFirstEntryPlayed) {
    struct Case {
        int code;
        int status;
        QByteArray body;
        const char* played; // "": not played
        const char* error;  // the client's
        const char* warning;
        bool anotherRequestWaits = false;
    };
    const QByteArray noRef = "<entry><title>t</title></entry>";
    const Case cases[] = {
        {-14, 200, "#EXTM3U\n#EXTINF:-1,One\nhttp://radio/one.mp3\nhttp://radio/two.mp3\n",
         "http://radio/one.mp3", "", ""},
        {-22, 200, "<asx>" + noRef.repeated(9) + "<entry><ref href='http://h/10.mp3'/></entry></asx>",
         "http://h/10.mp3", "", ""},
        {-15, 200, "<asx>" + noRef.repeated(10) + "<entry><ref href='http://h/11.mp3'/></entry></asx>", "",
         "Returned data does not contain any URL after parsing playlist file!",
         "returned data does not contain any URL after parsing playlist file"},
        {-15, 404, "<html>Not Found</html>", "", "Unknown playlist format detected.",
         "reply error: unknownFormat"},
        {-15, 200, "[playlist]\nFile1=http://radio/one.mp3\n", "", "",
         "Another play request in progress, ignore roles from playlist parser", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.code << ' ' << c.played << c.warning);
        CMRootScope root;
        TestStreamerService streamer(root.nodes());
        HttpTestServer server;
        HandOffPlayLogic logic(root.nodes(), LogicPath);
        (new PlayListParseNode(ZuvoPlayerContentPlayLogicPlaylistPath()))->setNodes(root.nodes());
        PlayLogicInterface* client = PlayLogicInterface::instance(LogicPath);
        TestServiceNode prePlay(root.nodes(), PrePlayPath);
        prePlay.hold = true; // a request through it stays queued
        server.setResponse(QStringLiteral("/list"), c.status, c.body);
        const ZuvoRoles item = itemAt(server.url(QStringLiteral("/list")));
        client->playContainer(ZuvoRoles(), item, 0, 0);
        ASSERT_TRUE(streamer.waitForCount(Command::play, 1));
        ASSERT_TRUE(waitUntil([&] { return client->data().state() != ZuvoPlayLogicState::stopped; }));
        if (c.anotherRequestWaits) {
            logic.sendSetNextMediaCommand(itemAt(QStringLiteral("http://h/next.mp3"), true), QVariantHash());
            ASSERT_TRUE(waitUntil([&] { return prePlay.requests.size() == 1; }));
        }
        LogCapture log;
        ZuvoStreamerData refused = TestStreamerService::makeData(1, ZuvoPlayLogicState::stopped);
        refused.setTrackRoles(item);
        refused.setError(TestStreamerService::makeError(c.code));
        streamer.publishData(refused);
        EXPECT_TRUE(waitUntil([&] { return client->data().error() == c.error; }, WaitMs));
        if (!*c.played) {
            const auto warned = [&] { return log.contains(log4cplus::WARN_LOG_LEVEL, c.warning); };
            ASSERT_TRUE(waitUntil(warned, WaitMs)) << log.toString().toStdString();
            zuvotest::drainEvents();
            EXPECT_EQ(streamer.count(Command::play), 1);
            EXPECT_EQ(streamer.count(Command::setNextMedia), 0);
        } else {
            ASSERT_TRUE(streamer.waitForCount(Command::play, 2, WaitMs)) << log.toString().toStdString();
            const ZuvoRoles played = ZuvoStreamerPlayArgs(streamer.last(Command::play).args()).roles();
            const ZuvoResource active = played.mediaData().activeResource();
            EXPECT_EQ(active.uri().toStdString(), c.played);
            EXPECT_EQ(active.mimeType(), MimeTypes::Audio::unknown());
            EXPECT_EQ(active.duration(), -1);
            EXPECT_EQ(played.title(), QStringLiteral("My radio")) << "the item's own data stays";
            EXPECT_EQ(played.mediaData().resources(), item.mediaData().resources());
        }
        client->stop(ZuvoPlayLogicStopReason::user);
        if (*c.played)
            streamer.publishData(TestStreamerService::makeData(2, ZuvoPlayLogicState::stopped));
        ASSERT_TRUE(waitUntil([&] { return client->data().state() == ZuvoPlayLogicState::stopped; }));
    }
}
