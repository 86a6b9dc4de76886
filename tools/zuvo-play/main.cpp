// zuvo-play: plays a list of items through libzuvo_api_play on a streamer
// service (GStreamer, or the simulated one) and shows (or streams as JSON)
// what the play logic publishes.
//
//   zuvo-play [--json] [--streamer gst|sim] [--sink SINK] [--speed N]
//             [--log-config FILE] ITEM...
//
// Exit status: 0 playback ended normally (the last item ended, or stop/quit),
// 1 bad usage or nothing to play, 2 playback ended with an error.

#include <QCoreApplication>
#include <cstdio>
#include <memory>
#include <unistd.h>

#include "jsonoutput.h"
#include "logging.h"
#include "model/cmnodes.h"
#include "options.h"
#include "playsession.h"
#include "rawterminal.h"
#include "stdincommands.h"
#include "streamerchoice.h"
#include "terminalui.h"

namespace {

enum ExitStatus { Finished = 0, Usage = 1 };

void writeErr(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    fflush(stderr);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zuvo-play"));

    const PlayOptionsResult parsed = parsePlayOptions(QCoreApplication::arguments());
    if (!parsed.error.isEmpty()) {
        writeErr(QStringLiteral("zuvo-play: %1\n\n%2").arg(parsed.error, parsed.helpText));
        return Usage;
    }
    const PlayOptions& options = parsed.options;
    if (options.help) {
        const QByteArray help = parsed.helpText.toUtf8();
        fwrite(help.constData(), 1, size_t(help.size()), stdout);
        return Finished;
    }
    if (options.logConfig.isEmpty())
        zuvoInitLogging();
    else if (!zuvoInitLogging(options.logConfig))
        return Usage; // the reason is on stderr already

    const CMRootScope root; // the model tree every node of the session lives in
    QString streamerError;
    std::unique_ptr<StreamerService> streamer = createStreamer(root.nodes(), options, streamerError);
    if (!streamer) {
        writeErr(QStringLiteral("zuvo-play: %1\n").arg(streamerError));
        return Usage;
    }
    PlaySession session(root.nodes(), std::move(streamer));
    const QString loadError = session.load(options.items);
    if (!loadError.isEmpty()) {
        writeErr(QStringLiteral("zuvo-play: %1\n").arg(loadError));
        return Usage;
    }

    const bool live = !options.json && isatty(STDOUT_FILENO);
    const bool keys = live && isatty(STDIN_FILENO);
    std::unique_ptr<RawTerminal> rawTerminal;
    if (keys)
        rawTerminal = std::make_unique<RawTerminal>();
    StdinCommands input(keys ? StdinCommands::Mode::Keys : StdinCommands::Mode::Lines);
    QObject::connect(&input, &StdinCommands::command, &session, &PlaySession::execute);

    std::unique_ptr<JsonOutput> json;
    std::unique_ptr<TerminalUi> terminal;
    if (options.json) {
        json = std::make_unique<JsonOutput>(&session);
        QObject::connect(&input, &StdinCommands::invalidCommand, json.get(), &JsonOutput::invalidInput);
    } else {
        terminal = std::make_unique<TerminalUi>(&session, live);
        QObject::connect(&input, &StdinCommands::invalidCommand, terminal.get(), &TerminalUi::invalidInput);
    }

    QString failure;
    QObject::connect(&session, &PlaySession::finished, &app,
                     [&failure](int exitCode, const QString& message) {
                         if (exitCode != 0)
                             failure = message;
                         QCoreApplication::exit(exitCode);
                     });
    session.start();
    const int exitCode = app.exec();

    rawTerminal.reset(); // the terminal is itself again before the last words
    if (!failure.isEmpty())
        writeErr(QStringLiteral("zuvo-play: %1\n").arg(failure));
    return exitCode;
}
