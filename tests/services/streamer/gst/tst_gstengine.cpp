#include <QDir>
#include <QElapsedTimer>
#include <gtest/gtest.h>
#include <memory>

#include "gstengine.h"
#include "gsttestfixture.h"
#include "support/eventloop.h"

// GstEngine on real pipelines into a WAV file or a real-time null sink (its pace:
// tst_streamerprotocol.cpp). Hand-overs and failures: tst_gststreamer_playlogic.cpp.

using zuvotest::waitUntil;

namespace {

// An engine and what it reported.
struct EngineRun {
    explicit EngineRun(const AudioSinkSpec& sink)
        : engine(std::make_unique<GstEngine>(sink)) {
        QObject::connect(engine.get(), &StreamerEngine::nextStarted, [this] { ++starts; });
        QObject::connect(engine.get(), &StreamerEngine::ended, [this] { ++ends; });
        QObject::connect(engine.get(), &StreamerEngine::failed,
                         [this](int c, const QString& d) { std::tie(code, detail) = std::tie(c, d); });
    }
    bool idle() const { return ends > 0 || code != 0; }
    // Plays uri alone and waits for its end.
    bool playToTheEnd(const QString& uri) {
        engine->play(uri, ZuvoRoles(), false);
        engine->clearNext();
        return waitUntil([&] { return idle(); }, 20000) && ends == 1;
    }

    std::unique_ptr<GstEngine> engine;
    int starts = 0, ends = 0, code = 0;
    QString detail;
};

using GstEngineTest = gsttest::Fixture;

TEST_F(GstEngineTest, PauseHoldsThePositionAndSeeksSetNearEnd) {
    EngineRun run(AudioSinkSpec(AudioSinkSpec::Kind::Null));
    GstEngine& engine = *run.engine;
    engine.play(write(QStringLiteral("long.wav"), gsttest::wavFile(gsttest::tone(44100 * 8, 5))), ZuvoRoles(),
                true);
    ASSERT_TRUE(waitUntil(
        [&] { return engine.state() == ZuvoPlayLogicState::paused && engine.status().duration() == 8000; }));
    EXPECT_EQ(engine.positionMs(), 0); // seekable by time only: tst_streamerprotocol.cpp

    engine.setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return engine.positionMs() > 300; }));
    engine.setPaused(true);
    waitUntil([] { return false; }, 300);
    const qint64 pausedAt = engine.positionMs();
    waitUntil([] { return false; }, 400);
    EXPECT_EQ(engine.positionMs(), pausedAt);

    engine.seek(6000);
    EXPECT_TRUE(engine.positionMs() == 6000 && engine.nearEnd());
    ASSERT_TRUE(waitUntil([&] { return engine.positionMs() >= 6000 && engine.positionMs() < 6100; }));
    engine.seek(1000);
    EXPECT_FALSE(engine.nearEnd());
    engine.stop();
    EXPECT_FALSE(waitUntil([&] { return run.idle(); }, 300)) << "stop() is silent";
}

TEST_F(GstEngineTest, DecodesEachFormatAndHls) {
    const QString source = write(QStringLiteral("source.wav"), gsttest::wavFile(gsttest::tone(44100, 6)));
    const char* const encoders[] = {
        "flacenc",    "vorbisenc ! oggmux",           "audioresample ! opusenc ! oggmux",
        "lamemp3enc", "voaacenc ! aacparse ! mp4mux", ""};
    for (const char* encoder : encoders) {
        SCOPED_TRACE(encoder);
        const QString file = *encoder ? path(QLatin1String(encoder).left(6)) : source;
        ASSERT_TRUE(!*encoder || gsttest::encode(source, QLatin1String(encoder), file).isEmpty());
        EngineRun run(wavSink());
        ASSERT_TRUE(run.playToTheEnd(file)) << run.detail.toStdString();
        EXPECT_NEAR(seconds(QStringLiteral("out.wav")), 1.0, 0.06);
    }

    // HLS: 1 s segments of AAC in MPEG-TS, served here.
    const QString hls = path(QStringLiteral("hls"));
    QDir().mkpath(hls);
    ASSERT_EQ(gsttest::runPipeline(
                  QStringLiteral("audiotestsrc num-buffers=90 samplesperbuffer=1470 ! "
                                 "audio/x-raw,rate=44100,channels=2 ! voaacenc ! aacparse ! "
                                 "hlssink2 location=\"%1/seg%05d.ts\" playlist-location=\"%1/list.m3u8\" "
                                 "target-duration=1 max-files=0 playlist-length=0")
                      .arg(hls)),
              QString());
    const QStringList files = QDir(hls).entryList(QDir::Files);
    ASSERT_GE(files.size(), 3);
    for (const QString& name : files)
        server.setResponse(QStringLiteral("/hls/") + name, 200, read(QStringLiteral("hls/") + name));
    EngineRun run(wavSink());
    ASSERT_TRUE(run.playToTheEnd(server.url(QStringLiteral("/hls/list.m3u8")))) << run.detail.toStdString();
    EXPECT_EQ(server.requestCount(QStringLiteral("/hls/seg00001.ts")), 1);
    EXPECT_GE(seconds(QStringLiteral("out.wav")), 2.0);
}

int countEntries(const char* dir) {
    return QDir(QString::fromLatin1(dir)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size();
}

// The missing file's error is posted inside play() itself: the play that
// replaces it at once must not receive it.
TEST_F(GstEngineTest, APlayReplacedAtOnceLeavesItsErrorsBehind) {
    EngineRun run(wavSink());
    run.engine->play(path(QStringLiteral("missing.wav")), ZuvoRoles(), false);
    EXPECT_TRUE(run.playToTheEnd(write(QStringLiteral("a.wav"), gsttest::wavFile(gsttest::tone(4410, 1)))))
        << run.code << " " << run.detail.toStdString();
}

// Stop or destroy the engine at each point of a gapless transition, over and
// over: nothing hangs (a waiting about-to-finish is released), nothing
// leaks, threads and descriptors come back. ZUVO_GST_STRESS_CYCLES sets the
// number of cycles (default 60, a few seconds; a few hundred for a soak).
TEST_F(GstEngineTest, StopAndDestroyAtEveryPointOfATransition) {
    const int requested = qEnvironmentVariableIntValue("ZUVO_GST_STRESS_CYCLES");
    const int cycles = requested > 0 ? requested : 60;
    const QString first = write(QStringLiteral("a.wav"), gsttest::wavFile(gsttest::tone(4410, 7)));
    const QString second = write(QStringLiteral("b.wav"), gsttest::wavFile(gsttest::tone(4410, 8)));
    enum Point { AfterPlay, AtFirstUpdate, WhileDecisionWaits, AfterQueueing, AtNextStart, PointCount };
    auto cycle = [&](int i) {
        const Point point = Point(i % PointCount);
        EngineRun run(wavSink());
        bool reached = point == AfterPlay;
        QObject::connect(run.engine.get(), &StreamerEngine::updated, [&] {
            reached = reached || point == AtFirstUpdate;
            if (!run.engine->nearEnd() || run.starts > 0)
                return;
            if (point == WhileDecisionWaits) {
                reached = true; // about-to-finish waits: no decision comes
            } else if (point == AfterQueueing && !reached) {
                run.engine->setNext(second, ZuvoRoles());
                reached = true;
            } else if (point == AtNextStart) {
                run.engine->setNext(second, ZuvoRoles());
            }
        });
        // Only sets: a successor that starts in the same pass of the event
        // loop as an earlier point must not take that point back.
        QObject::connect(run.engine.get(), &StreamerEngine::nextStarted,
                         [&] { reached = reached || point == AtNextStart; });
        run.engine->play(first, ZuvoRoles(), false);
        ASSERT_TRUE(waitUntil([&] { return reached || run.idle(); }, 5000)) << "point " << point;
        QElapsedTimer clock;
        clock.start();
        (i / PointCount) % 2 == 1 ? run.engine.reset() : run.engine->stop();
        EXPECT_LT(clock.elapsed(), 1000) << "point " << point;
    };
    cycle(0);
    const int fds = countEntries("/proc/self/fd");
    const int threads = countEntries("/proc/self/task");
    for (int i = 0; i < cycles; ++i)
        cycle(i);
    EXPECT_TRUE(waitUntil([&] { return countEntries("/proc/self/fd") <= fds; }, 5000))
        << countEntries("/proc/self/fd") << " descriptors, " << fds << " before";
    EXPECT_TRUE(waitUntil([&] { return countEntries("/proc/self/task") <= threads; }, 20000))
        << countEntries("/proc/self/task") << " threads, " << threads << " before";
}

} // namespace
