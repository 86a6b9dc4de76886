// The same documents through the peer library totem-pl-parser, side by side
// with our parser. The peer reads files, so each document is written to a
// temporary directory first.

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QUrl>
#include <memory>
#include <totem-pl-parser.h>

#include "support/documentcache.h"
#include "support/parsing.h"
#include "support/timing.h"

namespace {

using zuvobench::Clock;
using zuvobench::DocumentSize;
using zuvobench::PlaylistFormat;
using zuvobench::seconds;

// The document as a file: URI, written once per process.
QString documentUri(const zuvobench::PlaylistDocument& document, DocumentSize size) {
    static QTemporaryDir directory;
    const QString path = directory.filePath(
        zuvobench::playlistFormatName(document.format) + QLatin1Char('-') +
        QLatin1String(zuvobench::documentSizeName(size)) + QLatin1Char('.') + document.fileSuffix);
    if (!QFile::exists(path)) {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(document.body) != document.body.size())
            return QString();
    }
    return QUrl::fromLocalFile(path).toString();
}

struct UnrefParser {
    void operator()(TotemPlParser* parser) const { g_object_unref(parser); }
};

// One parse by the peer, synchronous, counting the entries it reports.
// Entries are not followed (no recursion, no network).
struct PeerParse {
    TotemPlParserResult result = TOTEM_PL_PARSER_RESULT_ERROR;
    int entries = 0;
};

void countEntry(TotemPlParser*, const char*, GHashTable*, gpointer entries) {
    ++*static_cast<int*>(entries);
}

PeerParse peerParse(const QByteArray& uri) {
    const std::unique_ptr<TotemPlParser, UnrefParser> parser(totem_pl_parser_new());
    g_object_set(parser.get(), "recurse", FALSE, "disable-unsafe", TRUE, nullptr);
    PeerParse parse;
    g_signal_connect(parser.get(), "entry-parsed", G_CALLBACK(countEntry), &parse.entries);
    parse.result = totem_pl_parser_parse(parser.get(), uri.constData(), FALSE);
    return parse;
}

const char* resultName(TotemPlParserResult result) {
    switch (result) {
    case TOTEM_PL_PARSER_RESULT_UNHANDLED:
        return "unhandled";
    case TOTEM_PL_PARSER_RESULT_ERROR:
        return "error";
    case TOTEM_PL_PARSER_RESULT_SUCCESS:
        return "success";
    case TOTEM_PL_PARSER_RESULT_IGNORED:
        return "ignored";
    case TOTEM_PL_PARSER_RESULT_CANCELLED:
        return "cancelled";
    }
    return "unknown";
}

// Each iteration parses the document with the peer and with our parser,
// timing both; the benchmark's own time is the peer's. A document the peer
// does not parse is reported with its result, and no speed-up.
void BM_PeerParse(benchmark::State& state, PlaylistFormat format, DocumentSize size) {
    const zuvobench::PlaylistDocument& document = zuvobench::cachedDocument(format, size);
    const QByteArray uri = documentUri(document, size).toUtf8();
    if (uri.isEmpty()) {
        state.SkipWithError("could not write the document");
        return;
    }
    zuvobench::ParseSubject subject(document);
    double peerSeconds = 0;
    double ourSeconds = 0;
    PeerParse last;
    int rows = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        last = peerParse(uri);
        const Clock::time_point peerEnd = Clock::now();
        const PlayListParser::Result result = subject.parse();
        benchmark::DoNotOptimize(result);
        const Clock::time_point ourEnd = Clock::now();
        rows = result.rows.size();
        peerSeconds += seconds(peerEnd - start);
        ourSeconds += seconds(ourEnd - peerEnd);
        state.SetIterationTime(seconds(peerEnd - start));
    }
    const double iterations = double(state.iterations());
    const bool parsed = last.result == TOTEM_PL_PARSER_RESULT_SUCCESS && last.entries > 0;
    state.counters["entries"] = document.entries;
    state.counters["peer_entries"] = last.entries;
    state.counters["rows"] = rows;
    state.counters["peer_ms"] = peerSeconds * 1e3 / iterations;
    state.counters["parse_ms"] = ourSeconds * 1e3 / iterations;
    if (parsed)
        state.counters["speedup"] = peerSeconds / ourSeconds;
    state.SetLabel(std::string("peer result: ") + resultName(last.result));
}

const bool registered = [] {
    for (const PlaylistFormat format : zuvobench::allPlaylistFormats()) {
        for (const DocumentSize size : {DocumentSize::fiveMiB, DocumentSize::rowLimit}) {
            const std::string name = "PeerParse/" + zuvobench::playlistFormatName(format).toStdString() +
                                     '/' + zuvobench::documentSizeName(size);
            benchmark::RegisterBenchmark(name.c_str(), BM_PeerParse, format, size)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
    return true;
}();

} // namespace
