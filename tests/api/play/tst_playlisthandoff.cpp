// A playlist the streamer cannot play is parsed by the playlist parse node
// (over a loopback HTTP server) and its first entry with a URL played.

#include <gtest/gtest.h>

#include "mimetypes.h"
#include "playlistparsenode.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using zuvotest::waitUntil;
using Command = TestStreamerService::Command;

namespace {

constexpr int WaitMs = 10000;

// An item whose active resource (a playlist of two minutes) is at uri.
ZuvoRoles itemAt(const QString& uri) {
    ZuvoRoles roles = spltest::item({uri});
    ZuvoMediaData mediaData = roles.mediaData();
    ZuvoResource active = mediaData.activeResource();
    active.setMimeType(QStringLiteral("audio/x-scpls"));
    active.setDuration(120000);
    mediaData.setActiveResource(active);
    roles.setMediaData(mediaData);
    return roles;
}

} // namespace

// Every "not a media stream" code leads to the parser, before the crash rule; the
// first entry with a URL among ten is played unless another play request waits.
TEST(PlaylistHandOff, UnplayableStreamIsParsedAndItsFirstEntryPlayed) {
    struct Case {
        int code;
        const char* name; // the streamer's error name
        int status;
        QByteArray body;
        const char* played; // "": not played
        const char* error;  // the client's
        const char* warning;
        bool anotherRequestWaits = false;
    };
    const QByteArray noRef = "<entry><title>t</title></entry>";
    const Case cases[] = {
        {-22, "e", 200, "<asx>" + noRef.repeated(9) + "<entry><ref href='http://h/10.mp3'/></entry></asx>",
         "http://h/10.mp3", "", ""},
        {-15, "crashed", 200,
         "<asx>" + noRef.repeated(10) + "<entry><ref href='http://h/11.mp3'/></entry></asx>", "",
         "Returned data does not contain any URL after parsing playlist file!",
         "returned data does not contain any URL after parsing playlist file"},
        {-14, "e", 404, "<html>Not Found</html>", "", "Unknown playlist format detected.",
         "reply error: unknownFormat"},
        {-15, "e", 200, "[playlist]\nFile1=http://radio/one.mp3\n", "", "",
         "Another play request in progress, ignore roles from playlist parser", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.code << ' ' << c.played << c.warning);
        SplWorld h;
        (new PlayListParseNode(ZuvoPlayerContentPlayLogicPlaylistPath()))->setNodes(h.scope.nodes());
        h.prePlay.hold = true; // a request through it stays queued
        zuvotest::HttpTestServer server;
        server.setResponse(QStringLiteral("/list"), c.status, c.body);
        const ZuvoRoles item = itemAt(server.url(QStringLiteral("/list")));
        const ZuvoStreamerData data = h.playAndStart(item);
        ASSERT_FALSE(data.isEmpty());
        if (c.anotherRequestWaits) {
            const auto viaPrePlay = [](ZuvoMetaData& m) { m.setPrePlayPath(SplWorld::prePlayPath()); };
            h.logic->sendSetNextMediaCommand(
                spltest::withMetaData(itemAt(QStringLiteral("http://h/n")), viaPrePlay), QVariantHash());
            ASSERT_TRUE(waitUntil([&] { return h.prePlay.count() == 1; }));
        }
        LogCapture log;
        const QString name = c.name == QByteArray("crashed") ? ZuvoStreamerErrorCrashed() : c.name;
        h.streamer.publishData(spltest::stoppedWith(data, c.code, name));
        EXPECT_TRUE(waitUntil([&] { return h.published().error() == c.error; }, WaitMs));
        if (!*c.played) {
            const auto warned = [&] { return log.contains(log4cplus::WARN_LOG_LEVEL, c.warning); };
            ASSERT_TRUE(waitUntil(warned, WaitMs)) << log.toString().toStdString();
            zuvotest::drainEvents();
            EXPECT_EQ(std::make_pair(h.count(Command::play), h.count(Command::setNextMedia)),
                      std::make_pair(1, 0));
            continue;
        }
        ASSERT_TRUE(h.streamer.waitForCount(Command::play, 2, WaitMs)) << log.toString().toStdString();
        const ZuvoRoles played = h.sent(Command::play, 1).roles();
        const ZuvoResource active = played.mediaData().activeResource();
        EXPECT_EQ(
            std::make_tuple(active.uri(), active.mimeType(), active.duration(), played.title()),
            std::make_tuple(QString::fromUtf8(c.played), MimeTypes::Audio::unknown(), -1, item.title()));
        EXPECT_EQ(played.mediaData().resources(), item.mediaData().resources());
    }
}
