#include "httpclient.h"

#include "httpcurlmulti.h"
#include "httptransfer.h"

#include <atomic>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace {

log4cplus::Logger& logger() {
    static log4cplus::Logger instance = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("HttpClient"));
    return instance;
}

// Ids are numbers disguised as handles, counted process-wide, so that a
// cancel() with a stale id can never hit a later request (as a recycled
// address could).
HttpClient::RequestId nextRequestId() {
    static std::atomic<quintptr> counter{0};
    return reinterpret_cast<HttpClient::RequestId>(++counter);
}

} // namespace

struct HttpClient::Pending {
    std::unique_ptr<HttpTransfer> transfer;
    Callback callback;
};

HttpClient::HttpClient(QObject* parent, HttpVersion version, bool followRedirects)
    : QObject(parent)
    , m_version(version)
    , m_followRedirects(followRedirects)
    , m_multi(new HttpCurlMulti(this)) {}

HttpClient::~HttpClient() {
    if (!m_requests.empty())
        LOG4CPLUS_DEBUG(logger(), "Destroyed with " << m_requests.size() << " requests pending");
    // Transfers abort silently; completions already queued for this object are
    // dropped with it.
    m_requests.clear();
}

HttpClient::RequestId HttpClient::get(const ZuvoUrl& url, const HttpClientOptions& options,
                                      Callback callback) {
    const RequestId id = nextRequestId();
    HttpTransfer::Protocol protocol;
    protocol.http2 = m_version == Http2;
    protocol.followRedirects = m_followRedirects;

    auto pending = std::make_unique<Pending>();
    pending->transfer = std::make_unique<HttpTransfer>(m_multi, url, options, protocol);
    pending->callback = std::move(callback);
    // Queued, so that no callback ever runs inside get() or inside libcurl's
    // processing (a callback may delete this client and with it the transfers).
    connect(
        pending->transfer.get(), &HttpTransfer::finished, this, [this, id] { deliver(id); },
        Qt::QueuedConnection);
    HttpTransfer* const transfer = pending->transfer.get();
    m_requests.emplace(id, std::move(pending));
    LOG4CPLUS_TRACE(logger(), "Request " << id << ": " << url.toString().toStdString());
    transfer->start();
    return id;
}

bool HttpClient::cancel(RequestId id) {
    const auto it = m_requests.find(id);
    if (it == m_requests.end()) {
        LOG4CPLUS_DEBUG(logger(), "Cancel of unknown or completed request " << id);
        return false;
    }
    m_requests.erase(it);
    LOG4CPLUS_DEBUG(logger(), "Cancelled request " << id);
    return true;
}

void HttpClient::deliver(RequestId id) {
    const auto it = m_requests.find(id);
    if (it == m_requests.end())
        return; // cancelled after the transfer finished
    const Callback callback = std::move(it->second->callback);
    const HttpClientResult result = it->second->transfer->result();
    m_requests.erase(it);
    // Nothing of this object may be touched after the callback: it may have
    // deleted the client.
    if (callback)
        callback(result);
}
