// Event-loop hops between a client's play command and the streamer's play
// node receiving its invocation.

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QEvent>
#include <QStringList>
#include <algorithm>

#include "playlogicinterface.h"
#include "support/benchloop.h"
#include "support/streamerworld.h"

namespace {

// Remembers the class of every object a queued call (QEvent::MetaCall) is
// delivered to while installed on the application, with the generation it
// was delivered in.
class MetaCallRecorder : public QObject {
public:
    MetaCallRecorder() { QCoreApplication::instance()->installEventFilter(this); }
    ~MetaCallRecorder() override { QCoreApplication::instance()->removeEventFilter(this); }
    Q_DISABLE_COPY(MetaCallRecorder)

    void restart() {
        m_generation = 0;
        m_calls.clear();
    }
    void nextGeneration() { ++m_generation; }
    int count() const { return m_calls.size(); }
    // "1:PlayLogic 2:CMValueItem,QObject": the receivers per generation.
    QString path() const {
        QString text;
        int generation = 0;
        for (const auto& call : m_calls) {
            if (call.first != generation) {
                generation = call.first;
                text += (text.isEmpty() ? QString() : QStringLiteral(" ")) + QString::number(generation) +
                        QLatin1Char(':');
            } else {
                text += QLatin1Char(',');
            }
            text += call.second;
        }
        return text;
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::MetaCall)
            m_calls.append({m_generation, QString::fromLatin1(watched->metaObject()->className())});
        return false;
    }

private:
    int m_generation = 0;
    QList<QPair<int, QString>> m_calls;
};

// From a stopped play logic: the play through PlayLogicInterface until the
// streamer's play node has its invocation. The hops are the generations of
// queued calls delivered until then (see deliverPostedUntil): the length of
// the chain from the client's call to the streamer. The queued calls
// delivered meanwhile, on that chain or beside it, are counted too.
// Playing and stopping again between iterations is not timed.
void BM_PlayToStreamerHops(benchmark::State& state) {
    zuvobench::StreamerWorld world;
    MetaCallRecorder recorder;
    bool arrived = false;
    const QMetaObject::Connection connection =
        QObject::connect(&world.streamer(), &TestStreamerService::invoked, &recorder,
                         [&arrived](TestStreamerService::Command command, const QVariant&) {
                             arrived = arrived || command == TestStreamerService::Command::play;
                         });
    int fewest = -1;
    int most = -1;
    int calls = 0;
    QString path;
    for (auto _ : state) {
        arrived = false;
        recorder.restart();
        world.sendPlay();
        const int hops = zuvobench::deliverPostedUntil([&] {
            recorder.nextGeneration();
            return arrived;
        });

        state.PauseTiming();
        fewest = fewest < 0 ? hops : std::min(fewest, hops);
        most = std::max(most, hops);
        calls = std::max(calls, recorder.count());
        if (path.isEmpty())
            path = recorder.path();
        const bool reset = world.reportPlaying() && world.stopPlaying();
        world.streamer().clearInvocations();
        state.ResumeTiming();
        if (!reset) {
            state.SkipWithError("the play logic did not play and stop again");
            break;
        }
    }
    QObject::disconnect(connection);
    state.counters["hops_min"] = fewest;
    state.counters["hops_max"] = most;
    state.counters["queued_calls_max"] = calls;
    state.SetLabel(path.toStdString());
}

BENCHMARK(BM_PlayToStreamerHops)->Name("PlayToStreamer/hops")->Iterations(200)->Unit(benchmark::kMicrosecond);

} // namespace
