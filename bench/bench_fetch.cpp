// Fetch and parse of the 5 MiB M3U from a loopback server through the parse
// node (HttpClient on libcurl, then the parser), against the floor: the curl
// command-line tool saving the same document to a file, then the parse node
// parsing that file.

#include <benchmark/benchmark.h>

#include "support/documentcache.h"
#include "support/fetching.h"

namespace {

using zuvobench::DocumentSize;
using zuvobench::FetchSubject;
using zuvobench::PlaylistFormat;

// Each iteration runs both ways, alternating which goes first; the
// benchmark's own time is the parse node's.
void BM_FetchAndParse(benchmark::State& state) {
    FetchSubject subject(zuvobench::cachedDocument(PlaylistFormat::m3u, DocumentSize::fiveMiB));
    double oursSeconds = 0;
    double floorSeconds = 0;
    double curlSeconds = 0;
    int rows = 0;
    bool oursFirst = true;
    for (auto _ : state) {
        FetchSubject::Outcome ours;
        FetchSubject::Outcome floor;
        if (oursFirst) {
            ours = subject.fetchAndParse();
            floor = subject.curlAndParse();
        } else {
            floor = subject.curlAndParse();
            ours = subject.fetchAndParse();
        }
        oursFirst = !oursFirst;
        if (ours.rows < 0 || floor.rows < 0) {
            state.SkipWithError("a fetch failed (is the curl tool installed?)");
            break;
        }
        rows = ours.rows;
        oursSeconds += ours.seconds;
        floorSeconds += floor.seconds;
        curlSeconds += floor.curlSeconds;
        state.SetIterationTime(ours.seconds);
    }
    const double iterations = double(state.iterations());
    state.counters["rows"] = rows;
    state.counters["ours_ms"] = oursSeconds * 1e3 / iterations;
    state.counters["floor_ms"] = floorSeconds * 1e3 / iterations;
    state.counters["curl_ms"] = curlSeconds * 1e3 / iterations;
    state.counters["ratio"] = oursSeconds / floorSeconds;
}

BENCHMARK(BM_FetchAndParse)->Name("FetchAndParse/M3U/5MiB")->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
