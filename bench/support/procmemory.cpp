#include "procmemory.h"

#include <cstdio>
#include <cstring>
#include <malloc.h>

namespace zuvobench {

namespace {

// The value of a "Key:   123 kB" line of /proc/self/status in bytes.
std::size_t statusField(const char* line, const char* key) {
    const std::size_t keyLength = std::strlen(key);
    if (std::strncmp(line, key, keyLength) != 0)
        return 0;
    unsigned long long kib = 0;
    std::sscanf(line + keyLength, ": %llu", &kib);
    return static_cast<std::size_t>(kib) * 1024;
}

} // namespace

Resident residentNow() {
    Resident resident;
    std::FILE* status = std::fopen("/proc/self/status", "r");
    if (!status)
        return resident;
    char line[256];
    while (std::fgets(line, sizeof line, status)) {
        if (const std::size_t rss = statusField(line, "VmRSS"))
            resident.current = rss;
        if (const std::size_t hwm = statusField(line, "VmHWM"))
            resident.peak = hwm;
    }
    std::fclose(status);
    return resident;
}

bool resetPeakResident() {
    std::FILE* clearRefs = std::fopen("/proc/self/clear_refs", "w");
    if (!clearRefs)
        return false;
    const bool written = std::fputs("5", clearRefs) >= 0;
    return std::fclose(clearRefs) == 0 && written;
}

std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

} // namespace zuvobench
