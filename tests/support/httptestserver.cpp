#include "httptestserver.h"

#include <QTcpSocket>
#include <QTimer>

namespace zuvotest {

namespace {

constexpr int MaxRequestHeadBytes = 64 * 1024;
// Written ahead of the client at most, so that a large or endless answer
// never piles up in memory nor holds up the event loop.
constexpr qint64 WriteAheadBytes = 256 * 1024;
constexpr qint64 PieceBytes = 64 * 1024;

QByteArray patternAt(qint64 offset, qint64 size) {
    QByteArray out(int(size), Qt::Uninitialized);
    for (int i = 0; i < out.size(); ++i)
        out[i] = char('a' + (offset + i) % 26);
    return out;
}

} // namespace

// One accepted connection: reads requests one after the other and plays the
// scripted answer of each. A child of the server; deletes itself once the
// peer is gone.
class HttpTestConnection : public QObject {
    Q_OBJECT

public:
    HttpTestConnection(HttpTestServer* server, QTcpSocket* socket)
        : QObject(server)
        , m_server(server)
        , m_socket(socket) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this] {
            // A busy connection keeps what arrives for later, within bounds.
            if (m_input.size() <= MaxRequestHeadBytes)
                m_input += m_socket->readAll();
            else
                m_socket->readAll();
            if (m_state == State::Reading)
                processInput();
        });
        connect(socket, &QTcpSocket::bytesWritten, this, [this] {
            if (m_state == State::Sending && !m_trickle.isActive())
                pump();
        });
        connect(socket, &QTcpSocket::disconnected, this, &HttpTestConnection::gone);
        connect(socket, &QTcpSocket::errorOccurred, this, &HttpTestConnection::gone);
        connect(&m_trickle, &QTimer::timeout, this, [this] {
            sendBody(qMin<qint64>(m_route.trickleBytes, m_bodyTotal - m_bodySent));
            if (m_bodySent >= m_bodyTotal) {
                m_trickle.stop();
                endResponse();
            }
        });
    }

    ~HttpTestConnection() override {
        m_socket->disconnect(this);
        m_socket->abort();
        --m_server->m_openConnections;
    }

private:
    enum class State { Reading, Sending, Silent };

    void gone() {
        m_state = State::Silent;
        m_trickle.stop();
        deleteLater(); // safe to call twice
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
            QHash<QByteArray, QByteArray> headers;
            for (const QByteArray& line : lines.mid(1)) {
                const int colon = line.indexOf(':');
                if (colon > 0)
                    headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
            }
            const qint64 length = headEnd + 4 + headers.value("content-length").toLongLong();
            if (m_input.size() < length)
                return;
            m_input.remove(0, int(length));
            m_path = QString::fromLatin1(lines.value(0).trimmed().split(' ').value(1).split('?').value(0));
            m_closeAfter = headers.value("connection").toLower() == "close";
            ++m_server->m_requestCounts[m_path];
            m_server->m_lastRequestHeaders.insert(m_path, headers);
            m_route = m_server->m_routes.value(m_path);
            if (!m_server->m_routes.contains(m_path)) {
                m_route.status = 404;
                m_route.body = "no route";
            }
            respond();
        }
    }

    void respond() {
        using B = HttpTestRoute::Behaviour;
        using F = HttpTestRoute::Framing;
        if (m_route.behaviour == B::NeverAnswer) {
            m_state = State::Silent;
            return;
        }
        if (m_route.behaviour == B::Raw) {
            m_socket->write(m_route.body);
            close();
            return;
        }
        const bool endless = m_route.behaviour == B::Endless;
        m_body = endless ? QByteArray() : m_route.body;
        m_bodyTotal = endless ? m_route.endlessLimit : m_body.size();
        m_bodySent = 0;
        m_head = "HTTP/1.1 " + QByteArray::number(m_route.status) + " Scripted\r\n";
        bool hasLength = false;
        for (const auto& header : qAsConst(m_route.headers)) {
            m_head += header.first + ": " + header.second + "\r\n";
            hasLength = hasLength || header.first.compare("Content-Length", Qt::CaseInsensitive) == 0;
        }
        m_head += m_route.rawHeaders;
        if (m_route.framing == F::ContentLength && !hasLength)
            m_head += "Content-Length: " +
                      QByteArray::number(m_route.declaredLength >= 0 ? m_route.declaredLength : m_bodyTotal) +
                      "\r\n";
        if (m_route.framing == F::Chunked)
            m_head += "Transfer-Encoding: chunked\r\n";
        if (m_route.framing == F::CloseDelimited || m_closeAfter)
            m_head += "Connection: close\r\n";
        m_head += "\r\n";
        m_headSent = 0;
        m_state = State::Sending;
        pump();
    }

    // Writes the head, then the body, while the client keeps up; ends the
    // answer when all is out. A trickled body goes out from its timer.
    void pump() {
        while (m_headSent < m_head.size() && m_socket->bytesToWrite() < WriteAheadBytes) {
            const qint64 piece = qMin<qint64>(PieceBytes, m_head.size() - m_headSent);
            m_socket->write(m_head.constData() + m_headSent, piece);
            m_headSent += piece;
        }
        if (m_headSent < m_head.size())
            return;
        if (m_route.trickleBytes > 0 && m_route.behaviour == HttpTestRoute::Behaviour::Answer) {
            m_trickle.start(qMax(1, m_route.trickleIntervalMs));
            return;
        }
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
                                     ? patternAt(m_bodySent, size)
                                     : m_body.mid(int(m_bodySent), int(size));
        if (m_route.framing == HttpTestRoute::Framing::Chunked)
            m_socket->write(QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n");
        else
            m_socket->write(piece);
        m_bodySent += piece.size();
        m_server->m_bodyBytesSent[m_path] += piece.size();
    }

    void endResponse() {
        using F = HttpTestRoute::Framing;
        if (m_route.framing == F::Chunked)
            m_socket->write("0\r\n\r\n");
        const bool cutShort = m_route.framing == F::ContentLength && m_route.declaredLength > m_bodySent;
        if (m_route.framing == F::CloseDelimited || m_closeAfter || (cutShort && m_route.closeWhenShort)) {
            close();
        } else if (cutShort) {
            m_state = State::Silent; // the client waits for bytes that never come
        } else {
            m_state = State::Reading;
            m_body.clear();
            // A request that arrived meanwhile is served from the event loop.
            QTimer::singleShot(0, this, [this] { processInput(); });
        }
    }

    void close() {
        m_state = State::Silent;
        m_trickle.stop();
        m_socket->disconnectFromHost();
    }

    HttpTestServer* const m_server;
    QTcpSocket* const m_socket;
    QTimer m_trickle;
    State m_state = State::Reading;
    QByteArray m_input;
    QString m_path;
    HttpTestRoute m_route;
    QByteArray m_head;
    qint64 m_headSent = 0;
    QByteArray m_body;
    qint64 m_bodyTotal = 0;
    qint64 m_bodySent = 0;
    bool m_closeAfter = false;
};

HttpTestServer::HttpTestServer(QObject* parent)
    : QObject(parent)
    , m_listener(this) {
    connect(&m_listener, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_listener.nextPendingConnection()) {
            ++m_openConnections;
            new HttpTestConnection(this, socket);
        }
    });
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

HttpTestRoute HttpTestServer::route(Behaviour behaviour, const QByteArray& body, int status,
                                    const Headers& headers) {
    HttpTestRoute route;
    route.behaviour = behaviour;
    route.body = body;
    route.status = status;
    route.headers = headers;
    return route;
}

void HttpTestServer::setTrickle(const QString& path, const QByteArray& body, int bytesPerTick,
                                int intervalMs) {
    HttpTestRoute route = HttpTestServer::route(Behaviour::Answer, body);
    route.trickleBytes = qMax(1, bytesPerTick);
    route.trickleIntervalMs = intervalMs;
    setRoute(path, route);
}

void HttpTestServer::setEndless(const QString& path, Framing framing, qint64 upperLimit) {
    HttpTestRoute route = HttpTestServer::route(Behaviour::Endless);
    route.framing = framing;
    route.endlessLimit = upperLimit;
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

quint16 HttpTestServer::unusedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort(); // released when probe goes
}

QByteArray HttpTestServer::pattern(qint64 size) {
    return patternAt(0, size);
}

} // namespace zuvotest

#include "httptestserver.moc"
