#include "httpcurlmulti.h"

#include <QSocketNotifier>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <utility>
#include <vector>

namespace {

log4cplus::Logger& logger() {
    static log4cplus::Logger instance = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("HttpClient.Multi"));
    return instance;
}

// curl_global_init is called once per process, before the first multi
// handle; never undone, as other code of the process may use libcurl too.
CURLM* newMultiHandle() {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialised != CURLE_OK)
        LOG4CPLUS_ERROR(logger(), "curl_global_init failed: " << curl_easy_strerror(initialised));
    return curl_multi_init();
}

void dropNotifier(QSocketNotifier*& notifier) {
    if (!notifier)
        return;
    // It may be the very notifier whose activation led here: never delete it
    // inside its own signal.
    notifier->setEnabled(false);
    notifier->deleteLater();
    notifier = nullptr;
}

} // namespace

HttpCurlMulti::HttpCurlMulti(QObject* parent)
    : QObject(parent)
    , m_multi(newMultiHandle())
    , m_timer(this) {
    m_timer.setObjectName(QStringLiteral("curlTimer"));
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &HttpCurlMulti::on_timer_timeout);
    curl_multi_setopt(m_multi, CURLMOPT_SOCKETFUNCTION, &HttpCurlMulti::socketCallback);
    curl_multi_setopt(m_multi, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(m_multi, CURLMOPT_TIMERFUNCTION, &HttpCurlMulti::timerCallback);
    curl_multi_setopt(m_multi, CURLMOPT_TIMERDATA, this);
}

HttpCurlMulti::~HttpCurlMulti() {
    if (!m_handlers.empty())
        LOG4CPLUS_ERROR(logger(), "Destroyed with " << m_handlers.size() << " transfers still added");
    for (const auto& entry : m_handlers)
        curl_multi_remove_handle(m_multi, entry.first);
    // Closes the kept-alive connections; libcurl may still report sockets
    // through the callbacks meanwhile.
    curl_multi_cleanup(m_multi);
    for (auto& entry : m_watches) {
        delete entry.second.read;
        delete entry.second.write;
    }
}

bool HttpCurlMulti::add(CURL* easy, DoneHandler done) {
    // libcurl asks for a time-out of 0 ms from inside this call: the transfer
    // starts from the event loop.
    const CURLMcode code = curl_multi_add_handle(m_multi, easy);
    if (code != CURLM_OK) {
        LOG4CPLUS_ERROR(logger(), "curl_multi_add_handle failed: " << curl_multi_strerror(code));
        return false;
    }
    m_handlers[easy] = std::move(done);
    return true;
}

void HttpCurlMulti::remove(CURL* easy) {
    if (m_handlers.erase(easy) > 0)
        curl_multi_remove_handle(m_multi, easy);
}

int HttpCurlMulti::socketCallback(CURL*, curl_socket_t socket, int what, void* self, void*) {
    auto* const multi = static_cast<HttpCurlMulti*>(self);
    if (what == CURL_POLL_REMOVE)
        multi->unwatch(socket);
    else
        multi->watch(socket, what);
    return 0;
}

int HttpCurlMulti::timerCallback(CURLM*, long timeoutMs, void* self) {
    auto* const multi = static_cast<HttpCurlMulti*>(self);
    // Only the timer is set here; libcurl is called again from the event loop.
    if (timeoutMs < 0)
        multi->m_timer.stop();
    else
        multi->m_timer.start(int(qMin<long>(timeoutMs, 24L * 3600 * 1000)));
    return 0;
}

void HttpCurlMulti::watch(curl_socket_t socket, int what) {
    Watch& watch = m_watches[socket];
    const auto ensure = [this, socket](QSocketNotifier*& notifier, QSocketNotifier::Type type, int event,
                                       bool wanted) {
        if (!wanted) {
            if (notifier)
                notifier->setEnabled(false);
            return;
        }
        if (!notifier) {
            notifier = new QSocketNotifier(socket, type, this);
            connect(notifier, &QSocketNotifier::activated, this,
                    [this, socket, event] { act(socket, event); });
        }
        notifier->setEnabled(true);
    };
    ensure(watch.read, QSocketNotifier::Read, CURL_CSELECT_IN,
           what == CURL_POLL_IN || what == CURL_POLL_INOUT);
    ensure(watch.write, QSocketNotifier::Write, CURL_CSELECT_OUT,
           what == CURL_POLL_OUT || what == CURL_POLL_INOUT);
}

void HttpCurlMulti::unwatch(curl_socket_t socket) {
    const auto it = m_watches.find(socket);
    if (it == m_watches.end())
        return;
    dropNotifier(it->second.read);
    dropNotifier(it->second.write);
    m_watches.erase(it);
}

void HttpCurlMulti::on_timer_timeout() {
    act(CURL_SOCKET_TIMEOUT, 0);
}

void HttpCurlMulti::act(curl_socket_t socket, int events) {
    int running = 0;
    const CURLMcode code = curl_multi_socket_action(m_multi, socket, events, &running);
    if (code != CURLM_OK)
        LOG4CPLUS_ERROR(logger(), "curl_multi_socket_action failed: " << curl_multi_strerror(code));

    // Messages are invalid once their handle is removed: collect them first.
    std::vector<std::pair<CURL*, CURLcode>> finished;
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(m_multi, &queued)) {
        if (message->msg == CURLMSG_DONE)
            finished.emplace_back(message->easy_handle, message->data.result);
    }
    for (const auto& [easy, result] : finished) {
        const auto it = m_handlers.find(easy);
        if (it == m_handlers.end())
            continue;
        const DoneHandler done = std::move(it->second);
        m_handlers.erase(it);
        curl_multi_remove_handle(m_multi, easy);
        if (done)
            done(result);
    }
}
