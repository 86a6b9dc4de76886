#include "streamererrors.h"

ZuvoError streamerError(int code) {
    ZuvoError error;
    switch (code) {
#define ZUVO_STREAMER_ERROR_CODE_CASE(Constant, value, name, message)                                        \
    case StreamerErrorCode::Constant:                                                                        \
        error.setCode(value);                                                                                \
        error.setName(QStringLiteral(name));                                                                 \
        error.setMessage(QStringLiteral(message));                                                           \
        break;
        ZUVO_STREAMER_ERROR_CODES(ZUVO_STREAMER_ERROR_CODE_CASE)
#undef ZUVO_STREAMER_ERROR_CODE_CASE
    default:
        break;
    }
    return error;
}
