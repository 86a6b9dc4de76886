// Memory figures. Peak resident size is a property of the whole process, so
// scripts/bench.sh runs each benchmark of this program in a process of its
// own (--benchmark_filter with one name); each runs one iteration.

#include <benchmark/benchmark.h>

#include <QList>
#include <QVariant>
#include <malloc.h>
#include <memory>

#include "model/cmnodes.h"
#include "playlistparser.h"
#include "streamerplaylogic.h"
#include "support/documentcache.h"
#include "support/eventloop.h"
#include "support/parsing.h"
#include "support/procmemory.h"

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

BENCHMARK(BM_M3UPeak)->Name("Memory/M3U/5MiB")->Iterations(1);
BENCHMARK(BM_M3UPeakAllEntries)->Name("Memory/M3U/5MiB/allEntries")->Iterations(1);
BENCHMARK(BM_IdleStreamerPlayLogic)->Name("Memory/IdleStreamerPlayLogic")->Iterations(1);

} // namespace
