#include "httpcontentdecoder.h"

#include <zlib.h>

namespace {

// Output handed to the sink per step; bounds what one step can inflate.
constexpr uInt OutputPiece = 16 * 1024;

} // namespace

std::unique_ptr<HttpContentDecoder> HttpContentDecoder::forEncoding(const QByteArray& contentEncoding) {
    const QByteArray encoding = contentEncoding.trimmed().toLower();
    if (encoding == "gzip" || encoding == "x-gzip" || encoding == "deflate")
        return std::make_unique<HttpContentDecoder>();
    return nullptr;
}

void HttpContentDecoder::StreamDeleter::operator()(z_stream_s* stream) const {
    inflateEnd(stream);
    delete stream;
}

HttpContentDecoder::HttpContentDecoder() {
    auto stream = std::make_unique<z_stream_s>();
    // 32 + MAX_WBITS: accept a gzip or a zlib header, whichever comes.
    if (inflateInit2(stream.get(), 32 + MAX_WBITS) == Z_OK)
        m_stream.reset(stream.release());
}

HttpContentDecoder::~HttpContentDecoder() = default;

HttpContentDecoder::Result HttpContentDecoder::decode(const QByteArray& input, const Sink& sink) {
    if (!m_stream)
        return Result::Corrupt; // zlib could not even start
    if (m_ended || input.isEmpty())
        return Result::Ok;
    m_started = true;
    char output[OutputPiece];
    m_stream->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input.constData()));
    m_stream->avail_in = uInt(input.size());
    do {
        m_stream->next_out = reinterpret_cast<Bytef*>(output);
        m_stream->avail_out = OutputPiece;
        const int rc = inflate(m_stream.get(), Z_NO_FLUSH);
        if (rc == Z_NEED_DICT || rc == Z_DATA_ERROR || rc == Z_MEM_ERROR || rc == Z_STREAM_ERROR)
            return Result::Corrupt;
        const qint64 produced = OutputPiece - m_stream->avail_out;
        if (produced > 0 && !sink(output, produced))
            return Result::Stopped;
        if (rc == Z_STREAM_END) {
            m_ended = true;
            return Result::Ok;
        }
        if (rc == Z_BUF_ERROR)
            break; // no progress without more input
    } while (m_stream->avail_in > 0 || m_stream->avail_out == 0);
    return Result::Ok;
}
