#pragma once

#include <QString>
#include <iosfwd>

class QDebug;

// How an HTTP client transfer ended. Exactly one value per result.
struct HttpClientStatus {
    enum Enum {
        ok = 0,             // a 2xx answer (after any redirects), body complete
        httpError,          // an answer with a non-2xx code; its body is still delivered
        timeout,            // the total time limit ran out; the body received so far is delivered
        sizeLimitExceeded,  // the body is larger than the read-size limit; delivered cut at the limit
        connectionRefused,  // nobody listens at the address
        hostNotFound,       // the host name does not resolve
        invalidUrl,         // the URL is malformed (no scheme, no host, does not parse)
        unsupportedScheme,  // a scheme this client does not fetch (or a refused file: URL)
        tooManyRedirects,   // more redirects than allowed, which includes redirect loops
        networkError,       // anything else: connection reset, undecodable body, unreadable file ...
        headerSizeExceeded, // the response header is larger than the header-size limit; no body
        protocolError       // the server's answer is not HTTP (malformed status line or header)
    };

    // A stable name for logs ("ok", "httpError", ...); "unknown" for a value
    // outside the enumeration.
    static QString toString(Enum status);
};

std::ostream& operator<<(std::ostream& stream, HttpClientStatus::Enum status);
QDebug operator<<(QDebug debug, HttpClientStatus::Enum status);
