#include "eventloop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>
#include <QtGlobal>

namespace zuvotest {

int scaledMs(int ms) {
    static const double scale = [] {
        bool ok = false;
        const double value = qEnvironmentVariable("ZUVO_TEST_TIME_SCALE").toDouble(&ok);
        return ok && value > 0 ? value : 1.0;
    }();
    return static_cast<int>(ms * scale);
}

bool waitUntil(const std::function<bool()>& cond, int timeoutMs) {
    timeoutMs = scaledMs(timeoutMs);
    QElapsedTimer clock;
    clock.start();
    while (!cond()) {
        if (clock.elapsed() >= timeoutMs)
            return cond();
        QCoreApplication::sendPostedEvents();
        // A test body runs outside any event loop, where Qt never runs the
        // deferred deletes it posts; deliver them explicitly.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
    }
    return true;
}

void drainEvents() {
    // Deferred deletes are only run by sendPostedEvents with DeferredDelete.
    for (int i = 0; i < 10; ++i) {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }
}

} // namespace zuvotest
