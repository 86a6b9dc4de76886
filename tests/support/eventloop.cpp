#include "eventloop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>

namespace zuvotest {

bool waitUntil(const std::function<bool()>& cond, int timeoutMs) {
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
