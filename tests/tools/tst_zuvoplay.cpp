#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>
#include <functional>
#include <gtest/gtest.h>

#include "support/eventloop.h"
#include "support/toolprocess.h"

// zuvo-play run as a process with --json on the simulated streamer: the test
// reacts to its stdout lines as they come (commands on stdin), never sleeps.

namespace {

using Predicate = std::function<bool(const QJsonObject&)>;

// An event named name whose field key (when given) is value.
Predicate event(const char* name, const char* key = nullptr, const QVariant& value = QVariant()) {
    return [=](const QJsonObject& e) {
        return e["event"].toString() == QLatin1String(name) && (!key || e[key].toVariant() == value);
    };
}
Predicate command(const char* name) {
    return event("command", "command", QLatin1String(name));
}
Predicate state(const char* name) {
    return event("data", "state", QLatin1String(name));
}

// One zuvo-play process and, with json, the JSON events it has written so far.
struct PlayProcess {
    explicit PlayProcess(const QStringList& args, bool json = true) {
        if (json)
            QObject::connect(&process, &QProcess::readyReadStandardOutput, &process, [this] { read(); });
        else
            process.setStandardOutputFile(QProcess::nullDevice());
        zuvotest::startTool(process, QStringLiteral(ZUVO_PLAY_PATH), args);
        EXPECT_TRUE(process.waitForStarted(10000));
    }
    ~PlayProcess() {
        process.kill();
        process.waitForFinished(5000);
    }
    void send(const char* line) { process.write(QByteArray(line) + '\n'); }
    bool running() const { return process.state() != QProcess::NotRunning; }
    // Index of the first event from index from on that matches, waiting for
    // it while the process runs; -1 when none comes.
    int waitFor(const Predicate& matches, int from = 0) {
        const auto find = [&] {
            for (int i = qMax(from, 0); i < events.size(); ++i)
                if (matches(events.at(i)))
                    return i;
            return -1;
        };
        zuvotest::waitUntil([&] { return find() >= 0 || !running(); }, 30000);
        return find();
    }
    // Waits for the process to end; its exit code, -1 when it crashed or hung.
    int exitCode() {
        zuvotest::waitUntil([&] { return !running(); }, 60000);
        if (running() || process.exitStatus() != QProcess::NormalExit)
            return -1;
        read();
        return process.exitCode();
    }
    QList<QJsonObject> all(const Predicate& matches) const {
        QList<QJsonObject> result;
        for (const QJsonObject& e : events)
            if (matches(e))
                result.append(e);
        return result;
    }
    void read() {
        buffer += process.readAllStandardOutput();
        for (int end; (end = buffer.indexOf('\n')) >= 0; buffer.remove(0, end + 1)) {
            const QJsonDocument document = QJsonDocument::fromJson(buffer.left(end));
            EXPECT_TRUE(document.isObject()) << "not a JSON object: " << buffer.left(end).toStdString();
            events.append(document.object());
        }
    }

    QProcess process;
    QByteArray buffer;
    QList<QJsonObject> events;
};

QStringList jsonArgs(double speed, const QStringList& items) {
    return QStringList{"--json", "--streamer", "sim", "--speed", QString::number(speed)} + items;
}

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& body) {
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(body);
    return file.fileName();
}

// Commands on stdin steer the playback of a folder: its audio files by name,
// whatever the case of their suffix, 30 s each on the real-time clock.
TEST(ZuvoPlay, CommandsFromStdinSteerAFolderOfAudioFiles) {
    QTemporaryDir dir;
    for (const char* name : {"b.MP3", "a.wav", "notes.txt"})
        writeFile(dir, QLatin1String(name), QByteArray());
    PlayProcess play(jsonArgs(1, {dir.path()}));
    int at = play.waitFor(state("playing"));
    ASSERT_GE(at, 0);
    play.send("pause");
    ASSERT_GE(at = play.waitFor(state("paused"), at), 0);
    play.send("pause"); // already paused: nothing to do
    play.send("resume");
    ASSERT_GE(at = play.waitFor(state("playing"), at), 0);
    EXPECT_EQ(play.all(command("pause")).size(), 1);
    EXPECT_EQ(play.all(command("resume")).size(), 1);

    // Absolute, then relative seeks (from the play time seen), clamped.
    const auto seek = [&](const char* line) {
        play.send(line);
        if ((at = play.waitFor(command("seek"), at + 1)) < 0)
            return -1.0;
        const double target = play.events.at(at)["argument"]["timeMs"].toDouble();
        const auto reached = [&](const QJsonObject& e) {
            return event("playTime")(e) && e["ms"].toDouble() >= target;
        };
        return play.waitFor(reached, at) >= 0 ? target : -1.0;
    };
    EXPECT_EQ(seek("seek 5000"), 5000);
    const double forward = seek("seek +10000");
    EXPECT_GE(forward, 15000);
    const double back = seek("seek -10000");
    EXPECT_TRUE(back >= forward - 10000 && back < forward) << back;

    play.send("next");
    ASSERT_GE(at = play.waitFor(event("track", "index", 1), at), 0);
    play.send("previous");
    ASSERT_GE(at = play.waitFor(event("track", "index", 0), at), 0);
    // The streamer may receive the play after the track change is shown.
    ASSERT_TRUE(zuvotest::waitUntil([&] { return play.all(command("play")).size() == 3; }));
    QStringList uris, titles;
    for (const QJsonObject& track : play.all(event("track"))) {
        uris << track["uri"].toString();
        titles << track["title"].toString();
    }
    const QString a = QUrl::fromLocalFile(dir.filePath("a.wav")).toString();
    EXPECT_EQ(uris, QStringList({a, QUrl::fromLocalFile(dir.filePath("b.MP3")).toString(), a}));
    EXPECT_EQ(titles, QStringList({"a.wav", "b.MP3", "a.wav"})); // a file item is titled by its name

    play.send("jump 3");
    ASSERT_GE(at = play.waitFor(event("error", "input", "jump 3"), at), 0);
    play.send("stop");
    EXPECT_EQ(play.exitCode(), 0);
    EXPECT_GE(play.waitFor(command("stop"), at), 0);
    EXPECT_EQ(play.events.last(), QJsonObject({{"event", "end"}, {"exitCode", 0}, {"message", ""}}));
}

// A list of every kind of item plays through: a local playlist (songs queued
// gaplessly, two rows of one title as alternates of a live item), a playlist
// the streamer refuses and the parser reads, then items that each fail with
// their own error name; the playback ends with the last item's error.
TEST(ZuvoPlay, ListOfEveryKindOfItemPlaysThrough) {
    QTemporaryDir dir;
    const QStringList titles = {"Song 0", "Song 1", "Song 2", "Radio", "Radio"};
    QStringList uris; // the media each play or (next) setNextMedia asks for, in order
    QByteArray m3u = "#EXTM3U\n";
    for (int i = 0; i < titles.size(); ++i) {
        const QString uri = QStringLiteral("sim://list/%1.mp3?%2")
                                .arg(i)
                                .arg(i == 3 ? "zuvo-error=-16" : "zuvo-duration=6000");
        uris << (i == 0 || i == 4 ? "" : "(next) ") + uri;
        m3u += "#EXTINF:6,Band - " + titles.at(i).toUtf8() + "\n" + uri.toUtf8() + "\n";
    }
    const QByteArray station = "sim://station/stream.mp3?zuvo-duration=4000";
    const QString pls =
        QUrl::fromLocalFile(writeFile(dir, "s.pls", "[playlist]\nFile1=" + station)).toString();
    uris << "(next) " + pls << station; // a file: URL stays one item
    // -14 (not a stream) sends the URI to the playlist parser, which cannot read it.
    const std::pair<const char*, const char*> failures[] = {
        {"zuvo-error=-14", "unknownFormat"},
        {"zuvo-error=-17", "notAuthorized"},
        {"zuvo-duration=60000&zuvo-error-after=2000", "couldNotRead"},
        {"zuvo-crash", "streamCrashed"},
    };
    QStringList items = {writeFile(dir, "list.m3u", m3u), pls}, errors = {"couldNotOpenStream"};
    for (const auto& [query, errorName] : failures) {
        items << QStringLiteral("sim://e/%1.mp3?").arg(items.size()) + QLatin1String(query);
        uris << (items.size() == 3 ? "(next) " : "") + items.last(); // the first follows the entry gaplessly
        errors << QLatin1String(errorName);
    }
    // The next media is asked for 5 s (simulated) before an item's end: at
    // speed 20 that leaves 250 ms to queue it, enough on a loaded machine.
    PlayProcess play(jsonArgs(20, items));
    EXPECT_EQ(play.exitCode(), 2);

    const QList<QJsonObject> tracks = play.all(event("track"));
    ASSERT_EQ(tracks.size(), 4 + 1 + 4);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(tracks.at(i)["title"], titles.at(i));
    QStringList sent, reported;
    for (const QJsonObject& e : play.events) {
        if (command("play")(e) || command("setNextMedia")(e))
            sent << (command("play")(e) ? "" : "(next) ") +
                        e["argument"]["roles"]["mediaData"]["activeResource"]["uri"].toString();
        if (event("playbackState", "state", "stopped")(e) && !e["error"].toString().isEmpty())
            reported << e["error"].toString();
    }
    EXPECT_EQ(sent, uris);
    EXPECT_EQ(reported, errors);
    EXPECT_TRUE(play.all(command("stop")).isEmpty());
    // Stopped only at the very end, with the last error's message.
    const QList<QJsonObject> data = play.all(event("data"));
    EXPECT_EQ(play.waitFor(state("stopped"), play.waitFor(state("loading"))),
              play.events.indexOf(data.last()));
    EXPECT_EQ(data.last()["data"]["error"], "The streamer crashed");
    EXPECT_GE(play.waitFor(event("bufferLevel", "level", 100.0)), 0);
    EXPECT_EQ(play.events.last()["event"], "end");
    EXPECT_TRUE(play.process.readAllStandardError().contains(
        "zuvo-play: playback ended with an error: The streamer crashed"));
}

TEST(ZuvoPlay, BadCommandLinesExitWithOne) {
    for (const char* line :
         {"", "--streamer=sim --speed fast sim://a/b.mp3", "--streamer=sim --speed 0 sim://a/b.mp3",
          "--streamer=sim --sink=null sim://a/b.mp3", "--streamer=vlc sim://a/b.mp3",
          "--no-such-option sim://a/b.mp3", "/no/such/list.m3u"}) {
        SCOPED_TRACE(line);
        PlayProcess play(QString::fromLatin1(line).split(' ', Qt::SkipEmptyParts), false);
        EXPECT_EQ(play.exitCode(), 1);
        // The GStreamer streamer may have warned about the audio output first.
        const QByteArray errors = play.process.readAllStandardError();
        EXPECT_TRUE(errors.startsWith("zuvo-play: ") || errors.contains("\nzuvo-play: "))
            << errors.toStdString();
    }
    EXPECT_EQ(PlayProcess({"--help"}, false).exitCode(), 0);
}

} // namespace
