#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

#include "support/eventloop.h"
#include "support/toolprocess.h"

// zuvo-play run as a process with --json: its stdout lines are read as they
// come and the test reacts to them (commands on stdin); nothing waits for a
// fixed time.

namespace {

using Predicate = std::function<bool(const QJsonObject&)>;

Predicate event(const char* name) {
    return [name](const QJsonObject& e) {
        return e.value(QStringLiteral("event")).toString() == QLatin1String(name);
    };
}

Predicate streamerCommand(const char* name) {
    return [name](const QJsonObject& e) {
        return event("command")(e) && e.value(QStringLiteral("command")).toString() == QLatin1String(name);
    };
}

Predicate publishedState(const char* state) {
    return [state](const QJsonObject& e) {
        return event("data")(e) && e.value(QStringLiteral("state")).toString() == QLatin1String(state);
    };
}

Predicate track(int index) {
    return [index](const QJsonObject& e) {
        return event("track")(e) && e.value(QStringLiteral("index")).toInt() == index;
    };
}

// The URI a streamer play/setNextMedia command asked for.
QString commandUri(const QJsonObject& e) {
    return e.value(QStringLiteral("argument"))
        .toObject()
        .value(QStringLiteral("roles"))
        .toObject()
        .value(QStringLiteral("mediaData"))
        .toObject()
        .value(QStringLiteral("activeResource"))
        .toObject()
        .value(QStringLiteral("uri"))
        .toString();
}

// One zuvo-play process and the JSON events it has written so far.
class PlayProcess {
public:
    // json: stdout is read as JSON lines (else it is kept as it is).
    explicit PlayProcess(const QStringList& args, bool json = true)
        : m_json(json) {
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process, [this] { read(); });
        zuvotest::startTool(m_process, QStringLiteral(ZUVO_PLAY_PATH), args);
        EXPECT_TRUE(m_process.waitForStarted(10000));
    }
    ~PlayProcess() {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    void send(const char* line) {
        m_process.write(line);
        m_process.write("\n");
    }
    const QList<QJsonObject>& events() const { return m_events; }
    // Index of the first event from index `from` on that matches, waiting
    // for it while the process runs; -1 when none comes.
    int waitFor(const Predicate& matches, int from = 0) {
        int found = -1;
        zuvotest::waitUntil(
            [&] {
                for (int i = from; i < m_events.size() && found < 0; ++i)
                    found = matches(m_events.at(i)) ? i : -1;
                return found >= 0 || m_process.state() == QProcess::NotRunning;
            },
            30000);
        for (int i = from; i < m_events.size() && found < 0; ++i)
            found = matches(m_events.at(i)) ? i : -1;
        return found;
    }
    // Waits for the process to end; its exit code, -1 when it crashed or hung.
    int exitCode() {
        zuvotest::waitUntil([&] { return m_process.state() == QProcess::NotRunning; }, 60000);
        if (m_process.state() != QProcess::NotRunning)
            return -1;
        read();
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    QByteArray errorOutput() { return m_process.readAllStandardError(); }
    QList<QJsonObject> all(const Predicate& matches) const {
        QList<QJsonObject> result;
        for (const QJsonObject& e : m_events) {
            if (matches(e))
                result.append(e);
        }
        return result;
    }

private:
    void read() {
        m_buffer += m_process.readAllStandardOutput();
        if (!m_json)
            return;
        int end;
        while ((end = m_buffer.indexOf('\n')) >= 0) {
            const QByteArray line = m_buffer.left(end);
            m_buffer.remove(0, end + 1);
            QJsonParseError error;
            const QJsonDocument document = QJsonDocument::fromJson(line, &error);
            EXPECT_TRUE(document.isObject()) << "not a JSON object: " << line.toStdString();
            m_events.append(document.object());
        }
    }

    const bool m_json;
    QProcess m_process;
    QByteArray m_buffer;
    QList<QJsonObject> m_events;
};

QStringList jsonArgs(double speed, const QStringList& items) {
    return QStringList{QStringLiteral("--json"), QStringLiteral("--streamer"), QStringLiteral("sim"),
                       QStringLiteral("--speed"), QString::number(speed)} +
           items;
}

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& body) {
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(body);
    return file.fileName();
}

TEST(ZuvoPlay, LocalPlaylistPlaysGaplesslyToTheEnd) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    QByteArray m3u = "#EXTM3U\n";
    for (int i = 0; i < 4; ++i)
        m3u += "#EXTINF:6,Band - Song " + QByteArray::number(i) + "\nsim://list/song" +
               QByteArray::number(i) + ".mp3?zuvo-duration=6000\n";
    // The next media is asked for 5 s (simulated) before an item's end: at
    // speed 20 that leaves 250 ms to queue it, enough on a loaded machine.
    PlayProcess play(jsonArgs(20, {writeFile(dir, QStringLiteral("list.m3u"), m3u)}));
    ASSERT_EQ(play.exitCode(), 0) << play.errorOutput().toStdString();

    // Each item once, in order, and every one a new media of the streamer.
    const QList<QJsonObject> tracks = play.all(event("track"));
    ASSERT_EQ(tracks.size(), 4);
    QList<int> streamIds;
    for (const QJsonObject& e : play.all(event("data"))) {
        const QJsonObject data = e.value(QStringLiteral("data")).toObject();
        const int streamId = data.value(QStringLiteral("streamId")).toInt(-1);
        if (streamId >= 0 && !streamIds.contains(streamId))
            streamIds.append(streamId);
    }
    EXPECT_EQ(streamIds.size(), 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(tracks.at(i).value(QStringLiteral("index")).toInt(), i);
        EXPECT_EQ(tracks.at(i).value(QStringLiteral("title")).toString(), QStringLiteral("Song %1").arg(i));
    }

    // One play, then the streamer is led on with next media: gapless.
    const QList<QJsonObject> plays = play.all(streamerCommand("play"));
    const QList<QJsonObject> nextMedia = play.all(streamerCommand("setNextMedia"));
    ASSERT_EQ(plays.size(), 1);
    ASSERT_EQ(nextMedia.size(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(commandUri(nextMedia.at(i)).contains(QStringLiteral("song%1.mp3").arg(i + 1)));

    // Stopped only at the very end.
    const int firstActive = play.waitFor(publishedState("loading"));
    const int stopped = play.waitFor(publishedState("stopped"), firstActive);
    ASSERT_GE(firstActive, 0);
    EXPECT_EQ(stopped, play.events().lastIndexOf(play.all(event("data")).last()));
    EXPECT_EQ(play.events().last().value(QStringLiteral("event")).toString(), QStringLiteral("end"));
}

TEST(ZuvoPlay, CommandsFromStdinControlThePlayback) {
    // Long items on the real-time clock: nothing ends by itself meanwhile,
    // and the position hardly moves between two commands.
    const QStringList items = {QStringLiteral("sim://c/one.mp3?zuvo-duration=3600000"),
                               QStringLiteral("sim://c/two.mp3?zuvo-duration=3600000")};
    PlayProcess play(jsonArgs(1, items));
    int at = play.waitFor(publishedState("playing"));
    ASSERT_GE(at, 0);

    play.send("pause");
    at = play.waitFor(publishedState("paused"), at);
    ASSERT_GE(at, 0);
    play.send("pause"); // already paused: nothing to do
    play.send("resume");
    at = play.waitFor(publishedState("playing"), at);
    ASSERT_GE(at, 0);
    EXPECT_EQ(play.all(streamerCommand("pause")).size(), 1);
    EXPECT_EQ(play.all(streamerCommand("resume")).size(), 1);

    // Absolute, then relative seeks, clamped by the play logic.
    const auto seekTarget = [&](int index) {
        return play.events()
            .at(index)
            .value(QStringLiteral("argument"))
            .toObject()
            .value(QStringLiteral("timeMs"))
            .toDouble();
    };
    // A relative seek counts from the play time the play logic has seen.
    const auto playTimeFrom = [](double ms) -> Predicate {
        return [ms](const QJsonObject& e) {
            return event("playTime")(e) && e.value(QStringLiteral("ms")).toDouble() >= ms;
        };
    };
    play.send("seek 5000");
    at = play.waitFor(streamerCommand("seek"), at + 1);
    ASSERT_GE(at, 0);
    EXPECT_EQ(seekTarget(at), 5000);
    ASSERT_GE(play.waitFor(playTimeFrom(5000), at), 0);
    play.send("seek +10000");
    at = play.waitFor(streamerCommand("seek"), at + 1);
    ASSERT_GE(at, 0);
    const double forward = seekTarget(at);
    EXPECT_GE(forward, 15000);
    ASSERT_GE(play.waitFor(playTimeFrom(forward), at), 0);
    play.send("seek -10000");
    at = play.waitFor(streamerCommand("seek"), at + 1);
    ASSERT_GE(at, 0);
    EXPECT_LT(seekTarget(at), forward);

    play.send("next");
    at = play.waitFor(track(1), at);
    ASSERT_GE(at, 0);
    play.send("previous");
    at = play.waitFor(track(0), at);
    ASSERT_GE(at, 0);
    // The streamer may receive the play after the track change is shown.
    for (int n = 0, from = 0; n < 3; ++n) {
        from = play.waitFor(streamerCommand("play"), from) + 1;
        ASSERT_GT(from, 0);
    }
    EXPECT_EQ(play.all(streamerCommand("play")).size(), 3);

    play.send("jump 3");
    at = play.waitFor(event("error"), at);
    ASSERT_GE(at, 0);
    EXPECT_EQ(play.events().at(at).value(QStringLiteral("input")).toString(), QStringLiteral("jump 3"));

    play.send("stop");
    EXPECT_EQ(play.exitCode(), 0);
    EXPECT_GE(play.waitFor(streamerCommand("stop"), at), 0);
    const QJsonObject end = play.events().last();
    EXPECT_EQ(end.value(QStringLiteral("event")).toString(), QStringLiteral("end"));
    EXPECT_EQ(end.value(QStringLiteral("exitCode")).toInt(), 0);
}

TEST(ZuvoPlay, EachStreamerFailureEndsWithItsErrorName) {
    struct Case {
        const char* query;
        const char* errorName;
    };
    // The codes that mean "not a stream" send the URI to the playlist
    // parser, which knows no such document.
    const Case cases[] = {
        {"zuvo-error=-14", "unknownFormat"},
        {"zuvo-error=-15", "unknownFormat"},
        {"zuvo-error=-16", "couldNotOpenStream"},
        {"zuvo-error=-17", "notAuthorized"},
        {"zuvo-error=-18", "couldNotRead"},
        {"zuvo-error=-19", "couldNotFind"},
        {"zuvo-error=-20", "streamDecryptionIsNotSupported"},
        {"zuvo-error=-21", "streamDecryptionNoKey"},
        {"zuvo-error=-22", "unknownFormat"},
        {"zuvo-duration=60000&zuvo-error-after=20000", "couldNotRead"},
        {"zuvo-crash", "streamCrashed"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.query);
        PlayProcess play(jsonArgs(100, {QStringLiteral("sim://e/item.mp3?") + QLatin1String(c.query)}));
        EXPECT_EQ(play.exitCode(), 2);
        const QList<QJsonObject> reports = play.all(event("playbackState"));
        ASSERT_FALSE(reports.isEmpty());
        EXPECT_EQ(reports.last().value(QStringLiteral("error")).toString(), QLatin1String(c.errorName));
        // The published record keeps the error's message at the end.
        const QJsonObject last = play.all(event("data")).last();
        EXPECT_EQ(last.value(QStringLiteral("state")).toString(), QStringLiteral("stopped"));
        EXPECT_FALSE(last.value(QStringLiteral("data"))
                         .toObject()
                         .value(QStringLiteral("error"))
                         .toString()
                         .isEmpty());
        EXPECT_TRUE(play.errorOutput().contains("playback ended with an error"));
    }
}

TEST(ZuvoPlay, PlaylistItemIsHandedToTheParserAndItsEntryPlayed) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString pls = writeFile(dir, QStringLiteral("station.pls"),
                                  "[playlist]\nFile1=sim://station/stream.mp3?zuvo-duration=4000\n"
                                  "Title1=Station\nNumberOfEntries=1\n");
    // A file: URL stays one item; the streamer fails it with -15.
    PlayProcess play(jsonArgs(100, {QUrl::fromLocalFile(pls).toString()}));
    EXPECT_EQ(play.exitCode(), 0) << play.errorOutput().toStdString();
    const QList<QJsonObject> plays = play.all(streamerCommand("play"));
    ASSERT_EQ(plays.size(), 2);
    EXPECT_TRUE(commandUri(plays.at(0)).endsWith(QStringLiteral("station.pls")));
    EXPECT_EQ(commandUri(plays.at(1)), QStringLiteral("sim://station/stream.mp3?zuvo-duration=4000"));
    EXPECT_GE(play.waitFor(publishedState("playing")), 0);
    EXPECT_EQ(play.all(event("track")).size(), 1);
}

TEST(ZuvoPlay, BadCommandLinesExitWithOne) {
    const QStringList cases[] = {
        {},
        {QStringLiteral("--streamer=sim"), QStringLiteral("--speed"), QStringLiteral("fast"),
         QStringLiteral("sim://a/b.mp3")},
        {QStringLiteral("--streamer=sim"), QStringLiteral("--speed"), QStringLiteral("0"),
         QStringLiteral("sim://a/b.mp3")},
        {QStringLiteral("--streamer=sim"), QStringLiteral("--sink=null"), QStringLiteral("sim://a/b.mp3")},
        {QStringLiteral("--streamer=vlc"), QStringLiteral("sim://a/b.mp3")},
        {QStringLiteral("--no-such-option"), QStringLiteral("sim://a/b.mp3")},
        {QStringLiteral("/no/such/list.m3u")},
    };
    for (const QStringList& args : cases) {
        SCOPED_TRACE(args.join(QLatin1Char(' ')).toStdString());
        PlayProcess play(args, false);
        EXPECT_EQ(play.exitCode(), 1);
        // The GStreamer streamer may have warned about the audio output first.
        const QByteArray errors = play.errorOutput();
        EXPECT_TRUE(errors.startsWith("zuvo-play: ") || errors.contains("\nzuvo-play: "))
            << errors.toStdString();
    }
    PlayProcess help({QStringLiteral("--help")}, false);
    EXPECT_EQ(help.exitCode(), 0);
}

} // namespace
