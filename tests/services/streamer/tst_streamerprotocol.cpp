// The streamer protocol, as every streamer service serves it: every command
// in every state, and the refusals. Each backend brings its own media: URIs
// the simulated streamer understands, real audio files for GStreamer.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "streamerbackends.h"
#include "streamerworld.h"
#include "support/logcapture.h"

using simtest::answerOf;
using simtest::attributeArgs;
using simtest::isPlaying;
using simtest::seekArgs;
using zuvotest::StreamerBackend;
using zuvotest::waitUntil;

namespace {

using State = ZuvoPlayLogicState;
using World = simtest::BasicWorld<StreamerService>;

enum class Start { Stopped, Playing, Paused, NearEnd, PlayingWithNext, NearEndWithNext };
enum Cmd { Play, SetNext, ClearNext, Pause, Resume, Stop, SeekTime, SeekBytes, SetAttributes };

class StreamerProtocol : public testing::TestWithParam<const StreamerBackend*> {
protected:
    const StreamerBackend& backend() const { return *GetParam(); }
    std::unique_ptr<World> world() const {
        return std::make_unique<World>([this](CMNodes* nodes) { return backend().make(nodes); });
    }
    QVariant play(StreamerBackend::Media media) const { return simtest::playArgs(backend().uri(media)); }

    // Brings the streamer into start; false when it did not get there.
    bool bring(World& w, Start start) const {
        if (start == Start::Stopped)
            return true;
        const bool nearEnd = start == Start::NearEnd || start == Start::NearEndWithNext;
        if (answerOf(w.call(ZuvoStreamerPlayPath(),
                            play(nearEnd ? StreamerBackend::Short : StreamerBackend::Long))) !=
                QStringLiteral("id:1") ||
            !w.waitFor(
                [nearEnd](const ZuvoStreamerData& d) {
                    return isPlaying(d) && d.trackNearEnd() == nearEnd && d.status().timeSeek();
                },
                10000))
            return false;
        if (start == Start::Paused)
            return answerOf(w.call(ZuvoStreamerPausePath())) == QStringLiteral("ok");
        if (start == Start::PlayingWithNext || start == Start::NearEndWithNext)
            return answerOf(w.call(ZuvoStreamerSetNextMediaPath(), play(StreamerBackend::Next))) ==
                   QStringLiteral("id:2");
        return true;
    }

    CMReply<QVariant> send(World& w, Cmd cmd) const {
        const std::vector<std::pair<CMPath, QVariant>> commands = {
            {ZuvoStreamerPlayPath(), play(StreamerBackend::New)},
            {ZuvoStreamerSetNextMediaPath(), play(StreamerBackend::Later)},
            {ZuvoStreamerClearNextMediaPath(), QVariant()},
            {ZuvoStreamerPausePath(), QVariant()},
            {ZuvoStreamerResumePath(), QVariant()},
            {ZuvoStreamerStopPath(), QVariant()},
            {ZuvoStreamerSeekPath(), seekArgs(500)},
            {ZuvoStreamerSeekPath(), seekArgs(-1, 1000)},
            {ZuvoStreamerSetAttributesPath(),
             attributeArgs(-1, QVariantHash{{ZuvoStreamerAttributesBufferingConfig(), QVariantHash()}})},
        };
        return w.send(commands.at(cmd).first, commands.at(cmd).second);
    }
};

TEST_P(StreamerProtocol, EveryCommandInEveryState) {
    struct Row {
        Start start;
        Cmd cmd;
        const char* answer;
        State::Enum state; // of the first record the command published, else the current one
        int playbackId;    // 0: the record has none
        bool next;
        bool nearEnd;
    };
    using S = Start;
    // clang-format off
    const std::vector<Row> rows = {
        {S::Stopped, Play, "id:1", State::loading, 1, false, false},
        {S::Stopped, SetNext, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, ClearNext, "ok", State::stopped, 0, false, false},
        {S::Stopped, Pause, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, Resume, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, Stop, "ok", State::stopped, 0, false, false},
        {S::Stopped, SeekTime, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, SeekBytes, "NotPlaying", State::stopped, 0, false, false},
        {S::Stopped, SetAttributes, "ok", State::stopped, 0, false, false},
        {S::Playing, Play, "id:2", State::loading, 2, false, false},
        {S::Playing, SetNext, "id:2", State::playing, 1, true, false},
        {S::Playing, ClearNext, "ok", State::playing, 1, false, false},
        {S::Playing, Pause, "ok", State::paused, 1, false, false},
        {S::Playing, Resume, "ok", State::playing, 1, false, false},
        {S::Playing, Stop, "ok", State::stopped, 1, false, false},
        {S::Playing, SeekTime, "ok", State::playing, 1, false, false},
        {S::Playing, SeekBytes, "NotSeekable", State::playing, 1, false, false},
        {S::Playing, SetAttributes, "ok", State::playing, 1, false, false},
        {S::Paused, Play, "id:2", State::loading, 2, false, false},
        {S::Paused, SetNext, "id:2", State::paused, 1, true, false},
        {S::Paused, ClearNext, "ok", State::paused, 1, false, false},
        {S::Paused, Pause, "ok", State::paused, 1, false, false},
        {S::Paused, Resume, "ok", State::playing, 1, false, false},
        {S::Paused, Stop, "ok", State::stopped, 1, false, false},
        {S::Paused, SeekTime, "ok", State::paused, 1, false, false},
        {S::Paused, SeekBytes, "NotSeekable", State::paused, 1, false, false},
        {S::Paused, SetAttributes, "ok", State::paused, 1, false, false},
        {S::NearEnd, Play, "id:2", State::loading, 2, false, false},
        {S::NearEnd, SetNext, "id:2", State::playing, 1, true, true},
        {S::NearEnd, ClearNext, "ok", State::playing, 1, false, true},
        {S::NearEnd, Pause, "ok", State::paused, 1, false, true},
        {S::NearEnd, Resume, "ok", State::playing, 1, false, true},
        {S::NearEnd, Stop, "ok", State::stopped, 1, false, true},
        {S::NearEnd, SeekTime, "ok", State::playing, 1, false, true},
        {S::NearEnd, SeekBytes, "NotSeekable", State::playing, 1, false, true},
        {S::NearEnd, SetAttributes, "ok", State::playing, 1, false, true},
        {S::PlayingWithNext, Play, "id:3", State::loading, 3, false, false},
        {S::PlayingWithNext, SetNext, "id:3", State::playing, 1, true, false},
        {S::PlayingWithNext, ClearNext, "ok", State::playing, 1, false, false},
        {S::PlayingWithNext, Pause, "ok", State::paused, 1, true, false},
        {S::PlayingWithNext, Resume, "ok", State::playing, 1, true, false},
        {S::PlayingWithNext, Stop, "ok", State::stopped, 1, false, false},
        {S::PlayingWithNext, SeekTime, "ok", State::playing, 1, true, false},
        {S::PlayingWithNext, SeekBytes, "NotSeekable", State::playing, 1, true, false},
        {S::PlayingWithNext, SetAttributes, "ok", State::playing, 1, true, false},
        {S::NearEndWithNext, Play, "id:3", State::loading, 3, false, false},
        {S::NearEndWithNext, SetNext, "id:3", State::playing, 1, true, true},
        {S::NearEndWithNext, ClearNext, "ok", State::playing, 1, false, true},
        {S::NearEndWithNext, Pause, "ok", State::paused, 1, true, true},
        {S::NearEndWithNext, Resume, "ok", State::playing, 1, true, true},
        {S::NearEndWithNext, Stop, "ok", State::stopped, 1, false, true},
        {S::NearEndWithNext, SeekTime, "ok", State::playing, 1, true, true},
        {S::NearEndWithNext, SeekBytes, "NotSeekable", State::playing, 1, true, true},
        {S::NearEndWithNext, SetAttributes, "ok", State::playing, 1, true, true},
    };
    // clang-format on
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(testing::Message() << "row " << i);
        const std::unique_ptr<World> w = world();
        ASSERT_TRUE(bring(*w, row.start));
        const int publishedBefore = w->records.size();
        const int commandsBefore = w->commands.size();
        const CMReply<QVariant> reply = send(*w, row.cmd);
        ASSERT_TRUE(waitUntil([&] { return reply.isFinished(); }));
        EXPECT_EQ(answerOf(reply), QString::fromUtf8(row.answer));
        EXPECT_EQ(w->commands.size(), commandsBefore + 1);
        if (reply.hasError()) {
            EXPECT_EQ(w->records.size(), publishedBefore) << "a refused command published";
            continue;
        }
        // What the command itself published: a real engine may have moved on
        // since (a local file loads in a moment).
        const ZuvoStreamerData data =
            w->records.size() > publishedBefore ? w->records.at(publishedBefore) : w->streamer.data();
        EXPECT_EQ(data.state(), row.state);
        EXPECT_EQ(data.isSetPlaybackId(), row.playbackId != 0);
        EXPECT_EQ(data.playbackId(), row.playbackId);
        EXPECT_EQ(data.isSetNextTrackRoles(), row.next);
        EXPECT_EQ(data.trackNearEnd(), row.nearEnd);
        EXPECT_TRUE(data.error().isEmpty());
        if (row.cmd == Play) {
            EXPECT_EQ(data.trackRoles().title(), backend().uri(StreamerBackend::New));
        } else if (row.cmd == SetNext) {
            EXPECT_EQ(data.nextTrackRoles().title(), backend().uri(StreamerBackend::Later));
        } else if (row.cmd == SeekTime) {
            // A real engine may have played on from there already.
            EXPECT_GE(w->streamer.playTimeMs(), 500);
            EXPECT_LT(w->streamer.playTimeMs(), 600);
        }
        EXPECT_EQ(w->streamer.isActive(), row.state != State::stopped);
    }
}

TEST_P(StreamerProtocol, RefusalsNameWhatIsWrongAndChangeNothing) {
    const std::unique_ptr<World> w = world();
    ASSERT_TRUE(bring(*w, Start::Paused));
    const ZuvoStreamerData paused = w->streamer.data();
    const QString invalid = StreamerService::ErrorInvalidArgument();
    const std::vector<std::tuple<CMPath, QVariant, QString>> cases = {
        {ZuvoStreamerPlayPath(), QStringLiteral("http://h/a.mp3"), invalid}, // no record, so no URI
        {ZuvoStreamerSetNextMediaPath(), QVariant(), invalid},
        {ZuvoStreamerSeekPath(), seekArgs(10, 10), invalid},
        {ZuvoStreamerSeekPath(), seekArgs(paused.status().duration() + 1), invalid},
        {ZuvoStreamerSetAttributesPath(), attributeArgs(7, QVariantHash()),
         StreamerService::ErrorUnknownPlayback()},
        {ZuvoStreamerSetAttributesPath(), attributeArgs(-1, QStringLiteral("big")), invalid},
        {ZuvoStreamerPlayPath() + QStringLiteral("/extra"), QVariant(), QStringLiteral("NotSupported")},
    };
    for (const auto& [command, payload, error] : cases) {
        SCOPED_TRACE(command.toEncoded().toStdString());
        LogCapture log;
        const int published = w->records.size();
        const CMReply<QVariant> reply = w->call(command, payload);
        EXPECT_EQ(answerOf(reply), error);
        EXPECT_FALSE(reply.error().message().isEmpty());
        EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Refused")));
        EXPECT_EQ(w->records.size(), published);
        EXPECT_EQ(w->streamer.data(), paused);
    }
    // Refused plays used no playback id.
    EXPECT_EQ(answerOf(w->call(ZuvoStreamerPlayPath(), play(StreamerBackend::New))), QStringLiteral("id:2"));
}

// Commands in any order and at any rate (a fixed seed): every one is
// answered with a playback id or a named refusal, ids only grow, and a stop
// leaves the streamer stopped and ready for the next play.
TEST_P(StreamerProtocol, CommandStormIsAnsweredAndEndsStopped) {
    const std::unique_ptr<World> w = world();
    std::mt19937 random(13);
    std::vector<CMReply<QVariant>> replies;
    for (int burst = 0; burst < 40; ++burst) {
        for (int n = int(random() % 6); n > 0; --n)
            replies.push_back(send(*w, Cmd(random() % (SetAttributes + 1))));
        // Some bursts meet the engine's own events, some come back to back.
        if (random() % 2)
            waitUntil([] { return false; }, int(random() % 40));
        else
            zuvotest::drainEvents();
    }
    ASSERT_TRUE(waitUntil(
        [&] {
            return std::all_of(replies.begin(), replies.end(), [](const auto& r) { return r.isFinished(); });
        },
        10000));
    const QStringList refusals = {StreamerService::ErrorNotPlaying(), StreamerService::ErrorNotSeekable(),
                                  StreamerService::ErrorInvalidArgument()};
    int lastId = 0;
    for (const CMReply<QVariant>& reply : replies) {
        const QString answer = answerOf(reply);
        if (answer.startsWith(QStringLiteral("id:"))) {
            EXPECT_GT(reply.value().toInt(), lastId);
            lastId = reply.value().toInt();
        } else if (answer != QStringLiteral("ok")) {
            EXPECT_TRUE(refusals.contains(answer)) << answer.toStdString();
        }
    }
    EXPECT_EQ(answerOf(w->call(ZuvoStreamerStopPath())), QStringLiteral("ok"));
    EXPECT_TRUE(w->waitFor(simtest::isStopped));
    EXPECT_FALSE(w->streamer.isActive());
    EXPECT_EQ(answerOf(w->call(ZuvoStreamerPlayPath(), play(StreamerBackend::New))),
              QStringLiteral("id:%1").arg(lastId + 1));
}

INSTANTIATE_TEST_SUITE_P(Services, StreamerProtocol, testing::ValuesIn(zuvotest::streamerBackends()),
                         [](const testing::TestParamInfo<const StreamerBackend*>& info) {
                             return info.param->name();
                         });

} // namespace
