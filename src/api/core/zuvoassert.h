#pragma once

// Always-on check of a programming error (a broken invariant, a failed
// connection): when condition is false the program stops with
// `ASSERT failure in <where>: "<what>"`, in release builds too (Q_ASSERT is
// compiled out there). Untrusted input must never reach one.
void zuvoAssert(bool condition, const char* where, const char* what);
