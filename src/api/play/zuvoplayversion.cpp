#include "zuvoplayversion.h"

QString zuvoPlayVersion() {
    return QStringLiteral(ZUVO_PLAY_VERSION);
}
