#pragma once

#include <cstddef>

namespace zuvobench {

// Memory of this process, for the memory benchmarks.
//
// Resident figures come from /proc/self/status (VmRSS, VmHWM) in bytes;
// resetPeakResident() writes "5" to /proc/self/clear_refs, which makes the
// kernel restart VmHWM from the current VmRSS. Heap figures come from glibc's
// mallinfo2(): bytes handed out by malloc and not yet freed (small chunks and
// mmapped ones), in the main arena, which is the only one a single-threaded
// program uses.
struct Resident {
    std::size_t current = 0; // VmRSS
    std::size_t peak = 0;    // VmHWM
};

Resident residentNow();
// Whether the kernel accepted the reset.
bool resetPeakResident();
std::size_t heapInUse();

} // namespace zuvobench
