// The simulated streamer: its URI conventions, the timeline of a playback and
// its clock (protocol: tst_streamerprotocol.cpp; failures end to end: tst_zuvoplay.cpp).

#include <gtest/gtest.h>

#include "model/cmvalueitem.h"
#include "simulatedplayback.h"
#include "streamerworld.h"
#include "support/logcapture.h"

using namespace simtest;
using zuvotest::waitUntil;
using State = ZuvoPlayLogicState;

namespace {

// Every value a value path of the streamer's data reports, read by get.
template <typename T> struct ValueLog : CMValueItem {
    ValueLog(const CMPath& path, T (ZuvoValue::*get)() const)
        : CMValueItem(nullptr, ZuvoStreamerDefaultPrefixPath() + ZuvoStreamerDataPath() + path) {
        QObject::connect(this, &CMValueItem::changed, this,
                         [=](const ZuvoValue& v) { values << (v.*get)(); });
    }
    QList<T> values;
};

} // namespace

// What a URI (and its resource) makes of a playback, tick by tick: each
// event (the buffer's steps left out) as a letter followed by the position
// after it, and the failure's code.
TEST(SimulatedPlaybackTest, UriAndResourceChooseTheTimeline) {
    constexpr qint64 D = 12345; // the default duration; the resource of an r.mp3 lasts 42000
    const auto run = [](const SimulatedMedia& media) {
        SimulatedPlayback playback(media, false);
        QStringList steps;
        for (int i = 0; i < 12; ++i) {
            const auto event = playback.tick(1e6);
            if (event != SimulatedPlayback::Event::Buffered)
                steps << QStringLiteral("-BSNEFC").at(int(event)) + QString::number(playback.positionMs());
            if (event >= SimulatedPlayback::Event::Ended)
                break;
        }
        return steps.join(QLatin1Char(' ')) +
               (media.failureCode ? QStringLiteral(" %1").arg(media.failureCode) : QString());
    };
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        // uri, MIME type, parameters ignored, timeline
        {"http://h/a.mp3?zuvo-duration=live", "", 0,
         "S0 -1000000 -2000000 -3000000 -4000000 -5000000 -6000000 -7000000 -8000000"},
        {"http://h/r.mp3", "", 0, "S0 N37000 -42000 -42000 -42000 -42000 E42000"},
        {"http://h/a.mp3?zuvo-duration=0", "", 1, "S0 N7345 -12345 -12345 -12345 -12345 E12345"},
        // Codes outside -14 ... -22 and bad values warn.
        {"http://h/a.mp3?zuvo-error=-23", "", 1, "S0 N7345 -12345 -12345 -12345 -12345 E12345"},
        {"http://h/a.mp3?zuvo-duration=8000&zuvo-error-after=9000", "", 0,
         "S0 N3000 -8000 -8000 -8000 -8000 E8000 -18"},
        {"http://h/a.mp3?zuvo-crash=1500&zuvo-error-after=1500", "", 0, "S0 C1500 -18"}, // the crash wins
        // Playlists by suffix (any case, query ignored) or by MIME type.
        {"HTTP://h/Radio.PLS?station=1", "", 0, "F0 -15"},
        {"http://h/stream", "Audio/X-MpegURL; charset=utf-8", 0, "F0 -15"},
        {"http://h/play?file=a.pls", "", 0, "S0 N7345 -12345 -12345 -12345 -12345 E12345"},
        {"http://h/list.m3u?zuvo-error=-19", "", 0, "F0 -19"},
        {"http://h/a.mp3?zuvo-speed=3&zuvo-duration=900&other=1", "", 1, "S0 N0 -900 -900 -900 -900 E900"},
    };
    for (const auto& [uri, mimeType, warnings, timeline] : cases) {
        SCOPED_TRACE(uri);
        LogCapture log;
        const ZuvoRoles roles =
            track(QString::fromUtf8(uri), QString::fromUtf8(mimeType), uri[9] == 'r' ? 42000 : 0);
        EXPECT_EQ(run(SimulatedMedia::fromRoles(roles, D)), QLatin1String(timeline));
        EXPECT_EQ(log.count(QStringLiteral("Ignoring")), warnings) << log.toString().toStdString();
    }
    // The played URI: the active resource (above), else the first with a URI.
    ZuvoRoles roles = track(QStringLiteral("http://h/first.mp3"));
    ZuvoMediaData mediaData = roles.mediaData();
    mediaData.setActiveResource(ZuvoResource());
    roles.setMediaData(mediaData);
    EXPECT_EQ(SimulatedMedia::fromRoles(roles, D).uri, QStringLiteral("http://h/first.mp3"));
    EXPECT_FALSE(SimulatedPlayback({{}, -1}, false).seek(0)) << "a live stream seeks nowhere";
}

// Started paused, a track loads as the buffer fills in steps and waits at 0;
// resumed, the successor queued at its near end follows gaplessly with its own
// id, and the last one's end stops the streamer. Bytes go out only while reported.
TEST(SimulatedStreamerTest, BufferNearEndGaplessSuccessorAndEndOfStream) {
    World w;
    static_cast<SimulatedStreamer&>(w.streamer).setSpeed(1000);
    ValueLog<double> levels(ZuvoPlayLogicBufferingLevelPath(), &ZuvoValue::double_);
    ValueLog<qint64> bytes(ZuvoPlayLogicBufferBytesPath(), &ZuvoValue::i64_);
    ValueLog<qint64> playTimes(ZuvoPlayLogicPlayTimePath(), &ZuvoValue::i64_);
    const auto reports = [&](bool on) {
        return w.call(
            ZuvoStreamerSetAttributesPath(),
            attributeArgs(-1, QVariantHash{{ZuvoStreamerAttributesBufferLevelReportsEnabled(), on}}));
    };
    const QString second = QStringLiteral("http://h/second.mp3?zuvo-duration=2000");
    CMReply<QVariant> queued(nullptr);
    QObject::connect(&w.streamer, &StreamerService::dataPublished, &w.streamer,
                     [&](const ZuvoStreamerData& d) {
                         if (d.trackNearEnd() && d.playbackId() == 1 && !queued)
                             queued = w.send(ZuvoStreamerSetNextMediaPath(), playArgs(second));
                     });
    const auto published = [](const CMValueItem& item) { return !item.value().__hash().isEmpty(); };
    ASSERT_TRUE(waitUntil([&] { return published(bytes) && published(levels) && published(playTimes); }));
    ASSERT_EQ(reports(true), "ok");
    ASSERT_EQ(
        w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/1.mp3?zuvo-duration=8000"), true)),
        "id:1");
    ASSERT_TRUE(waitUntil([&] { return levels.values.size() == 6 && bytes.values.size() == 5; }));
    EXPECT_EQ(levels.values, (QList<double>{-1, 0, 25, 50, 75, 100}));
    const qint64 full = SimulatedStreamer::BufferCapacityBytes;
    EXPECT_EQ(bytes.values, (QList<qint64>{0, full / 4, full / 2, full * 3 / 4, full}));
    EXPECT_EQ(w.streamer.playTimeMs(), 0);

    ASSERT_EQ(w.call(ZuvoStreamerResumePath()), "ok");
    ASSERT_TRUE(w.waitFor(isStopped));
    EXPECT_EQ(answerOf(queued), "id:2");
    EXPECT_EQ(w.story(), "L1 Z1 P1 P1e P1ne P2 P2e S2e-13");
    EXPECT_EQ(std::make_tuple(w.records.at(5).status().duration(), w.records.last().trackRoles().title()),
              std::make_tuple(qint64(2000), second));
    // The position stops at the near-end point and at the end, then resets.
    ASSERT_TRUE(waitUntil([&] {
        return playTimes.values.contains(2000) && playTimes.values.last() == 0 &&
               levels.values.last() == -1 && bytes.values.last() == 0;
    }));
    EXPECT_TRUE(playTimes.values.contains(3000) && playTimes.values.contains(8000));

    const int byteReports = bytes.values.size();
    ASSERT_EQ(reports(false), "ok");
    ASSERT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/b.mp3"), true)), "id:3");
    ASSERT_TRUE(waitUntil([&] { return levels.values.last() == 100; }));
    EXPECT_EQ(bytes.values.size(), byteReports);
    ASSERT_EQ(reports(true), "ok"); // on again: the amount buffered meanwhile at once
    EXPECT_TRUE(waitUntil([&] { return bytes.values.last() == full; }));
}

// Failures while opening or after a playing time, and a crash: the play is
// answered and the stream seen loading first; a queued successor goes down
// with it; a crash drops everything; playback ids go on.
TEST(SimulatedStreamerTest, FailuresAndCrash) {
    const std::tuple<const char*, const char*, qint64, const char*, const char*> cases[] = {
        // uri, MIME type, failure at ms (0: while opening, -1: crash() while playing), records, error
        {"http://h/listen", "audio/x-scpls", 0, "L1 S1-15", "gstStreamTypeNotFound"},
        {"http://h/s.mp3?zuvo-error=-17&zuvo-error-after=2000", "", 2000, "L1 L1n P1n S1-17",
         "gstNotAuthorized"},
        {"http://h/s.mp3?zuvo-duration=live", "", -1, "L1 L1n P1n S0!", "streamerCrashed"},
    };
    for (const auto& [uri, mimeType, atMs, story, error] : cases) {
        SCOPED_TRACE(uri);
        World w;
        static_cast<SimulatedStreamer&>(w.streamer).setSpeed(1000);
        ASSERT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(uri, false, mimeType)), "id:1");
        ASSERT_TRUE(atMs == 0 || w.call(ZuvoStreamerSetNextMediaPath(),
                                        playArgs(QStringLiteral("http://h/n.mp3"))) == "id:2");
        if (atMs < 0 && w.waitFor([](const ZuvoStreamerData& d) { return d.state() == State::playing; }))
            w.streamer.crash();
        ASSERT_TRUE(w.waitFor(isStopped));
        EXPECT_EQ(std::make_tuple(w.story(), w.streamer.data().error().name(), w.streamer.isActive()),
                  std::make_tuple(QString::fromLatin1(story), QString::fromLatin1(error), false));
        EXPECT_EQ(w.call(ZuvoStreamerPlayPath(), playArgs(QStringLiteral("http://h/c.mp3"))),
                  atMs != 0 ? "id:3" : "id:2");
    }
}
