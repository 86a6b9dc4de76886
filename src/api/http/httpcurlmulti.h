#pragma once

#include <QObject>
#include <QTimer>
#include <curl/curl.h>
#include <functional>
#include <unordered_map>

class QSocketNotifier;

// One libcurl multi handle driven by the event loop of the thread that owns it
// (internal to the client library): a QSocketNotifier per socket libcurl
// watches and one single-shot QTimer for libcurl's time-outs feed
// curl_multi_socket_action. No thread of its own; every transfer runs in
// small steps between the thread's other events.
//
// Thread: lives on the creating thread, which must run an event loop; every
// function is called there.
//
// Completion: the handler given to add() is called exactly once, from the
// event loop (never inside add()), after the handle has been removed from the
// multi handle, unless remove() came first. A handler must not delete this
// object. No libcurl function is called from inside a libcurl callback.
//
// Ownership: easy handles stay the caller's; all of them must be removed (or
// completed) before this object is destroyed. The multi handle keeps the
// connections of its transfers alive between them and closes them when it
// goes.
class HttpCurlMulti : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY(HttpCurlMulti)

public:
    using DoneHandler = std::function<void(CURLcode result)>;

    explicit HttpCurlMulti(QObject* parent = nullptr);
    ~HttpCurlMulti() override;

    // Starts easy; false (and the handler is dropped) when libcurl refuses it.
    bool add(CURL* easy, DoneHandler done);
    // Stops easy at once and silently: its handler is never called.
    void remove(CURL* easy);

private:
    struct Watch {
        QSocketNotifier* read = nullptr;
        QSocketNotifier* write = nullptr;
    };

    static int socketCallback(CURL* easy, curl_socket_t socket, int what, void* self, void* socketData);
    static int timerCallback(CURLM* multi, long timeoutMs, void* self);

    void watch(curl_socket_t socket, int what);
    void unwatch(curl_socket_t socket);
    void act(curl_socket_t socket, int events);
    void on_timer_timeout();

    CURLM* const m_multi;
    QTimer m_timer;
    std::unordered_map<curl_socket_t, Watch> m_watches;
    std::unordered_map<CURL*, DoneHandler> m_handlers;
};
