#pragma once

#include <chrono>

namespace zuvobench {

// The clock every benchmark times its two sides with.
using Clock = std::chrono::steady_clock;

// A clock interval in seconds.
inline double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

} // namespace zuvobench
