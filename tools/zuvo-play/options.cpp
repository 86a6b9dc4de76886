#include "options.h"

#include <QCommandLineParser>
#include <cmath>

bool PlayOptions::haveGst() {
#ifdef ZUVO_PLAY_WITH_GSTREAMER
    return true;
#else
    return false;
#endif
}

PlayOptionsResult parsePlayOptions(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays a list of items through libzuvo_api_play on a streamer (GStreamer, or a simulated one) and "
        "shows what the play logic publishes.\n"
        "An ITEM is a media URI (http(s)://..., file:///...; on the simulated streamer e.g. "
        "sim://demo/song.mp3?zuvo-duration=8000), an audio file, a folder (its audio files, by name), a "
        "playlist URL (played through the library's playlist hand-off) or a local playlist file (its "
        "entries become items).\n"
        "Keys on a terminal: space pause/resume, n next, p previous, left/right seek 10 s, s stop, q quit.\n"
        "With --json, commands are read line by line from stdin: pause, resume, next, previous, "
        "seek +MS, seek -MS, seek MS, stop, quit.\n"
        "Exit status: 0 playback ended normally (the last item ended, or stop/quit), 1 bad usage or "
        "nothing to play, 2 playback ended with an error."));
    parser.addPositionalArgument(QStringLiteral("ITEM"), QStringLiteral("Item to play."),
                                 QStringLiteral("ITEM..."));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption jsonOption(
        QStringLiteral("json"),
        QStringLiteral("One JSON object per line on stdout for every published change and streamer "
                       "command; commands from stdin."));
    const QCommandLineOption speedOption(
        QStringLiteral("speed"), QStringLiteral("Run the simulated clock N times faster (default 1)."),
        QStringLiteral("N"));
    const QCommandLineOption logConfigOption(
        QStringLiteral("log-config"),
        QStringLiteral("log4cplus properties file (default: $ZUVO_LOG_CONFIG, else warnings to stderr)."),
        QStringLiteral("FILE"));
    const QCommandLineOption streamerOption(
        QStringLiteral("streamer"),
        QStringLiteral("gst (decode and play with GStreamer) or sim (the simulated streamer); default %1.")
            .arg(PlayOptions::haveGst() ? QStringLiteral("gst") : QStringLiteral("sim, the only one built")),
        QStringLiteral("NAME"));
    const QCommandLineOption sinkOption(
        QStringLiteral("sink"),
        QStringLiteral("Audio output of the gst streamer: auto (default; a null sink in real time when "
                       "there is no audio device), null, wav:FILE (16-bit PCM, faster than real time), "
                       "alsa[:DEVICE], pulse."),
        QStringLiteral("SINK"));
    parser.addOption(jsonOption);
    parser.addOption(streamerOption);
    parser.addOption(sinkOption);
    parser.addOption(speedOption);
    parser.addOption(logConfigOption);

    PlayOptionsResult result;
    result.helpText = parser.helpText();
    if (!parser.parse(arguments)) {
        result.error = parser.errorText();
        return result;
    }
    PlayOptions& options = result.options;
    options.help = parser.isSet(helpOption);
    options.json = parser.isSet(jsonOption);
    options.logConfig = parser.value(logConfigOption);
    options.items = parser.positionalArguments();
    if (parser.isSet(streamerOption)) {
        const QString name = parser.value(streamerOption);
        if (name == QLatin1String("sim")) {
            options.streamer = PlayOptions::Streamer::Simulated;
        } else if (name == QLatin1String("gst") && PlayOptions::haveGst()) {
            options.streamer = PlayOptions::Streamer::Gst;
        } else {
            result.error = name == QLatin1String("gst")
                               ? QStringLiteral("--streamer gst: this zuvo-play is built without GStreamer")
                               : QStringLiteral("--streamer takes gst or sim, not \"%1\"").arg(name);
            return result;
        }
    }
    const bool simulated = options.streamer == PlayOptions::Streamer::Simulated;
    if (parser.isSet(sinkOption)) {
        if (simulated) {
            result.error = QStringLiteral("--sink applies to the gst streamer only");
            return result;
        }
        options.sink = parser.value(sinkOption);
    }
    if (parser.isSet(speedOption) && !simulated) {
        result.error = QStringLiteral("--speed applies to the simulated streamer only (--streamer sim)");
        return result;
    }
    if (parser.isSet(speedOption)) {
        bool ok = false;
        options.speed = parser.value(speedOption).toDouble(&ok);
        if (!ok || !std::isfinite(options.speed) || options.speed <= 0.0) {
            result.error =
                QStringLiteral("--speed needs a positive number, not \"%1\"").arg(parser.value(speedOption));
            return result;
        }
    }
    if (!options.help && options.items.isEmpty())
        result.error = QStringLiteral("no ITEM to play");
    return result;
}
