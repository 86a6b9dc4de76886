#pragma once

#include <functional>

namespace zuvotest {

// A time budget of ms milliseconds, scaled by the environment variable
// ZUVO_TEST_TIME_SCALE (a positive number, default 1). Slow machines and
// emulated runs (a cross build's tests under qemu) set it so that a test
// waits longer for what it waits for; what it checks stays the same.
int scaledMs(int ms);

// Runs the event loop until cond() holds or scaledMs(timeoutMs) has passed;
// returns whether cond() held. Never sleeps for a fixed time.
bool waitUntil(const std::function<bool()>& cond, int timeoutMs = 5000);

// Delivers every event already posted (and those they post in turn), so that
// queued deliveries made so far have run. Timers are not waited for.
void drainEvents();

} // namespace zuvotest
