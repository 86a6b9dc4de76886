#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QtGlobal>

// Per-request settings of HttpClient::get. A value type; the defaults are safe
// for fetching small documents from untrusted servers. Negative numbers given
// to the setters count as 0.
class HttpClientOptions {
public:
    using RawHeaders = QList<QPair<QByteArray, QByteArray>>;

    static constexpr int DefaultTimeoutMs = 30000;
    static constexpr qint64 DefaultReadSizeLimit = 10 * 1024 * 1024;
    static constexpr int DefaultMaxRedirects = 10;
    // Hard bound on any body, also when no read-size limit is set: a
    // QByteArray cannot hold much more, and nothing we fetch needs more.
    static constexpr qint64 AbsoluteReadSizeLimit = qint64(1) << 30;
    static constexpr qint64 DefaultHeaderSizeLimit = 64 * 1024;
    static constexpr qint64 AbsoluteHeaderSizeLimit = 1024 * 1024;

    HttpClientOptions() = default;

    // Total time allowed for the whole transfer, redirects included, from the
    // call to get() (the transfer starts on the next turn of the event loop)
    // to the last body byte; 0 means no limit. (This is not an
    // inactivity timeout: a server that trickles bytes still runs out of time.)
    void setTimeoutMs(int timeoutMs);
    int timeoutMs() const { return m_timeoutMs; }

    // Most body bytes kept; a longer body is cut here and the transfer is
    // aborted. For a gzip-encoded answer the limit counts decompressed bytes.
    // 0 means no limit of our own; the body is then still bounded by
    // AbsoluteReadSizeLimit.
    void setReadSizeLimit(qint64 bytes);
    qint64 readSizeLimit() const { return m_readSizeLimit; }
    // The limit a transfer applies: readSizeLimit(), or AbsoluteReadSizeLimit
    // when that is 0 or larger.
    qint64 effectiveReadSizeLimit() const;

    // Most bytes of response header (status lines and fields, of every
    // answer of the transfer, redirects included); a longer header ends the
    // transfer with headerSizeExceeded. 0 means no limit of our own; the
    // header is then still bounded by AbsoluteHeaderSizeLimit.
    void setHeaderSizeLimit(qint64 bytes);
    qint64 headerSizeLimit() const { return m_headerSizeLimit; }
    // The limit a transfer applies: headerSizeLimit(), or
    // AbsoluteHeaderSizeLimit when that is 0 or larger.
    qint64 effectiveHeaderSizeLimit() const;

    // Most redirects followed (when the client follows redirects at all).
    void setMaxRedirects(int count);
    int maxRedirects() const { return m_maxRedirects; }

    // Whether file: URLs are read. Off by default: only http and https are
    // fetched, for the request and for every redirect (a redirect never leads
    // to a local file, nor from https to http). Local files obey the
    // read-size limit too.
    void setAllowLocalFiles(bool allow) { m_allowLocalFiles = allow; }
    bool allowLocalFiles() const { return m_allowLocalFiles; }

    // Adds a request header field (replacing one of the same name). A name that
    // is not an HTTP token, or a value holding CR, LF or NUL, is refused
    // (returns false) so that no caller can split a request. An
    // "Accept-Encoding" given here replaces the client's own ("gzip,
    // deflate"); a gzip or deflate body is decoded either way.
    bool setRequestHeader(const QByteArray& name, const QByteArray& value);
    const RawHeaders& requestHeaders() const { return m_requestHeaders; }

private:
    int m_timeoutMs = DefaultTimeoutMs;
    qint64 m_readSizeLimit = DefaultReadSizeLimit;
    qint64 m_headerSizeLimit = DefaultHeaderSizeLimit;
    int m_maxRedirects = DefaultMaxRedirects;
    bool m_allowLocalFiles = false;
    RawHeaders m_requestHeaders;
};
