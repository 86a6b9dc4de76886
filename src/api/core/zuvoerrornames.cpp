#include "zuvoerrornames.h"

#define ZUVO_PLAYLOGIC_ERROR_NAME_DEF(Function, text)                                                        \
    QString ZuvoPlaylogicErrorName::Function() {                                                             \
        return QStringLiteral(text);                                                                         \
    }
ZUVO_PLAYLOGIC_ERROR_NAMES(ZUVO_PLAYLOGIC_ERROR_NAME_DEF)

QStringList zuvoPlaylogicErrorNames() {
#define ZUVO_PLAYLOGIC_ERROR_NAME_ITEM(Function, text) QStringLiteral(text),
    return {ZUVO_PLAYLOGIC_ERROR_NAMES(ZUVO_PLAYLOGIC_ERROR_NAME_ITEM)};
#undef ZUVO_PLAYLOGIC_ERROR_NAME_ITEM
}
