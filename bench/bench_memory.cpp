// Memory figures. Peak resident size is a property of the whole process, so
// scripts/bench.sh runs each benchmark of this program in a process of its
// own (--benchmark_filter with one name); each runs one iteration.

#include <benchmark/benchmark.h>

#include <QList>
#include <QVariant>
#include <ctime>
#include <malloc.h>
#include <memory>

#include "model/cmnodes.h"
#include "playlistparser.h"
#include "streamerplaylogic.h"
#include "support/documentcache.h"
#include "support/eventloop.h"
#include "support/fetching.h"
#include "support/parsing.h"
#include "support/procmemory.h"
#include "support/timing.h"

namespace {

using zuvobench::DocumentSize;
using zuvobench::PlaylistDocument;
using zuvobench::PlaylistFormat;

constexpr double MiB = 1024.0 * 1024.0;

// The M3U document cut into documents of at most entriesPerPart entries
// each, every one with the header line. The generated M3U has two lines per
// entry ("#EXTINF:..." and the path).
QList<PlaylistDocument> splitM3U(const PlaylistDocument& document, int entriesPerPart) {
    const QByteArray& body = document.body;
    const int headerEnd = body.indexOf('\n') + 1;
    const QByteArray header = body.left(headerEnd);
    QList<PlaylistDocument> parts;
    int position = headerEnd;
    while (position < body.size()) {
        int end = position;
        int entries = 0;
        for (; entries < entriesPerPart && end < body.size(); ++entries) {
            for (int line = 0; line < 2; ++line) {
                const int newline = body.indexOf('\n', end);
                end = newline < 0 ? body.size() : newline + 1;
            }
        }
        PlaylistDocument part = document;
        part.body = header + body.mid(position, end - position);
        part.entries = entries;
        parts.append(part);
        position = end;
    }
    return parts;
}

// Resident size before, peak while parsing and resident size while holding
// the rows, of parsing every document of parts and keeping all their rows.
// The documents and parsers exist before the baseline is taken; freed heap
// is given back to the kernel first so that the baseline holds no free
// pages a parse could reuse unseen.
void measureParsePeak(benchmark::State& state, const QList<PlaylistDocument>& parts) {
    std::vector<std::unique_ptr<zuvobench::ParseSubject>> subjects;
    int entries = 0;
    for (const PlaylistDocument& part : parts) {
        subjects.push_back(std::make_unique<zuvobench::ParseSubject>(part));
        entries += part.entries;
    }
    for (auto _ : state) {
        malloc_trim(0);
        const zuvobench::Resident before = zuvobench::residentNow();
        const std::size_t heapBefore = zuvobench::heapInUse();
        if (!zuvobench::resetPeakResident()) {
            state.SkipWithError("the kernel refused to reset the peak resident size");
            break;
        }
        QList<QVariant> rows;
        for (const auto& subject : subjects)
            rows += subject->parse().rows;
        const zuvobench::Resident after = zuvobench::residentNow();
        const std::size_t heapAfter = zuvobench::heapInUse();

        state.counters["entries"] = entries;
        state.counters["rows"] = rows.size();
        state.counters["resident_before_MiB"] = before.current / MiB;
        state.counters["peak_above_MiB"] = (double(after.peak) - double(before.current)) / MiB;
        state.counters["held_above_MiB"] = (double(after.current) - double(before.current)) / MiB;
        state.counters["heap_held_MiB"] = (double(heapAfter) - double(heapBefore)) / MiB;
        state.counters["heap_bytes_per_row"] =
            rows.isEmpty() ? 0.0 : (double(heapAfter) - double(heapBefore)) / rows.size();
    }
}

// The 5 MiB M3U through its parser, as the parse node does: the row limit
// applies.
void BM_M3UPeak(benchmark::State& state) {
    measureParsePeak(state, {zuvobench::cachedDocument(PlaylistFormat::m3u, DocumentSize::fiveMiB)});
}

// Every entry of the 5 MiB M3U as rows: the document cut into parts within
// the row limit, all rows held together. What the document would cost
// without the limit.
void BM_M3UPeakAllEntries(benchmark::State& state) {
    const PlaylistDocument& document = zuvobench::cachedDocument(PlaylistFormat::m3u, DocumentSize::fiveMiB);
    measureParsePeak(state, splitM3U(document, PlayListParser::MaxRows));
}

// Heap taken by idle StreamerPlayLogics (constructed, never played) with
// their nodes in the registry: the first one, and the average of the next
// ones, each on a path of its own. A play logic built and destroyed before
// takes the one-time costs (type registration, loggers, dispatch table).
void BM_IdleStreamerPlayLogic(benchmark::State& state) {
    constexpr int Count = 100;
    for (auto _ : state) {
        CMRootScope scope;
        std::make_unique<StreamerPlayLogic>(scope.nodes(), CMPath("/bench/warmUp"));
        zuvotest::drainEvents();

        std::vector<std::unique_ptr<StreamerPlayLogic>> logics;
        const std::size_t heapBefore = zuvobench::heapInUse();
        logics.push_back(std::make_unique<StreamerPlayLogic>(scope.nodes(), CMPath("/bench/idle/0")));
        const std::size_t heapFirst = zuvobench::heapInUse();
        for (int i = 1; i < Count; ++i)
            logics.push_back(std::make_unique<StreamerPlayLogic>(
                scope.nodes(), CMPath(QStringLiteral("/bench/idle/%1").arg(i))));
        const std::size_t heapAll = zuvobench::heapInUse();

        state.counters["first_bytes"] = double(heapFirst) - double(heapBefore);
        state.counters["average_bytes"] = (double(heapAll) - double(heapFirst)) / (Count - 1);
        logics.clear();
        zuvotest::drainEvents();
    }
}

// Hostile XML playlists of at most the fetch limit, each parsed 10 times:
// wall and processor time per parse, peak resident size above the baseline
// and the rows kept.
// Each would expand into gigabytes of text if the reader were left alone.
// piece repeated as often as it fits in bytes.
QByteArray repeated(const QByteArray& piece, int bytes) {
    QByteArray out;
    out.reserve(bytes);
    while (out.size() + piece.size() <= bytes)
        out += piece;
    return out;
}

PlaylistDocument hostileXml(int which) {
    const QByteArray large = "<!ENTITY a \"" + QByteArray(4000, 'a') + "\">";
    PlaylistDocument document;
    document.url = QStringLiteral("http://bench.example/lists/hostile");
    document.format = PlaylistFormat::asx;
    switch (which) {
    case 0: { // nested entities: l9 expands to 3 * 10^9 characters
        QByteArray declaration = "<!DOCTYPE asx [<!ENTITY l0 \"lol\">";
        for (int level = 1; level <= 9; ++level) {
            const QByteArray reference = "&l" + QByteArray::number(level - 1) + ";";
            declaration += "<!ENTITY l" + QByteArray::number(level) + " \"" +
                           repeated(reference, 10 * reference.size()) + "\">";
        }
        document.body = declaration + "]><asx><entry><ref href='a.mp3'/></entry><entry><title>&l9;</title>"
                                      "<ref href='b.mp3'/></entry></asx>";
        break;
    }
    case 1: // one 4000-character entity referenced 1.7 million times in one text run
        document.body = "<!DOCTYPE asx [" + large +
                        "]><asx><entry><ref href='a.mp3'/></entry><entry><title>" +
                        repeated("&a;", zuvobench::FiveMiB - 200) + "</title></entry></asx>";
        break;
    case 2: // the same in one attribute value
        document.format = PlaylistFormat::wpl;
        document.body = "<?wpl version=\"1.0\"?><!DOCTYPE smil [" + large +
                        "]><smil><media src='a'/><media src='" + repeated("&a;", zuvobench::FiveMiB - 200) +
                        "'/></smil>";
        break;
    default: // a 4000-character default attribute on 650,000 elements
        document.format = PlaylistFormat::wpl;
        document.body = "<?wpl version=\"1.0\"?><!DOCTYPE smil [<!ATTLIST media src CDATA \"" +
                        QByteArray(4000, 'a') + "\">]><smil>" +
                        repeated("<media/>", zuvobench::FiveMiB - 4100) + "</smil>";
        break;
    }
    return document;
}

void BM_HostileXml(benchmark::State& state, int which) {
    constexpr int Parses = 10;
    const PlaylistDocument document = hostileXml(which);
    zuvobench::ParseSubject subject(document);
    for (auto _ : state) {
        malloc_trim(0);
        const zuvobench::Resident before = zuvobench::residentNow();
        if (!zuvobench::resetPeakResident()) {
            state.SkipWithError("the kernel refused to reset the peak resident size");
            break;
        }
        int rows = 0;
        bool ok = true;
        const std::clock_t cpuStart = std::clock();
        const zuvobench::Clock::time_point start = zuvobench::Clock::now();
        for (int i = 0; i < Parses; ++i) {
            const PlayListParser::Result result = subject.parse();
            rows = result.rows.size();
            ok = ok && result.ok;
        }
        const double parseSeconds = zuvobench::seconds(zuvobench::Clock::now() - start) / Parses;
        const double cpuSeconds = double(std::clock() - cpuStart) / CLOCKS_PER_SEC / Parses;
        const zuvobench::Resident after = zuvobench::residentNow();
        if (!ok) {
            state.SkipWithError("the parser did not accept its document");
            break;
        }
        state.counters["bytes"] = document.body.size();
        state.counters["rows"] = rows;
        state.counters["parse_ms"] = parseSeconds * 1e3;
        state.counters["parse_cpu_ms"] = cpuSeconds * 1e3; // less disturbed by a busy machine
        state.counters["peak_above_MiB"] = (double(after.peak) - double(before.current)) / MiB;
    }
}

BENCHMARK_CAPTURE(BM_HostileXml, billionLaughs, 0)->Name("Memory/HostileXml/billionLaughs")->Iterations(1);
BENCHMARK_CAPTURE(BM_HostileXml, textReferences, 1)->Name("Memory/HostileXml/textReferences")->Iterations(1);
BENCHMARK_CAPTURE(BM_HostileXml, attributeReferences, 2)
    ->Name("Memory/HostileXml/attributeReferences")
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_HostileXml, attributeDefaults, 3)
    ->Name("Memory/HostileXml/attributeDefaults")
    ->Iterations(1);

// Peak resident size above the resident size before, of fetching and
// parsing the 5 MiB M3U through the parse node (ours), or of the floor: the
// curl process that saves the document (its whole peak resident size) plus
// the parse node parsing the saved file (peak above the resident size
// before). Each way in a process of its own, so that neither reuses pages
// the other freed.
void BM_FetchAndParsePeak(benchmark::State& state, bool floor) {
    zuvobench::FetchSubject subject(zuvobench::cachedDocument(PlaylistFormat::m3u, DocumentSize::fiveMiB));
    for (auto _ : state) {
        zuvotest::drainEvents();
        malloc_trim(0);
        const zuvobench::Resident before = zuvobench::residentNow();
        if (!zuvobench::resetPeakResident()) {
            state.SkipWithError("the kernel refused to reset the peak resident size");
            break;
        }
        if ((floor ? subject.curlAndParse() : subject.fetchAndParse()).rows < 0) {
            state.SkipWithError("the fetch failed (is the curl tool installed?)");
            break;
        }
        const double above = double(zuvobench::residentNow().peak) - double(before.current);
        state.counters["peak_above_MiB"] = above / MiB;
        if (floor) {
            const double curl = double(zuvobench::FetchSubject::childPeakResident());
            state.counters["curl_peak_MiB"] = curl / MiB;
            state.counters["floor_MiB"] = (curl + above) / MiB;
        }
    }
}

BENCHMARK(BM_M3UPeak)->Name("Memory/M3U/5MiB")->Iterations(1);
BENCHMARK(BM_M3UPeakAllEntries)->Name("Memory/M3U/5MiB/allEntries")->Iterations(1);
BENCHMARK_CAPTURE(BM_FetchAndParsePeak, ours, false)->Name("Memory/FetchAndParse/M3U/5MiB")->Iterations(1);
BENCHMARK_CAPTURE(BM_FetchAndParsePeak, floor, true)
    ->Name("Memory/FetchAndParse/M3U/5MiB/floor")
    ->Iterations(1);
BENCHMARK(BM_IdleStreamerPlayLogic)->Name("Memory/IdleStreamerPlayLogic")->Iterations(1);

} // namespace
