// Every command in every state, and the refusals, on every streamer service
// of the build, each with its own media (simulated URIs, real WAV files).

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <QUrl>

#include "streamerworld.h"
#include "support/logcapture.h"
#ifdef ZUVO_TEST_WITH_GSTREAMER
#include "gst/gsttestmedia.h"
#include "gststreamer.h"
#endif

using namespace simtest;
using zuvotest::waitUntil;

namespace {

using State = ZuvoPlayLogicState;

// Long: minutes; Short: near its end from the start (under 5 s) but lasting
// long enough for a test step; Next, New, Later: other tracks.
enum Media { Long, Short, Next, New, Later };

struct Backend {
    const char* name;
    World::Make make;
    QString (*uri)(Media);
};

const Backend backends[] = {
    {"simulated",
     [](CMNodes* nodes) -> std::unique_ptr<StreamerService> {
         auto streamer = std::make_unique<SimulatedStreamer>(nodes);
         streamer->setSpeed(0); // buffering, near end and failures due now still happen
         return streamer;
     },
     [](Media media) {
         const char* names[] = {"track.mp3", "short.mp3?zuvo-duration=1000", "next.mp3", "new.mp3",
                                "later.mp3"};
         return QStringLiteral("http://h/") + QLatin1String(names[media]);
     }},
#ifdef ZUVO_TEST_WITH_GSTREAMER
    {"gstreamer",
     [](CMNodes* nodes) -> std::unique_ptr<StreamerService> {
         return std::make_unique<GstStreamer>(nodes, QStringLiteral("null"));
     },
     [](Media media) { // WAV files, a tone each, made on first use
         static const QTemporaryDir dir;
         QFile wav(dir.filePath(QStringLiteral("%1.wav").arg(media)));
         const double seconds[] = {60.0, 4.5, 10.0, 10.0, 10.0};
         if (!wav.exists() && wav.open(QIODevice::WriteOnly))
             wav.write(gsttest::wavFile(gsttest::tone(int(seconds[media] * gsttest::Rate), media + 1)));
         return QUrl::fromLocalFile(wav.fileName()).toString();
     }},
#endif
};

enum Cmd { Play, SetNext, ClearNext, Pause, Resume, Stop, SeekTime, SeekBytes, SetAttributes, CmdCount };

class StreamerProtocol : public testing::TestWithParam<Backend> {
protected:
    std::unique_ptr<World> world() const { return std::make_unique<World>(GetParam().make); }
    QString uri(Media media) const { return GetParam().uri(media); }

    // Brings the streamer into start, a letter: Stopped, playing (p), paused
    // (Z), near its End, Playing with next media, near its end with Next
    // media. False when it did not get there.
    bool bring(World& w, char start) const {
        if (start == 'S')
            return true;
        const bool nearEnd = start == 'E' || start == 'N';
        return w.call(ZuvoStreamerPlayPath(), playArgs(uri(nearEnd ? Short : Long))) == "id:1" &&
               w.waitFor(
                   [nearEnd](const ZuvoStreamerData& d) {
                       return d.state() == State::playing && d.trackNearEnd() == nearEnd &&
                              d.status().timeSeek();
                   },
                   10000) &&
               (start != 'Z' || w.call(ZuvoStreamerPausePath()) == "ok") &&
               ((start != 'P' && start != 'N') ||
                w.call(ZuvoStreamerSetNextMediaPath(), playArgs(uri(Next))) == "id:2");
    }

    CMReply<QVariant> send(World& w, Cmd cmd) const {
        ZuvoStreamerSeekPosition atTime, atBytes;
        atTime.setTimeMs(500);
        atBytes.setBytes(1000);
        const std::pair<CMPath, QVariant> commands[] = {
            {ZuvoStreamerPlayPath(), playArgs(uri(New))},
            {ZuvoStreamerSetNextMediaPath(), playArgs(uri(Later))},
            {ZuvoStreamerClearNextMediaPath(), QVariant()},
            {ZuvoStreamerPausePath(), QVariant()},
            {ZuvoStreamerResumePath(), QVariant()},
            {ZuvoStreamerStopPath(), QVariant()},
            {ZuvoStreamerSeekPath(), atTime.__variant()},
            {ZuvoStreamerSeekPath(), atBytes.__variant()},
            {ZuvoStreamerSetAttributesPath(),
             attributeArgs(-1, QVariantHash{{ZuvoStreamerAttributesBufferingConfig(), QVariantHash()}})},
        };
        return w.send(commands[cmd].first, commands[cmd].second);
    }
};

TEST_P(StreamerProtocol, EveryCommandInEveryState) {
    // Per start (see bring()), the outcome of each command in Cmd order: the
    // answer, then the summary() of the first record the command published
    // (of the current one when it published none; nothing for a refusal).
    const char* const rows[] = {
        "S id:1/L1 NotPlaying ok/S0 NotPlaying NotPlaying ok/S0 NotPlaying NotPlaying ok/S0",
        "p id:2/L2 id:2/P1n ok/P1 ok/Z1 ok/P1 ok/S1 ok/P1 NotSeekable ok/P1",
        "Z id:2/L2 id:2/Z1n ok/Z1 ok/Z1 ok/P1 ok/S1 ok/Z1 NotSeekable ok/Z1",
        "E id:2/L2 id:2/P1ne ok/P1e ok/Z1e ok/P1e ok/S1e ok/P1e NotSeekable ok/P1e",
        "P id:3/L3 id:3/P1n ok/P1 ok/Z1n ok/P1n ok/S1 ok/P1n NotSeekable ok/P1n",
        "N id:3/L3 id:3/P1ne ok/P1e ok/Z1ne ok/P1ne ok/S1e ok/P1ne NotSeekable ok/P1ne",
    };
    for (const char* row : rows) {
        const QStringList expected = QString::fromLatin1(row).split(QLatin1Char(' '));
        for (int cmd = Play; cmd < CmdCount; ++cmd) {
            SCOPED_TRACE(testing::Message() << "start " << row[0] << ", command " << cmd);
            const std::unique_ptr<World> w = world();
            ASSERT_TRUE(bring(*w, row[0]));
            const int published = w->records.size();
            const CMReply<QVariant> reply = send(*w, Cmd(cmd));
            ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
            // A real engine may have moved on since (a local file loads in a moment).
            const bool recorded = w->records.size() > published;
            const ZuvoStreamerData data = recorded ? w->records.at(published) : w->streamer.data();
            EXPECT_EQ(answerOf(reply) + (reply.hasError() && !recorded ? QString() : '/' + summary(data)),
                      expected.at(cmd + 1));
            EXPECT_EQ(w->streamer.isActive(), !isStopped(data));
            if (reply.hasError())
                continue;
            const QString title = cmd == Play ? data.trackRoles().title() : data.nextTrackRoles().title();
            EXPECT_TRUE((cmd != Play && cmd != SetNext) || title == uri(cmd == Play ? New : Later))
                << title.toStdString();
            const qint64 at = w->streamer.playTimeMs(); // a real engine may have played on from a seek
            EXPECT_TRUE(cmd != SeekTime || (at >= 500 && at < 600)) << at;
        }
    }
}

TEST_P(StreamerProtocol, RefusalsNameWhatIsWrongAndChangeNothing) {
    const std::unique_ptr<World> w = world();
    ASSERT_TRUE(bring(*w, 'Z'));
    const ZuvoStreamerData paused = w->streamer.data();
    const QString invalid = StreamerService::ErrorInvalidArgument();
    ZuvoStreamerSeekPosition both, beyond;
    both.setTimeMs(10);
    both.setBytes(10);
    beyond.setTimeMs(paused.status().duration() + 1);
    const std::tuple<CMPath, QVariant, QString> cases[] = {
        {ZuvoStreamerPlayPath(), QStringLiteral("http://h/a.mp3"), invalid}, // no record, so no URI
        {ZuvoStreamerSetNextMediaPath(), QVariant(), invalid},
        {ZuvoStreamerSeekPath(), both.__variant(), invalid},
        {ZuvoStreamerSeekPath(), beyond.__variant(), invalid},
        {ZuvoStreamerSetAttributesPath(), attributeArgs(7, QVariantHash()),
         StreamerService::ErrorUnknownPlayback()},
        {ZuvoStreamerSetAttributesPath(), attributeArgs(-1, QStringLiteral("big")), invalid},
        {ZuvoStreamerPlayPath() + QStringLiteral("/extra"), QVariant(), QStringLiteral("NotSupported")},
    };
    for (const auto& [command, payload, error] : cases) {
        SCOPED_TRACE(command.toEncoded().toStdString());
        LogCapture log;
        const int published = w->records.size();
        const CMReply<QVariant> reply = w->send(command, payload);
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        EXPECT_EQ(answerOf(reply), error);
        EXPECT_TRUE(!reply.error().message().isEmpty() &&
                    log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Refused ")));
        EXPECT_TRUE(w->records.size() == published && w->streamer.data() == paused) << "nothing changed";
    }
    EXPECT_EQ(w->call(ZuvoStreamerPlayPath(), playArgs(uri(New))), "id:2") << "refused plays used no id";
}

INSTANTIATE_TEST_SUITE_P(Services, StreamerProtocol,
                         testing::ValuesIn(std::begin(backends), std::end(backends)),
                         [](const testing::TestParamInfo<Backend>& info) { return info.param.name; });

} // namespace
