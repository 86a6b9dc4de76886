// Parse throughput of the six playlist parsers (rows made) against reading
// the same bytes bare.

#include <benchmark/benchmark.h>

#include "support/documentcache.h"
#include "support/parsing.h"
#include "support/timing.h"

namespace {

using zuvobench::Clock;
using zuvobench::DocumentSize;
using zuvobench::PlaylistFormat;
using zuvobench::seconds;

// Each iteration reads the document bare (lines for the text formats, XML
// tokens for ASX and WPL) and parses it, timing both; the benchmark's own
// time is the parser's. The rows are destroyed outside the timed part.
void BM_Parse(benchmark::State& state, PlaylistFormat format, DocumentSize size) {
    const zuvobench::PlaylistDocument& document = zuvobench::cachedDocument(format, size);
    zuvobench::ParseSubject subject(document);
    const bool xml = zuvobench::isXmlFormat(format);
    double floorSeconds = 0;
    double parseSeconds = 0;
    int rows = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        const int units =
            xml ? zuvobench::readAllXmlTokens(document.body) : zuvobench::readAllLines(document.body);
        benchmark::DoNotOptimize(units);
        const Clock::time_point floorEnd = Clock::now();
        PlayListParser::Result result = subject.parse();
        benchmark::DoNotOptimize(result);
        const Clock::time_point parseEnd = Clock::now();
        if (!result.ok) {
            state.SkipWithError("the parser did not accept its document");
            break;
        }
        rows = result.rows.size();
        floorSeconds += seconds(floorEnd - start);
        parseSeconds += seconds(parseEnd - floorEnd);
        state.SetIterationTime(seconds(parseEnd - floorEnd));
    }
    const double iterations = double(state.iterations());
    state.counters["bytes"] = document.body.size();
    state.counters["entries"] = document.entries;
    state.counters["rows"] = rows;
    state.counters["floor_ms"] = floorSeconds * 1e3 / iterations;
    state.counters["parse_ms"] = parseSeconds * 1e3 / iterations;
    state.counters["ratio"] = parseSeconds / floorSeconds;
    state.counters["parse_MiB_per_s"] = document.body.size() * iterations / parseSeconds / (1024.0 * 1024.0);
}

const bool registered = [] {
    for (const PlaylistFormat format : zuvobench::allPlaylistFormats()) {
        for (const DocumentSize size : {DocumentSize::fiveMiB, DocumentSize::rowLimit}) {
            const std::string name = "Parse/" + zuvobench::playlistFormatName(format).toStdString() + '/' +
                                     zuvobench::documentSizeName(size);
            benchmark::RegisterBenchmark(name.c_str(), BM_Parse, format, size)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
    return true;
}();

} // namespace
