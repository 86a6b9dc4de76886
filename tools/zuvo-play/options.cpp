#include "options.h"

#include <QCommandLineParser>
#include <cmath>

PlayOptionsResult parsePlayOptions(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays a list of items through libzuvo_api_play on a simulated streamer and shows what the play "
        "logic publishes.\n"
        "An ITEM is a media URI (e.g. sim://demo/song.mp3?zuvo-duration=8000), a playlist URL (played "
        "through the library's playlist hand-off) or a local playlist file (its entries become items).\n"
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
    parser.addOption(jsonOption);
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
