#pragma once

#include <QString>
#include <condition_variable>
#include <functional>
#include <mutex>

// The meeting point of playbin's about-to-finish (a streaming thread) and the
// engine's thread, where the gapless successor is decided.
//
// The engine thread records the decision for the running track: setNext()
// (a successor) or clearNext() (nothing follows). about-to-finish calls
// decide(): with no decision yet it asks the engine thread (askEngine, a
// queued call that must not block) and waits for one, at most
// DecisionTimeoutMs (then nothing follows: the track ends). The successor
// is handed over once (the decision is spent: the successor starts
// undecided) through hand(), called under the lock, so that a release()
// cannot overtake it.
//
// release() wakes a waiting thread and makes decide() return at once until
// rearm(): the engine calls it before every state change of the pipeline
// (stop, play, destruction), which would otherwise wait for the streaming
// thread that waits here.
//
// Thread-safe; every member may be called from any thread.
class GaplessHandoff {
public:
    static constexpr int DecisionTimeoutMs = 2000;

    void setNext(const QString& uri);
    void clearNext();
    void release();
    // A new track runs: undecided, no hand-over counted, waiting allowed.
    void rearm();
    // Successors handed over since rearm().
    int handedOver() const;

    // The about-to-finish side. askEngine(handedOverBefore) is called (under
    // the lock) when the engine must be told that the track nears its end;
    // hand(uri) sets the successor on the pipeline. Returns whether a
    // successor was handed over.
    bool decide(const std::function<void(int handedOverBefore)>& askEngine,
                const std::function<void(const QString& uri)>& hand);

private:
    enum class Decision { Undecided, Next, Nothing };

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    Decision m_decision = Decision::Undecided;
    QString m_uri;
    bool m_released = false;
    int m_handedOver = 0;
};
