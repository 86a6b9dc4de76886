#pragma once

#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>

namespace zuvobench {

// Delivers the events posted to this thread, and those they post in turn,
// until done() holds. Every event-loop measurement uses this driver for its
// subject and for its floor alike: it runs exactly the posted-event delivery
// that QEventLoop runs, without polling timers or sockets, so a figure holds
// the cost of the queued work only.
//
// One sendPostedEvents() call delivers only the events posted before it
// began; what they post waits for the next call. So each call is one
// generation of queued hops, and the number of calls returned is the depth of
// the chain of hops that led to done() (0 when it already held).
//
// A condition that nothing posted can make true is a broken measurement: the
// program stops with a message instead of spinning forever.
template <typename Done> int deliverPostedUntil(const Done& done) {
    int generations = 0;
    while (!done()) {
        if (++generations > 1000000) {
            std::fprintf(stderr, "deliverPostedUntil: condition never held\n");
            std::abort();
        }
        QCoreApplication::sendPostedEvents();
    }
    return generations;
}

// Delivers the generations of posted events until one delivers nothing
// more, at most maxGenerations; the work queued hops left behind is done.
void drainPosted(int maxGenerations = 16);

} // namespace zuvobench
