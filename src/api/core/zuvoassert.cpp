#include "zuvoassert.h"

#include <QtGlobal>

void zuvoAssert(bool condition, const char* where, const char* what) {
    if (!condition)
        qFatal("ASSERT failure in %s: \"%s\"", where, what);
}
