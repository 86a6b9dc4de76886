#pragma once

#include <QtGlobal>

// Always-on check of a programming error in StreamerPlayLogic: stops the
// program with the condition's text, in release builds too.
#define SPL_ASSERT(cond, text)                                                                               \
    do {                                                                                                     \
        if (!(cond))                                                                                         \
            qFatal("ASSERT failure in StreamerPlayLogic: \"%s\"", text);                                     \
    } while (false)
