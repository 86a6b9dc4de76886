#include "httptestserver.h"

#include <QTcpSocket>
#include <QTimer>
#include <array>

namespace zuvotest {

namespace {

constexpr int MaxRequestHeadBytes = 64 * 1024;
// Written ahead of the client at most; the rest follows as the socket drains,
// so that a large or endless body never piles up in memory.
constexpr qint64 WriteAheadBytes = 256 * 1024;
constexpr qint64 PieceBytes = 64 * 1024;

QByteArray reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 204:
        return "No Content";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 303:
        return "See Other";
    case 307:
        return "Temporary Redirect";
    case 308:
        return "Permanent Redirect";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    default:
        return "Status";
    }
}

quint32 crc32(const QByteArray& data) {
    static const std::array<quint32, 256> table = [] {
        std::array<quint32, 256> t{};
        for (quint32 i = 0; i < 256; ++i) {
            quint32 c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[i] = c;
        }
        return t;
    }();
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : data)
        crc = table[(crc ^ quint8(byte)) & 0xFFu] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

void appendLittleEndian32(QByteArray& out, quint32 value) {
    for (int i = 0; i < 4; ++i)
        out.append(char((value >> (8 * i)) & 0xFFu));
}

QByteArray patternAt(qint64 offset, qint64 size) {
    QByteArray out(int(size), Qt::Uninitialized);
    for (int i = 0; i < out.size(); ++i)
        out[i] = char('a' + (offset + i) % 26);
    return out;
}

// Bytes [offset, offset + size) of the generated body of an endless route.
QByteArray endlessAt(const HttpTestRoute& route, qint64 offset, qint64 size) {
    if (route.endlessRepeat.isEmpty())
        return patternAt(offset, size);
    const qint64 head = route.endlessHead.size();
    const qint64 unit = route.endlessRepeat.size();
    QByteArray out;
    out.reserve(int(size));
    while (out.size() < size) {
        const qint64 at = offset + out.size();
        const int wanted = int(size - out.size());
        out += at < head ? route.endlessHead.mid(int(at), wanted)
                         : route.endlessRepeat.mid(int((at - head) % unit), wanted);
    }
    return out;
}

bool hasHeader(const HttpTestRoute::Headers& headers, const QByteArray& name) {
    for (const auto& header : headers) {
        if (header.first.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace

// One accepted connection: reads requests one after the other and plays the
// scripted answer of each. Owned by the server (child); deletes itself once the
// peer is gone.
class HttpTestConnection : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(HttpTestConnection)

public:
    HttpTestConnection(HttpTestServer* server, QTcpSocket* socket)
        : QObject(server)
        , m_server(server)
        , m_socket(socket)
        , m_trickleTimer(this) {
        m_socket->setParent(this);
        connect(m_socket, &QTcpSocket::readyRead, this, &HttpTestConnection::on_socket_readyRead);
        connect(m_socket, &QTcpSocket::bytesWritten, this, &HttpTestConnection::on_socket_bytesWritten);
        connect(m_socket, &QTcpSocket::disconnected, this, &HttpTestConnection::on_socket_disconnected);
        connect(m_socket, &QTcpSocket::errorOccurred, this, &HttpTestConnection::on_socket_disconnected);
        connect(&m_trickleTimer, &QTimer::timeout, this, &HttpTestConnection::on_trickleTimer_timeout);
    }

    ~HttpTestConnection() override {
        m_socket->disconnect(this);
        m_socket->abort();
        m_server->noteConnectionGone();
    }

private:
    enum class State { Reading, Sending, Silent, Gone };

    void on_socket_readyRead() {
        if (m_state != State::Reading) {
            // A busy connection keeps what arrives for later, within bounds.
            if (m_input.size() < MaxRequestHeadBytes)
                m_input += m_socket->readAll();
            else
                m_socket->readAll();
            return;
        }
        m_input += m_socket->readAll();
        processInput();
    }

    void on_socket_bytesWritten() {
        if (m_state != State::Sending)
            return;
        if (!m_headSent)
            sendHead();
        else if (!m_trickleTimer.isActive())
            pump();
    }

    void on_socket_disconnected() {
        if (m_state == State::Gone)
            return;
        m_state = State::Gone;
        m_trickleTimer.stop();
        deleteLater();
    }

    void on_trickleTimer_timeout() {
        const qint64 piece = qMin<qint64>(m_route.trickleBytes, m_bodyTotal - m_bodySent);
        sendBody(piece);
        if (m_bodySent >= m_bodyTotal) {
            m_trickleTimer.stop();
            endResponse();
        }
    }

    void processInput() {
        while (m_state == State::Reading) {
            const int headEnd = m_input.indexOf("\r\n\r\n");
            if (headEnd < 0) {
                if (m_input.size() > MaxRequestHeadBytes)
                    close();
                return;
            }
            const QList<QByteArray> lines = m_input.left(headEnd).split('\n');
            const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
            QHash<QByteArray, QByteArray> headers;
            for (int i = 1; i < lines.size(); ++i) {
                const int colon = lines.at(i).indexOf(':');
                if (colon > 0)
                    headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                                   lines.at(i).mid(colon + 1).trimmed());
            }
            const qint64 requestBody = headers.value("content-length").toLongLong();
            if (m_input.size() < headEnd + 4 + requestBody)
                return;
            m_input.remove(0, int(headEnd + 4 + requestBody));

            QByteArray target = requestLine.value(1);
            const int query = target.indexOf('?');
            if (query >= 0)
                target.truncate(query);
            const QString path = QString::fromLatin1(target);
            m_closeAfter = headers.value("connection").toLower() == "close";
            m_server->noteRequest(path, headers);
            respond(path, m_server->routeFor(path));
        }
    }

    void respond(const QString& path, const HttpTestRoute& route) {
        m_path = path;
        m_route = route;
        switch (route.behaviour) {
        case HttpTestRoute::Behaviour::NeverAnswer:
            m_state = State::Silent;
            return;
        case HttpTestRoute::Behaviour::CloseWithoutAnswer:
            close();
            return;
        case HttpTestRoute::Behaviour::Raw:
            m_socket->write(route.body);
            close();
            return;
        case HttpTestRoute::Behaviour::Answer:
            m_body = route.gzip ? HttpTestServer::gzip(route.body) : route.body;
            m_bodyTotal = m_body.size();
            break;
        case HttpTestRoute::Behaviour::Endless:
            m_body.clear();
            m_bodyTotal = route.endlessLimit;
            break;
        }
        m_bodySent = 0;
        m_rawHeadersSent = 0;
        m_headSent = false;
        m_state = State::Sending;
        m_socket->write("HTTP/1.1 " + QByteArray::number(m_route.status) + ' ' +
                        reasonPhrase(m_route.status) + "\r\n");
        sendHead();
    }

    // Writes the raw header lines in pieces while the client keeps up (a
    // flood of megabytes must not hold up the event loop), then the other
    // fields, then starts the body.
    void sendHead() {
        const QByteArray& raw = m_route.rawHeaders;
        while (m_rawHeadersSent < raw.size() && m_socket->bytesToWrite() < WriteAheadBytes) {
            const qint64 piece = qMin<qint64>(PieceBytes, raw.size() - m_rawHeadersSent);
            m_socket->write(raw.constData() + m_rawHeadersSent, piece);
            m_rawHeadersSent += piece;
        }
        if (m_rawHeadersSent < raw.size())
            return;
        m_headSent = true;
        m_socket->write(headerFields());
        if (m_route.trickleBytes > 0 && m_route.behaviour == HttpTestRoute::Behaviour::Answer)
            m_trickleTimer.start(qMax(1, m_route.trickleIntervalMs));
        else
            pump();
    }

    // The header fields but the raw ones, and the blank line that ends them.
    QByteArray headerFields() const {
        QByteArray out;
        for (const auto& header : m_route.headers)
            out += header.first + ": " + header.second + "\r\n";
        if (m_route.gzip)
            out += "Content-Encoding: gzip\r\n";
        switch (m_route.framing) {
        case HttpTestRoute::Framing::ContentLength:
            if (!hasHeader(m_route.headers, "Content-Length"))
                out +=
                    "Content-Length: " +
                    QByteArray::number(m_route.declaredLength >= 0 ? m_route.declaredLength : m_bodyTotal) +
                    "\r\n";
            break;
        case HttpTestRoute::Framing::Chunked:
            out += "Transfer-Encoding: chunked\r\n";
            break;
        case HttpTestRoute::Framing::CloseDelimited:
            out += "Connection: close\r\n";
            break;
        }
        if (m_closeAfter && m_route.framing != HttpTestRoute::Framing::CloseDelimited)
            out += "Connection: close\r\n";
        return out + "\r\n";
    }

    // Writes body pieces while the client keeps up; ends the answer when all
    // is out.
    void pump() {
        while (m_state == State::Sending && m_bodySent < m_bodyTotal &&
               m_socket->bytesToWrite() < WriteAheadBytes)
            sendBody(qMin(PieceBytes, m_bodyTotal - m_bodySent));
        if (m_state == State::Sending && m_bodySent >= m_bodyTotal)
            endResponse();
    }

    void sendBody(qint64 size) {
        if (size <= 0)
            return;
        const QByteArray piece = m_route.behaviour == HttpTestRoute::Behaviour::Endless
                                     ? endlessAt(m_route, m_bodySent, size)
                                     : m_body.mid(int(m_bodySent), int(size));
        if (m_route.framing == HttpTestRoute::Framing::Chunked)
            m_socket->write(QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n");
        else
            m_socket->write(piece);
        m_bodySent += piece.size();
        m_server->noteBodyBytes(m_path, piece.size());
    }

    void endResponse() {
        if (m_route.framing == HttpTestRoute::Framing::Chunked)
            m_socket->write("0\r\n\r\n");
        if (m_route.framing == HttpTestRoute::Framing::CloseDelimited || m_closeAfter) {
            close();
            return;
        }
        if (m_route.framing == HttpTestRoute::Framing::ContentLength && m_route.declaredLength > m_bodySent) {
            if (m_route.closeWhenShort) {
                close();
                return;
            }
            // The client waits for bytes that never come.
            m_state = State::Silent;
            return;
        }
        m_state = State::Reading;
        m_body.clear();
        // A request that arrived meanwhile is served now, from the event loop.
        QTimer::singleShot(0, this, [this] { processInput(); });
    }

    void close() {
        m_state = State::Silent;
        m_trickleTimer.stop();
        m_socket->disconnectFromHost();
    }

    HttpTestServer* const m_server;
    QTcpSocket* const m_socket;
    QTimer m_trickleTimer;
    State m_state = State::Reading;
    QByteArray m_input;
    QString m_path;
    HttpTestRoute m_route;
    QByteArray m_body;
    qint64 m_bodyTotal = 0;
    qint64 m_bodySent = 0;
    qint64 m_rawHeadersSent = 0;
    bool m_headSent = false;
    bool m_closeAfter = false;
};

HttpTestServer::HttpTestServer(QObject* parent)
    : QObject(parent)
    , m_listener(this) {
    connect(&m_listener, &QTcpServer::newConnection, this, &HttpTestServer::on_listener_newConnection);
    m_listener.listen(QHostAddress::LocalHost, 0);
}

HttpTestServer::~HttpTestServer() {
    m_listener.close();
    // Before the members go: each connection reports its end to the server.
    qDeleteAll(findChildren<HttpTestConnection*>(QString(), Qt::FindDirectChildrenOnly));
}

QString HttpTestServer::url(const QString& path) const {
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port()).arg(path);
}

void HttpTestServer::setRoute(const QString& path, const HttpTestRoute& route) {
    m_routes.insert(path, route);
}

void HttpTestServer::setResponse(const QString& path, int status, const QByteArray& body,
                                 const Headers& headers) {
    HttpTestRoute route;
    route.status = status;
    route.body = body;
    route.headers = headers;
    setRoute(path, route);
}

void HttpTestServer::setRedirect(const QString& path, const QString& location, int status) {
    setResponse(path, status, QByteArray(), {{"Location", location.toUtf8()}});
}

void HttpTestServer::setNeverAnswer(const QString& path) {
    HttpTestRoute route;
    route.behaviour = HttpTestRoute::Behaviour::NeverAnswer;
    setRoute(path, route);
}

void HttpTestServer::setCloseWithoutAnswer(const QString& path) {
    HttpTestRoute route;
    route.behaviour = HttpTestRoute::Behaviour::CloseWithoutAnswer;
    setRoute(path, route);
}

void HttpTestServer::setTrickle(const QString& path, const QByteArray& body, int bytesPerTick,
                                int intervalMs) {
    HttpTestRoute route;
    route.body = body;
    route.trickleBytes = qMax(1, bytesPerTick);
    route.trickleIntervalMs = intervalMs;
    setRoute(path, route);
}

void HttpTestServer::setEndless(const QString& path, HttpTestRoute::Framing framing, qint64 upperLimit) {
    HttpTestRoute route;
    route.behaviour = HttpTestRoute::Behaviour::Endless;
    route.framing = framing;
    route.endlessLimit = upperLimit;
    setRoute(path, route);
}

void HttpTestServer::setEndlessText(const QString& path, const QByteArray& head, const QByteArray& repeat,
                                    HttpTestRoute::Framing framing, qint64 upperLimit) {
    HttpTestRoute route;
    route.behaviour = HttpTestRoute::Behaviour::Endless;
    route.framing = framing;
    route.endlessLimit = upperLimit;
    route.endlessHead = head;
    route.endlessRepeat = repeat;
    setRoute(path, route);
}

void HttpTestServer::setGzip(const QString& path, const QByteArray& plainBody) {
    HttpTestRoute route;
    route.body = gzip(plainBody);
    route.headers = {{"Content-Encoding", "gzip"}};
    setRoute(path, route);
}

void HttpTestServer::setHeaderFlood(const QString& path, int count, int valueBytes, const QByteArray& body) {
    HttpTestRoute route;
    route.body = body;
    const QByteArray value = ": " + QByteArray(valueBytes, 'v') + "\r\n";
    for (int i = 0; i < count; ++i)
        route.rawHeaders += "X-Flood-" + QByteArray::number(i) + value;
    setRoute(path, route);
}

void HttpTestServer::setRaw(const QString& path, const QByteArray& answer) {
    HttpTestRoute route;
    route.behaviour = HttpTestRoute::Behaviour::Raw;
    route.body = answer;
    setRoute(path, route);
}

int HttpTestServer::totalRequestCount() const {
    int total = 0;
    for (const int count : m_requestCounts)
        total += count;
    return total;
}

QByteArray HttpTestServer::lastRequestHeader(const QString& path, const QByteArray& name) const {
    return m_lastRequestHeaders.value(path).value(name.toLower());
}

quint16 HttpTestServer::unusedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

QByteArray HttpTestServer::pattern(qint64 size) {
    return patternAt(0, size);
}

QByteArray HttpTestServer::gzip(const QByteArray& data) {
    // qCompress gives a 4-byte length and a zlib stream (2-byte header, raw
    // deflate data, 4-byte Adler-32); gzip wraps the same deflate data.
    QByteArray deflated("\x03\x00", 2); // an empty final block
    if (!data.isEmpty()) {
        const QByteArray zlib = qCompress(data, 9);
        deflated = zlib.mid(6, zlib.size() - 10);
    }
    QByteArray out("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03", 10);
    out += deflated;
    appendLittleEndian32(out, crc32(data));
    appendLittleEndian32(out, quint32(data.size()));
    return out;
}

void HttpTestServer::on_listener_newConnection() {
    while (QTcpSocket* socket = m_listener.nextPendingConnection()) {
        ++m_openConnections;
        new HttpTestConnection(this, socket);
    }
}

HttpTestRoute HttpTestServer::routeFor(const QString& path) const {
    const auto it = m_routes.constFind(path);
    if (it != m_routes.constEnd())
        return *it;
    HttpTestRoute missing;
    missing.status = 404;
    missing.body = "no route";
    return missing;
}

void HttpTestServer::noteRequest(const QString& path, const QHash<QByteArray, QByteArray>& headers) {
    ++m_requestCounts[path];
    m_lastRequestHeaders.insert(path, headers);
}

} // namespace zuvotest

#include "httptestserver.moc"
