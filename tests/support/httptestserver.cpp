#include "httptestserver.h"

#include <QTcpSocket>
#include <QTimer>
#include <limits>

namespace zuvotest {

// One accepted connection: reads requests one after the other and plays the scripted answer of each.
// A child of the server; deletes itself once the peer is gone.
class HttpTestConnection : public QObject {
    Q_OBJECT

public:
    HttpTestConnection(HttpTestServer* server, QTcpSocket* socket)
        : QObject(server)
        , m_server(server)
        , m_socket(socket) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this] {
            m_input += m_socket->readAll();
            if (m_state == State::Reading)
                processInput();
        });
        connect(socket, &QTcpSocket::bytesWritten, this, [this] {
            if (m_route.trickleBytes == 0) // else its timer sends
                pump();
        });
        connect(socket, &QTcpSocket::disconnected, this, &HttpTestConnection::gone);
        connect(socket, &QTcpSocket::errorOccurred, this, &HttpTestConnection::gone);
    }

    ~HttpTestConnection() override {
        m_socket->disconnect(this);
        m_socket->abort();
        --m_server->m_openConnections;
    }

private:
    enum class State { Reading, Sending, Silent };
    // Written ahead of the client at most: a large or endless answer never piles up nor holds up the loop.
    static constexpr qint64 WriteAheadBytes = 256 * 1024, PieceBytes = 64 * 1024;

    void gone() {
        m_state = State::Silent;
        deleteLater(); // safe to call twice
    }

    void processInput() {
        while (m_state == State::Reading) {
            const int headEnd = m_input.indexOf("\r\n\r\n");
            if (headEnd < 0)
                return;
            const QByteArray head = m_input.left(headEnd + 2);
            m_input.remove(0, headEnd + 4);
            const QString path = QString::fromLatin1(head.split(' ').value(1).split('?').value(0));
            ++m_server->m_requestCounts[path];
            m_server->m_lastRequestHeads.insert(path, head);
            m_route = m_server->m_routes.value(
                path, HttpTestRoute(HttpTestRoute::Behaviour::Answer, 404, "no route"));
            respond();
        }
    }

    void respond() {
        using B = HttpTestRoute::Behaviour;
        m_state = m_route.behaviour == B::NeverAnswer ? State::Silent : State::Sending;
        if (m_route.behaviour == B::Raw) {
            m_socket->write(m_route.body);
            close();
        }
        if (m_state != State::Sending)
            return;
        m_bodyTotal =
            m_route.behaviour == B::Endless ? std::numeric_limits<qint64>::max() : m_route.body.size();
        m_bodySent = 0;
        QByteArray& head = m_head = "HTTP/1.1 " + QByteArray::number(m_route.status) + " Scripted\r\n";
        bool hasLength = false;
        for (const auto& [name, value] : qAsConst(m_route.headers)) {
            head += name + ": " + value + "\r\n";
            hasLength = hasLength || name.compare("Content-Length", Qt::CaseInsensitive) == 0;
        }
        const qint64 announced = m_route.declaredLength >= 0 ? m_route.declaredLength : m_bodyTotal;
        if (!m_route.chunked && !hasLength)
            head += "Content-Length: " + QByteArray::number(announced) + "\r\n";
        if (m_route.chunked)
            head += "Transfer-Encoding: chunked\r\n";
        head += m_route.rawHeaders + "\r\n";
        m_headSent = 0;
        pump();
    }

    // Writes the head, then the body, while the client keeps up, a trickled
    // body one piece per interval; ends the answer when all is out.
    void pump() {
        for (; m_headSent < m_head.size() && m_socket->bytesToWrite() < WriteAheadBytes;
             m_headSent += PieceBytes)
            m_socket->write(m_head.mid(m_headSent, PieceBytes));
        const qint64 piece = m_route.trickleBytes > 0 ? m_route.trickleBytes : PieceBytes;
        while (m_state == State::Sending && m_headSent >= m_head.size() && m_bodySent < m_bodyTotal &&
               m_socket->bytesToWrite() < WriteAheadBytes) {
            sendBody(qMin(piece, m_bodyTotal - m_bodySent));
            if (m_route.trickleBytes > 0 && m_bodySent < m_bodyTotal)
                return QTimer::singleShot(m_route.trickleIntervalMs, this, &HttpTestConnection::pump);
        }
        if (m_state == State::Sending && m_headSent >= m_head.size() && m_bodySent >= m_bodyTotal)
            endResponse();
    }

    void sendBody(qint64 size) {
        const QByteArray piece = m_route.behaviour == HttpTestRoute::Behaviour::Endless
                                     ? HttpTestServer::pattern(size, m_bodySent)
                                     : m_route.body.mid(int(m_bodySent), int(size));
        if (m_route.chunked)
            m_socket->write(QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n");
        else
            m_socket->write(piece);
        m_bodySent += piece.size();
    }

    void endResponse() {
        if (m_route.chunked)
            m_socket->write("0\r\n\r\n");
        const bool cutShort = !m_route.chunked && m_route.declaredLength > m_bodySent;
        if (cutShort && m_route.closeWhenShort) {
            close();
        } else if (cutShort) {
            m_state = State::Silent; // the client waits for bytes that never come
        } else {
            m_state = State::Reading;
            // A request that arrived meanwhile is served from the event loop.
            QTimer::singleShot(0, this, [this] { processInput(); });
        }
    }

    void close() {
        m_state = State::Silent;
        m_socket->disconnectFromHost();
    }

    HttpTestServer* const m_server;
    QTcpSocket* const m_socket;
    State m_state = State::Reading;
    QByteArray m_input;
    HttpTestRoute m_route;
    QByteArray m_head;
    int m_headSent = 0;
    qint64 m_bodyTotal = 0;
    qint64 m_bodySent = 0;
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
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_listener.serverPort()).arg(path);
}

quint16 HttpTestServer::unusedPort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort(); // released when probe goes
}

QByteArray HttpTestServer::pattern(qint64 size, qint64 offset) {
    QByteArray out(int(size), Qt::Uninitialized);
    for (int i = 0; i < out.size(); ++i)
        out[i] = char('a' + (offset + i) % 26);
    return out;
}

} // namespace zuvotest

#include "httptestserver.moc"
