#include "eventloop.h"

#include <QCoreApplication>
#include <QElapsedTimer>

namespace zuvotest {

int scaledMs(int ms) {
    static const double scale = qMax(1.0, qEnvironmentVariable("ZUVO_TEST_TIME_SCALE").toDouble());
    return static_cast<int>(ms * scale);
}

// A test body runs outside any event loop: deferred deletes must be asked for.
static void deliverPosted(QEventLoop::ProcessEventsFlags flags, int maxMs = 0) {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents(flags, maxMs);
}

bool waitUntil(const std::function<bool()>& cond, int timeoutMs) {
    QElapsedTimer clock;
    clock.start();
    while (!cond()) {
        if (clock.elapsed() >= scaledMs(timeoutMs))
            return cond();
        deliverPosted(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
    }
    return true;
}

void drainEvents() {
    for (int i = 0; i < 10; ++i)
        deliverPosted(QEventLoop::AllEvents);
}

} // namespace zuvotest
