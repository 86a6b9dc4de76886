#pragma once

#include <QList>
#include <QVariantHash>

#include "playlogicbase.h"

class QTimer;

namespace zuvotest {

// A small concrete play logic for tests: it records which handler ran with
// which request and lets the test publish any state.
//
// It overrides play, stop and next; every other handler is PlayLogicBase's
// default ("Operation not supported."). By default each overridden handler
// answers its request at once with success (an empty value), play publishes
// the playing state with the request's media roles and stop publishes the
// stopped state, as a real play logic would; each of these can be switched
// off to hold the request, or the state, for the test to settle.
//
// Construct it after the registry (CMRootScope) and destroy it before; drive
// it through PlayLogicInterface::instance(path) so that every command takes
// the road through the model tree.
class TestPlayLogic : public PlayLogicBase {
    Q_OBJECT
public:
    struct Call {
        ZuvoPlayLogicControl::Enum control;
        CMSetDataRequest request;
        QVariantHash arguments() const;
    };

    TestPlayLogic(CMNodes* nodes, const CMPath& path);

    // Handlers run so far, oldest first.
    const QList<Call>& calls() const { return m_calls; }
    QList<Call> callsOf(ZuvoPlayLogicControl::Enum control) const;
    void clearCalls() { m_calls.clear(); }

    // Whether play, stop and next complete their reply at once (default true).
    void setAnswerRequests(bool answer) { m_answer = answer; }
    // Whether play publishes the playing state (default true).
    void setPlayPublishesPlaying(bool publish) { m_playPublishes = publish; }
    // Whether stop publishes the stopped state (default true).
    void setStopPublishesStopped(bool publish) { m_stopPublishes = publish; }
    void setUnsupervised(bool unsupervised) { m_unsupervised = unsupervised; }

    // Publishes data with the given state and keepActive flag.
    void publishState(ZuvoPlayLogicState::Enum state, bool keepActive = false);
    using PlayLogicBase::setBufferLevel;
    using PlayLogicBase::setData;
    using PlayLogicBase::setPlayByte;
    using PlayLogicBase::setPlayMode;
    using PlayLogicBase::setPlayTime;

    // The ping watchdog's timer (test seam: shorten its interval).
    QTimer* pingTimer() const;

public Q_SLOTS:
    void play(const CMSetDataRequest& request) override;
    void stop(const CMSetDataRequest& request) override;
    void next(const CMSetDataRequest& request) override;

private:
    void record(ZuvoPlayLogicControl::Enum control, const CMSetDataRequest& request);

    QList<Call> m_calls;
    bool m_answer = true;
    bool m_playPublishes = true;
    bool m_stopPublishes = true;
};

} // namespace zuvotest
