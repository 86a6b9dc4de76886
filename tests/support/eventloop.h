#pragma once

#include <functional>

namespace zuvotest {

// ms scaled by the environment variable ZUVO_TEST_TIME_SCALE (a positive
// number, default 1), which slow and emulated runs set.
int scaledMs(int ms);

// Runs the event loop until cond() holds or scaledMs(timeoutMs) has passed;
// returns whether cond() held. Never sleeps for a fixed time.
bool waitUntil(const std::function<bool()>& cond, int timeoutMs = 5000);

// Delivers every event already posted (and those they post in turn), so that
// queued deliveries made so far have run. Timers are not waited for.
void drainEvents();

} // namespace zuvotest
