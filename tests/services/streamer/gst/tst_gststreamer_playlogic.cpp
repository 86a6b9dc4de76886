// The library on the real streamer: TrackListPlayLogic drives a GstStreamer
// over the model tree, with audio made here and served from files and a
// loopback HTTP server.

#include <QTimer>
#include <gtest/gtest.h>

#include "gststreamer.h"
#include "gsttestfixture.h"
#include "playlistparsenode.h"
#include "playlogicinterface.h"
#include "services/streamer/streamerworld.h"
#include "support/logcapture.h"
#include "tracklistplaylogic.h"

using zuvotest::HttpTestServer;
using zuvotest::waitUntil;
using State = ZuvoPlayLogicState;

namespace {

// A GstStreamer, a TrackListPlayLogic on it with the playlist parse node a
// host registers, and every record the streamer published.
struct Player {
    explicit Player(const QString& sink)
        : streamer(root.nodes(), sink)
        , logic(root.nodes(), base) {
        // No client pings here: the watchdog must not stop a slow run.
        logic.findChild<QTimer*>(QStringLiteral("pingTimeoutTimer"))->setInterval(3600 * 1000);
        (new PlayListParseNode(ZuvoPlayerContentPlayLogicPlaylistPath()))
            ->setNodes(root.nodes()); // the registry owns it
        QObject::connect(&streamer, &StreamerService::dataPublished, &logic,
                         [this](const ZuvoStreamerData& data) { records.append(data); });
    }
    // Plays the items and waits until the playback has run and ended.
    bool playToTheEnd(const QStringList& uris) {
        QList<ZuvoRoles> items;
        for (const QString& uri : uris)
            items.append(simtest::track(uri));
        logic.setTracks(items);
        client->playContainer(ZuvoRoles(), ZuvoRoles(), 0, 0);
        return waitUntil(
            [this] {
                return !records.isEmpty() && simtest::isStopped(records.last()) &&
                       client->data().state() == State::stopped;
            },
            30000);
    }
    // The error code of the streamer's stopped record of playbackId (0: none).
    int failureOf(int playbackId) const {
        for (const ZuvoStreamerData& record : records)
            if (record.playbackId() == playbackId && record.state() == State::stopped)
                return record.error().code();
        return 0;
    }

    CMRootScope root;
    const CMPath base{"/test/gstPlayer"};
    PlayLogicInterface* const client = PlayLogicInterface::instance(base);
    GstStreamer streamer;
    QList<ZuvoStreamerData> records;
    TrackListPlayLogic logic;
};

using GstStreamerPlayLogicTest = gsttest::Fixture;

// The client's stop ends at once a stream whose server never answers (its
// error would come after 15 s). The streamer finds no decoder for a playlist
// document (-14); the play logic parses it and plays its entry.
TEST_F(GstStreamerPlayLogicTest, StopEndsAStreamThatNeverAnswersAndAPlaylistPlaysItsEntry) {
    const QString entry = server.url(QStringLiteral("/entry.wav"));
    server.setResponse(QStringLiteral("/entry.wav"), 200, gsttest::wavFile(gsttest::tone(44100, 4)));
    server.setResponse(QStringLiteral("/list.m3u"), 200, "#EXTM3U\n" + entry.toUtf8() + "\n",
                       {{"Content-Type", "audio/x-mpegurl"}});
    server.setNeverAnswer(QStringLiteral("/never"));
    Player p(QStringLiteral("null"));
    p.logic.setTracks({simtest::track(server.url(QStringLiteral("/never")))});
    p.client->playContainer(ZuvoRoles(), ZuvoRoles(), 0, 0);
    ASSERT_TRUE(waitUntil([&] { return server.requestCount(QStringLiteral("/never")) == 1; }));
    EXPECT_EQ(p.streamer.data().state(), State::loading);
    const CMReply<QVariant> stop = p.client->stop(ZuvoPlayLogicStopReason::user);
    ASSERT_TRUE(
        waitUntil([&] { return stop.isFinished() && p.client->data().state() == State::stopped; }, 2000));
    EXPECT_EQ(std::make_tuple(stop.hasError(), p.client->data().error(), p.streamer.isActive()),
              std::make_tuple(false, QString(), false));

    p.logic.setTracks({simtest::track(server.url(QStringLiteral("/list.m3u")))});
    p.client->playContainer(ZuvoRoles(), ZuvoRoles(), 0, 0);
    ASSERT_TRUE(waitUntil(
        [&] {
            const ZuvoPlayLogicData data = p.client->data();
            return data.state() == State::playing &&
                   data.trackRoles().mediaData().activeResource().uri() == entry;
        },
        10000))
        << p.client->data().error().toStdString();
    EXPECT_EQ(std::make_tuple(p.failureOf(2), p.client->data().streamId(), p.streamer.data().playbackId()),
              std::make_tuple(-14, 3, 3));
    // The player is destroyed while it plays.
}

// Hand-overs to the sample: a list plays gaplessly in one playback; a
// successor failing after its hand-over lets the running track play out
// first; the play after a failed successor runs on a clean pipeline (one row
// per kind of failure: leftovers showed up only now and then). Then each
// broken stream alone: the streamer's error code and what a client sees.
TEST_F(GstStreamerPlayLogicTest, HandOversPlayToTheSampleAndFailuresReachTheClient) {
    // a is longer than the decoder's queues hold, so that the hand-over comes
    // once it plays (not while it prerolls, when nothing could play out).
    const QVector<qint16> a = gsttest::tone(3 * 44100, 5), b = gsttest::tone(66150, 2),
                          c = gsttest::tone(22050, 6);
    const QByteArray wavC = gsttest::wavFile(c);
    ASSERT_EQ(gsttest::encode(write(QStringLiteral("b.wav"), gsttest::wavFile(b)), QStringLiteral("flacenc"),
                              path(QStringLiteral("b.flac"))),
              QString());
    server.setResponse(QStringLiteral("/a.wav"), 200, gsttest::wavFile(a));
    server.setResponse(QStringLiteral("/b.flac"), 200, read(QStringLiteral("b.flac")));
    server.setResponse(QStringLiteral("/c.wav"), 200, wavC);
    server.setResponse(QStringLiteral("/401"), 401, QByteArray());
    zuvotest::HttpTestRoute broken;
    broken.body = wavC.left(wavC.size() / 3);
    broken.declaredLength = wavC.size();
    broken.closeWhenShort = true;
    server.setRoute(QStringLiteral("/broken.wav"), broken);
    const QString fileA = write(QStringLiteral("a.wav"), gsttest::wavFile(a));
    const QString fileC = write(QStringLiteral("c.wav"), wavC);
    const QString missing = path(QStringLiteral("missing.wav"));
    const QString refused = QStringLiteral("http://127.0.0.1:%1/a.wav").arg(HttpTestServer::unusedPort());
    const QString noise = write(QStringLiteral("noise.bin"), QByteArray(4096, '\x5a'));
    const auto url = [&](const char* name) { return server.url(QLatin1String(name)); };
    // items, the samples written, the second item's error code (0: played),
    // the last playback and its error code
    const std::tuple<QStringList, QVector<qint16>, int, int, int> cases[] = {
        {{url("/a.wav"), url("/b.flac"), url("/c.wav")}, a + b + c, 0, 3, -13},
        {{fileA, missing}, a, -19, 2, -19},
        {{fileA, noise, fileC}, c, -22, 3, -13},
        {{fileA, missing, fileC}, c, -19, 3, -13},
        {{fileA, refused, fileC}, c, -16, 3, -13},
    };
    for (const auto& [items, samples, failed, lastId, lastError] : cases) {
        SCOPED_TRACE(items.join(QLatin1Char(' ')).toStdString());
        LogCapture log;
        Player p(QStringLiteral("wav:") + path(QStringLiteral("out.wav")));
        ASSERT_TRUE(p.playToTheEnd(items));
        EXPECT_EQ(std::make_tuple(p.failureOf(2), p.streamer.data().playbackId(),
                                  p.streamer.data().error().code(), p.client->data().error().isEmpty()),
                  std::make_tuple(failed, lastId, lastError, failed == 0))
            << p.client->data().error().toStdString();
        const QVector<qint16> output = gsttest::wavSamples(read(QStringLiteral("out.wav")));
        EXPECT_TRUE(output == samples)
            << output.size() << " samples written, " << samples.size() << " played";
        if (failed != 0)
            continue;
        // Never stopped between the tracks, and no end waited for a decision.
        EXPECT_EQ(std::count_if(p.records.begin(), p.records.end(), simtest::isStopped), 1);
        EXPECT_FALSE(log.contains(QStringLiteral("No next media decided")));
    }

    // The header promises half a second, the file holds half of it.
    const QString truncated = write(QStringLiteral("short.wav"), wavC.left(wavC.size() / 2));
    const QString image = path(QStringLiteral("image.png")); // video only
    ASSERT_EQ(
        gsttest::runPipeline(
            QStringLiteral("videotestsrc num-buffers=1 ! pngenc ! filesink location=\"%1\"").arg(image)),
        QString());
    const QString notFound = QStringLiteral("Could not find source!");
    const QString unknown = QStringLiteral("Unknown playlist format detected.");
    const std::tuple<QString, int, QString> failures[] = {
        // uri, the streamer's error code, the play logic's published error
        {missing, -19, notFound},
        {refused, -16, QStringLiteral("Could not open stream!")},
        {url("/401"), -17, QStringLiteral("Access to this stream is not authorized by the content provider")},
        {write(QStringLiteral("pcm.bin"), wavC.mid(44)), -15, unknown}, // no header: no type to find
        {image, -22, unknown},
        {url("/broken.wav"), -18, QStringLiteral("Could not read source!")},
        {truncated, -13, QString()}, // plays what is there, then ends as any track does
    };
    for (const auto& [uri, code, error] : failures) {
        SCOPED_TRACE(uri.toStdString());
        Player p(QStringLiteral("null"));
        ASSERT_TRUE(p.playToTheEnd({uri}));
        EXPECT_EQ(p.client->data().error(), error);
        EXPECT_EQ(p.client->data().streamerError().code(), code);
    }
}

} // namespace
