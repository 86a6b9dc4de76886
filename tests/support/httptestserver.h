#pragma once

#include <QHash>
#include <QTcpServer>

namespace zuvotest {

// The scripted answer of HttpTestServer for one path.
struct HttpTestRoute {
    using Headers = QList<QPair<QByteArray, QByteArray>>;
    enum class Behaviour {
        Answer,      // status line, headers and body as scripted
        NeverAnswer, // read the request, then stay silent
        Endless,     // pattern() bytes until the client closes
        Raw          // send body as it is (none: no answer at all), then close
    };

    explicit HttpTestRoute(Behaviour behaviour = Behaviour::Answer, int status = 200,
                           const QByteArray& body = {}, const Headers& headers = {})
        : behaviour(behaviour)
        , status(status)
        , body(body)
        , headers(headers) {}

    Behaviour behaviour;
    int status;
    QByteArray body;
    Headers headers;
    QByteArray rawHeaders;     // "Name: value\r\n" lines sent after headers, as they are
    int trickleBytes = 0;      // > 0: send the body this many bytes ...
    int trickleIntervalMs = 0; // ... per interval
    bool chunked = false;      // else with a Content-Length
    // Announced instead of the real length; when larger, the server sends the
    // body it has, then stays silent, or closes with closeWhenShort.
    qint64 declaredLength = -1;
    bool closeWhenShort = false;
};

// A scriptable HTTP/1.1 server on 127.0.0.1 (a free port) for tests. Lives on the creating thread and
// serves from its event loop (zuvotest::waitUntil); the destructor drops every connection. Connections
// are kept alive between requests. Routes are looked up by path without the query; an unknown path is
// answered 404. A request (a head, no body) counts once its head is read.
class HttpTestServer : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(HttpTestServer)

public:
    using Headers = HttpTestRoute::Headers;
    using Behaviour = HttpTestRoute::Behaviour;

    explicit HttpTestServer(QObject* parent = nullptr);
    ~HttpTestServer() override;

    QString url(const QString& path) const; // "http://127.0.0.1:<port>" + path

    void setRoute(const QString& path, const HttpTestRoute& route) { m_routes.insert(path, route); }
    void setResponse(const QString& path, int status, const QByteArray& body, const Headers& headers = {}) {
        setRoute(path, HttpTestRoute(Behaviour::Answer, status, body, headers));
    }
    void setRedirect(const QString& path, const QString& location, int status = 302) {
        setResponse(path, status, QByteArray(), {{"Location", location.toUtf8()}});
    }
    void setNeverAnswer(const QString& path) { setRoute(path, HttpTestRoute(Behaviour::NeverAnswer)); }
    // Sends answer as it is (none: closes without an answer), then closes.
    void setRaw(const QString& path, const QByteArray& answer) {
        setRoute(path, HttpTestRoute(Behaviour::Raw, 0, answer));
    }
    // A "Content-Encoding: deflate" answer, compressed once, here.
    void setDeflate(const QString& path, const QByteArray& plainBody) {
        setResponse(path, 200, deflate(plainBody), {{"Content-Encoding", "deflate"}});
    }
    // bytesPerTick bytes every intervalMs, the full length announced up front.
    void setTrickle(const QString& path, const QByteArray& body, int bytesPerTick, int intervalMs) {
        HttpTestRoute route(Behaviour::Answer, 200, body);
        route.trickleBytes = qMax(1, bytesPerTick);
        route.trickleIntervalMs = intervalMs;
        setRoute(path, route);
    }
    // pattern() bytes, chunked, until the client closes.
    void setEndless(const QString& path) {
        HttpTestRoute route(Behaviour::Endless);
        route.chunked = true;
        setRoute(path, route);
    }
    // A 200 answer "flood" after `count` extra fields of 32 bytes each.
    void setHeaderFlood(const QString& path, int count) {
        HttpTestRoute route(Behaviour::Answer, 200, "flood");
        for (int i = 0; i < count; ++i)
            route.rawHeaders += "X-Flood-" + QByteArray::number(i) + ": " + QByteArray(32, 'v') + "\r\n";
        setRoute(path, route);
    }

    int requestCount(const QString& path) const { return m_requestCounts.value(path); }
    // The request line and header fields of the last request to path, each line ending in CRLF.
    QByteArray lastRequestHead(const QString& path) const { return m_lastRequestHeads.value(path); }
    // Open connections, closing ones included until they are gone.
    int openConnections() const { return m_openConnections; }

    // A loopback port nobody listens on.
    static quint16 unusedPort();
    // Bytes offset.. offset + size of every endless body.
    static QByteArray pattern(qint64 size, qint64 offset = 0);
    static QByteArray deflate(const QByteArray& data) { return qCompress(data).mid(4); } // a zlib stream

private:
    friend class HttpTestConnection;

    QTcpServer m_listener;
    QHash<QString, HttpTestRoute> m_routes;
    QHash<QString, int> m_requestCounts;
    QHash<QString, QByteArray> m_lastRequestHeads;
    int m_openConnections = 0;
};

} // namespace zuvotest
