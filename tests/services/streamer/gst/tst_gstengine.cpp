#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>
#include <memory>

#include "gstengine.h"
#include "gsttestfixture.h"
#include "gsttestmedia.h"
#include "streamererrors.h"
#include "support/eventloop.h"
#include "support/httptestserver.h"

// GstEngine on real pipelines: audio made here, served from files and a
// loopback HTTP server, played into a WAV file or a real-time null sink.

using zuvotest::HttpTestRoute;
using zuvotest::HttpTestServer;
using zuvotest::waitUntil;

namespace {

// An engine and what it reported.
struct EngineRun {
    explicit EngineRun(const AudioSinkSpec& sink)
        : engine(std::make_unique<GstEngine>(sink)) {
        QObject::connect(engine.get(), &StreamerEngine::nextStarted, [this] { ++starts; });
        QObject::connect(engine.get(), &StreamerEngine::ended, [this] { ++ends; });
        QObject::connect(engine.get(), &StreamerEngine::failed, [this](int c, const QString& d) {
            code = c;
            detail = d;
        });
        QObject::connect(engine.get(), &StreamerEngine::crashed, [this] { ++crashes; });
    }
    bool idle() const { return ends > 0 || code != 0 || crashes > 0; }

    std::unique_ptr<GstEngine> engine;
    int starts = 0;
    int ends = 0;
    int crashes = 0;
    int code = 0;
    QString detail;
};

class GstEngineTest : public gsttest::Fixture {
protected:
    QString writeWav(const QString& name, const QVector<qint16>& samples) {
        return write(name, gsttest::wavFile(samples));
    }
    AudioSinkSpec wavSink() const {
        return AudioSinkSpec(AudioSinkSpec::Kind::Wav, path(QStringLiteral("out.wav")));
    }
};

TEST_F(GstEngineTest, GaplessToTheSampleOverHttp) {
    const QVector<qint16> tracks[] = {gsttest::tone(44100, 1), gsttest::tone(66150, 2),
                                      gsttest::tone(33075, 3)};
    writeWav(QStringLiteral("b.wav"), tracks[1]);
    ASSERT_EQ(gsttest::encode(path(QStringLiteral("b.wav")), QStringLiteral("flacenc"),
                              path(QStringLiteral("b.flac"))),
              QString());
    server.setResponse(QStringLiteral("/a.wav"), 200, gsttest::wavFile(tracks[0]));
    server.setResponse(QStringLiteral("/b.flac"), 200, read(QStringLiteral("b.flac")));
    server.setResponse(QStringLiteral("/c.wav"), 200, gsttest::wavFile(tracks[2]));
    const QStringList uris = {server.url(QStringLiteral("/a.wav")), server.url(QStringLiteral("/b.flac")),
                              server.url(QStringLiteral("/c.wav"))};

    EngineRun run(wavSink());
    // The client's side: queue the successor when the track nears its end.
    int queued = 0;
    QObject::connect(run.engine.get(), &StreamerEngine::updated, [&] {
        if (!run.engine->nearEnd() || queued > run.starts)
            return;
        ++queued;
        if (queued < uris.size())
            run.engine->setNext(uris.at(queued), ZuvoRoles());
        else
            run.engine->clearNext();
    });
    run.engine->play(uris.at(0), ZuvoRoles(), false);
    ASSERT_TRUE(waitUntil([&] { return run.idle(); }, 20000));
    EXPECT_EQ(run.ends, 1) << run.detail.toStdString();
    EXPECT_EQ(run.starts, 2);
    QVector<qint16> expected;
    for (const auto& track : tracks)
        expected += track;
    const QVector<qint16> output = gsttest::wavSamples(read(QStringLiteral("out.wav")));
    ASSERT_EQ(output.size(), expected.size());
    EXPECT_TRUE(output == expected);
}

TEST_F(GstEngineTest, FailuresGetTheirCodes) {
    QFile(path(QStringLiteral("short.wav"))).remove();
    const QByteArray wav = gsttest::wavFile(gsttest::tone(44100, 4));
    QFile random(path(QStringLiteral("random.bin")));
    ASSERT_TRUE(random.open(QIODevice::WriteOnly));
    QByteArray noise(20000, '\0');
    quint32 state = 12345;
    for (char& byte : noise)
        byte = char((state = state * 1103515245u + 12345u) >> 24);
    random.write(noise);
    random.close();
    ASSERT_EQ(
        gsttest::runPipeline(QStringLiteral("videotestsrc num-buffers=1 ! pngenc ! filesink location=\"%1\"")
                                 .arg(path(QStringLiteral("image.png")))),
        QString());
    server.setResponse(QStringLiteral("/401"), 401, QByteArray());
    server.setResponse(QStringLiteral("/403"), 403, QByteArray());
    server.setResponse(QStringLiteral("/404"), 404, QByteArray());
    server.setResponse(QStringLiteral("/list.m3u"), 200, "#EXTM3U\n#EXTINF:-1,x\nhttp://127.0.0.1:1/a.mp3\n",
                       {{"Content-Type", "audio/x-mpegurl"}});
    HttpTestRoute broken;
    broken.body = wav.left(wav.size() / 3);
    broken.declaredLength = wav.size();
    broken.closeWhenShort = true;
    server.setRoute(QStringLiteral("/broken.wav"), broken);
    struct Case {
        const char* name;
        QString uri;
        int code; // 0: ends
    };
    const Case cases[] = {
        {"missing file", path(QStringLiteral("missing.wav")), StreamerErrorCode::CouldNotFind},
        {"refused port", QStringLiteral("http://127.0.0.1:%1/a.wav").arg(HttpTestServer::unusedPort()),
         StreamerErrorCode::CouldNotOpen},
        {"401", server.url(QStringLiteral("/401")), StreamerErrorCode::NotAuthorized},
        {"403", server.url(QStringLiteral("/403")), StreamerErrorCode::NotAuthorized},
        {"404", server.url(QStringLiteral("/404")), StreamerErrorCode::CouldNotFind},
        {"playlist document", server.url(QStringLiteral("/list.m3u")), StreamerErrorCode::MissingPlugin},
        {"random bytes", path(QStringLiteral("random.bin")), StreamerErrorCode::StreamTypeNotFound},
        {"image", path(QStringLiteral("image.png")), StreamerErrorCode::WrongType},
        {"truncated file", path(QStringLiteral("short.wav")), 0},
        {"server breaks off", server.url(QStringLiteral("/broken.wav")), StreamerErrorCode::CouldNotRead},
    };
    // A truncated file: the header promises a second, the file holds less.
    QFile truncated(path(QStringLiteral("short.wav")));
    ASSERT_TRUE(truncated.open(QIODevice::WriteOnly));
    truncated.write(wav.left(wav.size() / 2));
    truncated.close();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EngineRun run(AudioSinkSpec(AudioSinkSpec::Kind::Null));
        run.engine->play(c.uri, ZuvoRoles(), false);
        run.engine->clearNext();
        ASSERT_TRUE(waitUntil([&] { return run.idle(); }, 15000));
        EXPECT_EQ(run.code, c.code) << run.detail.toStdString();
        EXPECT_EQ(run.ends, c.code == 0 ? 1 : 0);
    }
}

TEST_F(GstEngineTest, PauseSeekAndPlayTimeInRealTime) {
    const QString file = writeWav(QStringLiteral("long.wav"), gsttest::tone(44100 * 8, 5));
    EngineRun run(AudioSinkSpec(AudioSinkSpec::Kind::Null));
    GstEngine& engine = *run.engine;
    engine.play(file, ZuvoRoles(), true);
    ASSERT_TRUE(waitUntil([&] { return engine.state() == ZuvoPlayLogicState::paused; }));
    ASSERT_TRUE(waitUntil([&] { return engine.status().duration() == 8000; }));
    EXPECT_TRUE(engine.status().timeSeek());
    EXPECT_FALSE(engine.status().byteSeek());
    EXPECT_EQ(engine.positionMs(), 0);

    engine.setPaused(false);
    EXPECT_EQ(engine.state(), ZuvoPlayLogicState::playing);
    QElapsedTimer clock;
    clock.start();
    zuvotest::waitUntil([] { return false; }, 1500);
    // The position is read at each poll: compare it with the clock as it moves.
    const qint64 before = engine.positionMs();
    ASSERT_TRUE(waitUntil([&] { return engine.positionMs() != before; }));
    const double ratio = double(engine.positionMs()) / double(clock.elapsed());
    EXPECT_NEAR(ratio, 1.0, 0.1) << engine.positionMs() << " ms played in " << clock.elapsed() << " ms";

    engine.setPaused(true);
    zuvotest::waitUntil([] { return false; }, 300);
    const qint64 pausedAt = engine.positionMs();
    zuvotest::waitUntil([] { return false; }, 400);
    EXPECT_EQ(engine.positionMs(), pausedAt);
    EXPECT_EQ(engine.state(), ZuvoPlayLogicState::paused);

    engine.seek(6000);
    EXPECT_EQ(engine.positionMs(), 6000);
    EXPECT_TRUE(engine.nearEnd());
    ASSERT_TRUE(waitUntil([&] { return engine.positionMs() >= 6000 && engine.positionMs() < 6100; }));
    engine.seek(1000);
    EXPECT_FALSE(engine.nearEnd());
    engine.setPaused(false);
    ASSERT_TRUE(waitUntil([&] { return engine.positionMs() > 1200; }));
    engine.stop();
    EXPECT_FALSE(waitUntil([&] { return run.idle(); }, 300)) << "stop() is silent";
}

TEST_F(GstEngineTest, DecodesEachFormatAndHls) {
    const QString source = writeWav(QStringLiteral("source.wav"), gsttest::tone(44100, 6));
    struct Case {
        const char* name;
        QString encoder; // empty: the WAV itself
        QString file;
    };
    const Case cases[] = {
        {"wav", QString(), QStringLiteral("source.wav")},
        {"flac", QStringLiteral("flacenc"), QStringLiteral("t.flac")},
        {"vorbis", QStringLiteral("vorbisenc ! oggmux"), QStringLiteral("t.ogg")},
        {"opus", QStringLiteral("audioresample ! opusenc ! oggmux"), QStringLiteral("t.opus")},
        {"mp3", QStringLiteral("lamemp3enc"), QStringLiteral("t.mp3")},
        {"aac", QStringLiteral("voaacenc ! aacparse ! mp4mux"), QStringLiteral("t.m4a")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (!c.encoder.isEmpty()) {
            ASSERT_EQ(gsttest::encode(source, c.encoder, path(c.file)), QString());
        }
        EngineRun run(wavSink());
        run.engine->play(path(c.file), ZuvoRoles(), false);
        run.engine->clearNext();
        ASSERT_TRUE(waitUntil([&] { return run.idle(); }, 15000));
        ASSERT_EQ(run.ends, 1) << run.detail.toStdString();
        const QByteArray out = read(QStringLiteral("out.wav"));
        const double rate = qFromLittleEndian<quint32>(out.constData() + 24);
        const double seconds = gsttest::wavSamples(out).size() / 2 / rate;
        EXPECT_NEAR(seconds, 1.0, 0.06);
    }

    // HLS: 1 s segments of AAC in MPEG-TS, served here.
    QDir(path(QStringLiteral("hls"))).mkpath(QStringLiteral("."));
    ASSERT_EQ(gsttest::runPipeline(
                  QStringLiteral("audiotestsrc num-buffers=90 samplesperbuffer=1470 ! "
                                 "audio/x-raw,rate=44100,channels=2 ! voaacenc ! aacparse ! "
                                 "hlssink2 location=\"%1/seg%05d.ts\" playlist-location=\"%1/list.m3u8\" "
                                 "target-duration=1 max-files=0 playlist-length=0")
                      .arg(path(QStringLiteral("hls")))),
              QString());
    const QStringList files = QDir(path(QStringLiteral("hls"))).entryList(QDir::Files);
    ASSERT_GE(files.size(), 3);
    for (const QString& name : files)
        server.setResponse(QStringLiteral("/hls/") + name, 200, read(QStringLiteral("hls/") + name));
    EngineRun run(wavSink());
    run.engine->play(server.url(QStringLiteral("/hls/list.m3u8")), ZuvoRoles(), false);
    run.engine->clearNext();
    ASSERT_TRUE(waitUntil([&] { return run.idle(); }, 20000));
    EXPECT_EQ(run.ends, 1) << run.detail.toStdString();
    EXPECT_EQ(server.requestCount(QStringLiteral("/hls/seg00001.ts")), 1);
    EXPECT_GE(gsttest::wavSamples(read(QStringLiteral("out.wav"))).size(), 2 * 44100 * 2);
}

int countEntries(const char* dir) {
    return QDir(QString::fromLatin1(dir)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size();
}

// Stop or destroy the engine at each point of a gapless transition, over and
// over: nothing hangs (a waiting about-to-finish is released), nothing
// leaks, threads and descriptors come back. ZUVO_GST_STRESS_CYCLES sets the
// number of cycles (default 60, a few seconds; a few hundred for a soak).
TEST_F(GstEngineTest, StopAndDestroyAtEveryPointOfATransition) {
    bool ok = false;
    const int requested = qEnvironmentVariableIntValue("ZUVO_GST_STRESS_CYCLES", &ok);
    const int cycles = ok && requested > 0 ? requested : 60;
    const QString first = writeWav(QStringLiteral("a.wav"), gsttest::tone(4410, 7));
    const QString second = writeWav(QStringLiteral("b.wav"), gsttest::tone(4410, 8));
    enum Point { AfterPlay, AtFirstUpdate, WhileDecisionWaits, AfterQueueing, AtNextStart, PointCount };
    auto cycle = [&](int i) {
        const Point point = Point(i % PointCount);
        const bool destroy = (i / PointCount) % 2 == 1;
        EngineRun run(wavSink());
        bool reached = point == AfterPlay;
        QObject::connect(run.engine.get(), &StreamerEngine::updated, [&] {
            if (point == AtFirstUpdate)
                reached = true;
            if (run.engine->nearEnd() && run.starts == 0) {
                if (point == WhileDecisionWaits)
                    reached = true; // about-to-finish waits: no decision comes
                else if (point == AfterQueueing && !reached) {
                    run.engine->setNext(second, ZuvoRoles());
                    reached = true;
                } else if (point == AtNextStart)
                    run.engine->setNext(second, ZuvoRoles());
            }
        });
        // Only sets: a successor that starts in the same pass of the event
        // loop as an earlier point must not take that point back.
        QObject::connect(run.engine.get(), &StreamerEngine::nextStarted, [&] {
            if (point == AtNextStart)
                reached = true;
        });
        run.engine->play(first, ZuvoRoles(), false);
        ASSERT_TRUE(waitUntil([&] { return reached || run.idle(); }, 5000)) << "point " << point;
        QElapsedTimer clock;
        clock.start();
        if (destroy)
            run.engine.reset();
        else
            run.engine->stop();
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
