#include "gsterrors.h"

#include <gst/gst.h>

#include "streamererrors.h"

namespace {

int coreCode(int code) {
    switch (code) {
    case GST_CORE_ERROR_MISSING_PLUGIN:
        return StreamerErrorCode::MissingPlugin;
    case GST_CORE_ERROR_NEGOTIATION:
    case GST_CORE_ERROR_CAPS:
        return StreamerErrorCode::WrongType;
    default:
        return StreamerErrorCode::CouldNotRead;
    }
}

int resourceCode(int code) {
    switch (code) {
    case GST_RESOURCE_ERROR_NOT_FOUND:
        return StreamerErrorCode::CouldNotFind;
    case GST_RESOURCE_ERROR_NOT_AUTHORIZED:
        return StreamerErrorCode::NotAuthorized;
    case GST_RESOURCE_ERROR_OPEN_READ:
    case GST_RESOURCE_ERROR_OPEN_WRITE:
    case GST_RESOURCE_ERROR_OPEN_READ_WRITE:
    case GST_RESOURCE_ERROR_BUSY:
    case GST_RESOURCE_ERROR_FAILED:
    case GST_RESOURCE_ERROR_SETTINGS:
        return StreamerErrorCode::CouldNotOpen;
    default:
        return StreamerErrorCode::CouldNotRead;
    }
}

int streamCode(int code) {
    switch (code) {
    case GST_STREAM_ERROR_TYPE_NOT_FOUND:
        return StreamerErrorCode::StreamTypeNotFound;
    case GST_STREAM_ERROR_WRONG_TYPE:
    case GST_STREAM_ERROR_DECODE:
    case GST_STREAM_ERROR_DEMUX:
    case GST_STREAM_ERROR_FORMAT:
        return StreamerErrorCode::WrongType;
    case GST_STREAM_ERROR_CODEC_NOT_FOUND:
        return StreamerErrorCode::MissingPlugin;
    case GST_STREAM_ERROR_DECRYPT:
        return StreamerErrorCode::DecryptionNotSupported;
    case GST_STREAM_ERROR_DECRYPT_NOKEY:
        return StreamerErrorCode::DecryptionNoKey;
    default:
        return StreamerErrorCode::CouldNotRead;
    }
}

} // namespace

GstStreamerError GstStreamerError::fromMessage(GstMessage* message, bool fromSource, bool dataSeen) {
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    GstStreamerError result;
    result.rank = 4;
    result.code = StreamerErrorCode::CouldNotRead;
    const QString debugText = QString::fromUtf8(debug ? debug : "");
    if (error) {
        result.detail = QStringLiteral("%1 %2: %3 (%4)")
                            .arg(QString::fromUtf8(g_quark_to_string(error->domain)))
                            .arg(error->code)
                            .arg(QString::fromUtf8(error->message), debugText.simplified());
        if (error->domain == GST_CORE_ERROR) {
            result.code = coreCode(error->code);
        } else if (error->domain == GST_LIBRARY_ERROR) {
            result.code = StreamerErrorCode::MissingPlugin;
        } else if (error->domain == GST_RESOURCE_ERROR) {
            result.code = resourceCode(error->code);
        } else if (error->domain == GST_STREAM_ERROR) {
            result.code = streamCode(error->code);
            if (error->code == GST_STREAM_ERROR_TYPE_NOT_FOUND) {
                result.rank = 2;
            } else if (error->code == GST_STREAM_ERROR_FAILED) {
                if (fromSource) {
                    result.rank = 3;
                    result.code =
                        dataSeen ? StreamerErrorCode::CouldNotRead : StreamerErrorCode::CouldNotOpen;
                } else {
                    result.rank = 1;
                    if (debugText.contains(QLatin1String("not-negotiated")))
                        result.code = StreamerErrorCode::WrongType;
                }
            }
        }
        g_error_free(error);
    }
    g_free(debug);
    return result;
}

GstStreamerError GstStreamerError::strongest(const QList<GstStreamerError>& errors) {
    GstStreamerError best;
    for (const GstStreamerError& error : errors)
        if (error.rank > best.rank)
            best = error;
    return best;
}
