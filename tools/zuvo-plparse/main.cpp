// zuvo-plparse: parses a playlist with libzuvo_api_play and prints its entries.
//
//   zuvo-plparse [--json] [--content-type TYPE] URL-or-FILE
//
// Exit status: 0 when a format was accepted (also with no entries), 2 when no
// format matched or the document could not be fetched or read, 1 for a usage
// error.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QRegularExpression>
#include <QUrl>
#include <cstdio>

#include "logging.h"
#include "model/cmnodes.h"
#include "output.h"
#include "plparse.h"

namespace {

enum ExitStatus { Accepted = 0, Usage = 1, NotParsed = 2 };

void write(FILE* stream, const QByteArray& bytes) {
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    fflush(stream);
}

int usageError(const QCommandLineParser& parser, const QString& reason, bool json) {
    write(stderr, QStringLiteral("zuvo-plparse: %1\n\n%2").arg(reason, parser.helpText()).toUtf8());
    if (json) {
        PlParseOutcome outcome;
        outcome.errorName = QStringLiteral("usage");
        outcome.errorMessage = reason;
        write(stdout, plParseJson(outcome));
    }
    return Usage;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zuvo-plparse"));
    zuvoInitLogging();
    const CMRootScope root; // the model tree the parse node lives in

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Parses a playlist (ASX, WPL, PLS, M3U, INI reference or URL list) with libzuvo_api_play and prints "
        "its entries.\nA URL is fetched over HTTP through a playlist parse node; a local file is read from "
        "disk "
        "and given to the same parsers."));
    parser.addPositionalArgument(QStringLiteral("URL-or-FILE"),
                                 QStringLiteral("An http(s) URL or a local file."));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption jsonOption(
        QStringLiteral("json"), QStringLiteral("Print one JSON object with every row instead of a table."));
    const QCommandLineOption contentTypeOption(
        QStringLiteral("content-type"),
        QStringLiteral("For a local file: the HTTP Content-Type it stands for (e.g. video/x-ms-asf)."),
        QStringLiteral("TYPE"));
    parser.addOption(jsonOption);
    parser.addOption(contentTypeOption);

    const bool json = QCoreApplication::arguments().contains(QStringLiteral("--json"));
    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(parser, parser.errorText(), json);
    if (parser.isSet(helpOption)) {
        write(stdout, parser.helpText().toUtf8());
        return Accepted;
    }
    const QStringList targets = parser.positionalArguments();
    if (targets.size() != 1)
        return usageError(parser,
                          targets.isEmpty() ? QStringLiteral("missing URL-or-FILE")
                                            : QStringLiteral("exactly one URL-or-FILE is expected"),
                          json);

    const QString target = targets.first();
    const QString contentType = parser.isSet(contentTypeOption) ? parser.value(contentTypeOption) : QString();
    static const QRegularExpression scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*://"));
    PlParseOutcome outcome;
    if (target.startsWith(QStringLiteral("file://"))) {
        outcome = parsePlaylistFile(QUrl(target).toLocalFile(), contentType);
    } else if (scheme.match(target).hasMatch()) {
        if (!contentType.isNull())
            write(stderr, "zuvo-plparse: --content-type is ignored for a URL; the server's header is used\n");
        outcome = parsePlaylistUrl(target);
    } else {
        outcome = parsePlaylistFile(target, contentType);
    }

    if (json)
        write(stdout, plParseJson(outcome));
    else
        write(outcome.ok ? stdout : stderr, plParseTable(outcome));
    return outcome.ok ? Accepted : NotParsed;
}
