#include "httpclientstatus.h"

#include <QDebug>
#include <ostream>

namespace {

const char* statusName(HttpClientStatus::Enum status) {
    switch (status) {
    case HttpClientStatus::ok:
        return "ok";
    case HttpClientStatus::httpError:
        return "httpError";
    case HttpClientStatus::timeout:
        return "timeout";
    case HttpClientStatus::sizeLimitExceeded:
        return "sizeLimitExceeded";
    case HttpClientStatus::connectionRefused:
        return "connectionRefused";
    case HttpClientStatus::hostNotFound:
        return "hostNotFound";
    case HttpClientStatus::invalidUrl:
        return "invalidUrl";
    case HttpClientStatus::unsupportedScheme:
        return "unsupportedScheme";
    case HttpClientStatus::tooManyRedirects:
        return "tooManyRedirects";
    case HttpClientStatus::networkError:
        return "networkError";
    case HttpClientStatus::headerSizeExceeded:
        return "headerSizeExceeded";
    case HttpClientStatus::protocolError:
        return "protocolError";
    }
    return "unknown";
}

} // namespace

QString HttpClientStatus::toString(Enum status) {
    return QString::fromLatin1(statusName(status));
}

std::ostream& operator<<(std::ostream& stream, HttpClientStatus::Enum status) {
    return stream << statusName(status);
}

QDebug operator<<(QDebug debug, HttpClientStatus::Enum status) {
    QDebugStateSaver saver(debug);
    debug.nospace() << statusName(status);
    return debug;
}
