#pragma once

#include <QString>
#include <QStringList>

// Names of the failures a play logic publishes (ZuvoPlayLogicData::error).
// Clients compare against these names, so they never change.
//
// E(Function, "name"): ZuvoPlaylogicErrorName::Function() returns "name".
#define ZUVO_PLAYLOGIC_ERROR_NAMES(E)                                                                        \
    E(ZuvoPlaylogicCouldNotFind, "couldNotFind")                                                             \
    E(ZuvoPlaylogicCouldNotOpenStream, "couldNotOpenStream")                                                 \
    E(ZuvoPlaylogicCouldNotRead, "couldNotRead")                                                             \
    E(ZuvoPlaylogicFailedParseUrl, "failedParseUrl")                                                         \
    E(ZuvoPlaylogicNotAuthorized, "notAuthorized")                                                           \
    E(ZuvoPlaylogicStreamCrashed, "streamCrashed")                                                           \
    E(ZuvoPlaylogicStreamDecryptionIsNotSupported, "streamDecryptionIsNotSupported")                         \
    E(ZuvoPlaylogicStreamDecryptionNoKey, "streamDecryptionNoKey")                                           \
    E(ZuvoPlaylogicUnknownError, "unknownError")                                                             \
    E(ZuvoPlaylogicUserStop, "userStop")

#define ZUVO_PLAYLOGIC_ERROR_NAME_DECL(Function, text) static QString Function();

struct ZuvoPlaylogicErrorName {
    ZUVO_PLAYLOGIC_ERROR_NAMES(ZUVO_PLAYLOGIC_ERROR_NAME_DECL)
};

#undef ZUVO_PLAYLOGIC_ERROR_NAME_DECL

// Every name above, in the order listed.
QStringList zuvoPlaylogicErrorNames();
