#include "gaplesshandoff.h"

#include <chrono>

#include "dbglog.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("GstEngine"));

void GaplessHandoff::setNext(const QString& uri) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_decision = Decision::Next;
    m_uri = uri;
    m_changed.notify_all();
}

void GaplessHandoff::clearNext() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_decision = Decision::Nothing;
    m_uri.clear();
    m_changed.notify_all();
}

void GaplessHandoff::release() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_released = true;
    m_changed.notify_all();
}

void GaplessHandoff::rearm() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_decision = Decision::Undecided;
    m_uri.clear();
    m_released = false;
    m_handedOver = 0;
}

int GaplessHandoff::handedOver() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_handedOver;
}

bool GaplessHandoff::decide(const std::function<void(int)>& askEngine,
                            const std::function<void(const QString&)>& hand) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_released)
        return false;
    askEngine(m_handedOver);
    if (m_decision == Decision::Undecided) {
        const bool decided = m_changed.wait_for(lock, std::chrono::milliseconds(DecisionTimeoutMs), [this] {
            return m_released || m_decision != Decision::Undecided;
        });
        if (!decided)
            LOG4CPLUS_WARN(logger, "No next media decided within "
                                       << DecisionTimeoutMs << " ms of the track's end: nothing follows");
    }
    if (m_released || m_decision != Decision::Next)
        return false;
    hand(m_uri);
    m_decision = Decision::Undecided;
    m_uri.clear();
    ++m_handedOver;
    return true;
}
