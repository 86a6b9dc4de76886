#pragma once

#include "zuvoplaylogic.h"

// The error codes a streamer service reports in ZuvoStreamerData::error()
// (a stopped record whose error carries code, name and message), with the
// names and messages this project's streamer services give them.
//
// -13 is not a failure: the track simply ended (end of stream). The codes
// -14 ... -22 are failures of the stream; -14, -15 and -22 mean "this is no
// stream the decoder can play", which a play logic takes as a hint that the
// URI may be a playlist.
//
// E(Constant, code, "name", "message")
#define ZUVO_STREAMER_ERROR_CODES(E)                                                                         \
    E(EndOfStream, -13, "gstEndOfStream", "End of stream reached")                                           \
    E(MissingPlugin, -14, "gstCoreMissingPlugin", "No decoder is available for this stream")                 \
    E(StreamTypeNotFound, -15, "gstStreamTypeNotFound", "The type of the stream could not be recognised")    \
    E(CouldNotOpen, -16, "gstCouldNotOpenStream", "Could not open the stream")                               \
    E(NotAuthorized, -17, "gstNotAuthorized", "Access to the stream was refused")                            \
    E(CouldNotRead, -18, "gstCouldNotRead", "Could not read from the source")                                \
    E(CouldNotFind, -19, "gstCouldNotFind", "The source could not be found")                                 \
    E(DecryptionNotSupported, -20, "gstDecryptionNotSupported",                                              \
      "The stream is encrypted and decryption is not supported")                                             \
    E(DecryptionNoKey, -21, "gstDecryptionNoKey", "The stream is encrypted and no key is available")         \
    E(WrongType, -22, "gstWrongType", "The stream has the wrong type")

#define ZUVO_STREAMER_ERROR_CODE_VALUE(Constant, code, name, message) Constant = code,

struct StreamerErrorCode {
    enum : int { ZUVO_STREAMER_ERROR_CODES(ZUVO_STREAMER_ERROR_CODE_VALUE) };

    // The lowest and highest code of a stream failure (end of stream excluded).
    static constexpr int FirstFailure = MissingPlugin;
    static constexpr int LastFailure = WrongType;

    // Whether code is one of the failure codes -14 ... -22.
    static bool isFailure(int code) { return code <= FirstFailure && code >= LastFailure; }
};

#undef ZUVO_STREAMER_ERROR_CODE_VALUE

// The error record a streamer publishes for code: its code, name and message.
// A code that is not in the list above gives an empty record.
ZuvoError streamerError(int code);
