#pragma once

#include <QByteArray>
#include <functional>
#include <memory>

struct z_stream_s;

// Streaming decoder of a compressed HTTP body (internal to the client
// library). QtNetwork's own decompression inflates each network read whole,
// tens of megabytes for a small "gzip bomb", before the client can look at it;
// this one hands out its output in small pieces and stops as soon as the
// receiver has enough.
//
// Handles "gzip" / "x-gzip" and zlib-wrapped "deflate" (detected from the data).
// Bytes after the end of the compressed stream are ignored.
class HttpContentDecoder {
public:
    enum class Result {
        Ok,      // all input consumed (the stream may need more)
        Stopped, // the sink refused output
        Corrupt  // the data cannot be decoded
    };
    // Receives decoded bytes; returns false to stop decoding.
    using Sink = std::function<bool(const char* data, qint64 size)>;

    // A decoder for a Content-Encoding value, or null when the body is sent
    // as it is (no encoding, "identity") or in an encoding we cannot decode.
    static std::unique_ptr<HttpContentDecoder> forEncoding(const QByteArray& contentEncoding);

    HttpContentDecoder();
    ~HttpContentDecoder();
    HttpContentDecoder(const HttpContentDecoder&) = delete;
    HttpContentDecoder& operator=(const HttpContentDecoder&) = delete;

    Result decode(const QByteArray& input, const Sink& sink);

    // True when input came but the compressed stream has not ended: the body
    // was cut short.
    bool isIncomplete() const { return m_started && !m_ended; }

private:
    struct StreamDeleter {
        void operator()(z_stream_s* stream) const;
    };

    std::unique_ptr<z_stream_s, StreamDeleter> m_stream;
    bool m_started = false;
    bool m_ended = false;
};
