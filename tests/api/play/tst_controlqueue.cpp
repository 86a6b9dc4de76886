#include <QHash>
#include <gtest/gtest.h>
#include <memory>
#include <tuple>
#include <vector>

#include "controlqueue.h"
#include "support/eventloop.h"

using Command = ControlQueue::ControlCommand;

namespace {

// Drives a queue with a script of steps: "play X", "stop X", "next X",
// "previous X" (X labels the reply and is the command's value), "mode N X"
// (changePlayMode to N), "prepareNext", "finish", "fail" (finish with an error
// named "Failed", message "boom"), "clear".
struct Harness {
    Harness(bool skipMerging, bool playModeCollapsing)
        : queue(skipMerging, playModeCollapsing) {
        QObject::connect(&queue, &ControlQueue::control, [this](Command command, const QVariant& value) {
            started << ControlQueue::toString(command) + '(' + value.toString() + ')';
        });
        QObject::connect(&queue, &ControlQueue::playModeChanged, [this](ZuvoPlayerPlayMode::Enum mode) {
            started << "mode" + QString::number(mode);
        });
        QObject::connect(&queue, &ControlQueue::empty, [this] { started << "empty"; });
    }

    void run(const QStringList& steps) {
        using Method = void (ControlQueue::*)(const QVariant&, const CMReply<QVariant>&);
        const QHash<QString, Method> commands = {{"play", &ControlQueue::play},
                                                 {"stop", &ControlQueue::stop},
                                                 {"next", &ControlQueue::next},
                                                 {"previous", &ControlQueue::previous}};
        for (const QString& step : steps) {
            const QStringList w = step.split(' ');
            if (commands.contains(w[0]))
                (queue.*commands[w[0]])(w[1], reply(w[1]));
            else if (w[0] == "mode")
                queue.changePlayMode(ZuvoPlayerPlayMode::Enum(w[1].toInt()), reply(w[2]));
            else if (w[0] == "prepareNext")
                queue.prepareNext();
            else if (w[0] == "finish")
                queue.finish(QVariant(w[0]));
            else if (w[0] == "fail")
                queue.finish(CMError(QStringLiteral("Failed"), TrString(QStringLiteral("boom"))));
            else if (w[0] == "clear")
                queue.clear();
            else
                ADD_FAILURE() << "bad step " << step.toStdString();
        }
    }

    CMReply<QVariant> reply(const QString& label) {
        replies.emplace_back(label, CMReply<QVariant>());
        return replies.back().second;
    }

    // "a=pending b=ok c=cancelled d=<error message>", in creation order.
    QString replyStates() const {
        QStringList states;
        for (const auto& [label, r] : replies)
            states << label + '=' +
                          (!r.isFinished()                                  ? "pending"
                           : r.error().isEmpty()                            ? "ok"
                           : r.error().name() == CMVoidReply::ErrorCancel() ? "cancelled"
                                                                            : r.error().message());
        return states.join(' ');
    }

    // The active control and every control that would run after it, as
    // "command[reply labels]" (a play mode as "playMode2[m]"); empties the queue.
    QStringList drain() {
        QStringList listing;
        for (ControlQueue::Control c = queue.dequeue(); c.command != Command::none; c = queue.dequeue()) {
            QStringList labels;
            for (const auto& [label, r] : replies)
                if (c.replies.contains(r))
                    labels << label;
            listing << ControlQueue::toString(c.command) +
                           (c.command == Command::playMode ? QString::number(c.playMode) : QString()) + '[' +
                           labels.join(',') + ']';
        }
        return listing;
    }

    QStringList started; // declared before the queue: its destructor still emits
    std::vector<std::pair<QString, CMReply<QVariant>>> replies;
    ControlQueue queue;
};

struct Case {
    const char* name;
    bool skipMerging, playModeCollapsing;
    QStringList steps, started, queued; // queued: the active control first
    QString replies;
    bool stopped;
};

const QString kStopped = "Playback control is stopped";
const QString kFailed = "Starting playback failed";

} // namespace

TEST(ControlQueue, Rules) {
    // clang-format off
    const std::vector<Case> cases = {
        {"finish with nothing queued emits empty", true, true, {"play a", "finish"},
         {"play(a)", "empty"}, {}, "a=ok", false},
        {"same skips merge, an opposite one cancels", true, true, {"play a", "next b", "next c", "previous d"},
         {"play(a)"}, {"play[a]", "next[b]"}, "a=pending b=pending c=ok d=ok", false},
        {"single opposite skips remove each other", true, true, {"play a", "next b", "previous c", "play d"},
         {"play(a)"}, {"play[a]", "play[d]"}, "a=pending b=ok c=ok d=pending", false},
        {"skips stay apart without merging", false, true, {"play a", "next b", "next c", "previous d"},
         {"play(a)"}, {"play[a]", "next[b]", "next[c]", "previous[d]"},
         "a=pending b=pending c=pending d=pending", false},
        {"stop cancels the first dropped control only", true, true,
         {"play a", "next b", "mode 1 m", "play c", "stop s"}, {"play(a)"}, {"play[a]", "stop[s]"},
         "a=pending b=cancelled m=pending c=pending s=pending", true},
        {"stop cancels every reply of a merged skip", true, true, {"play a", "next b", "next c", "stop s"},
         {"play(a)"}, {"play[a]", "stop[s]"}, "a=pending b=cancelled c=cancelled s=pending", true},
        {"play-mode changes collapse", true, true, {"play a", "mode 1 m", "mode 2 n"},
         {"play(a)"}, {"play[a]", "playMode2[n]"}, "a=pending m=pending n=pending", false},
        {"play-mode changes without collapsing", true, false, {"play a", "mode 1 m", "mode 2 n"},
         {"play(a)"}, {"play[a]", "playMode1[m]", "playMode2[n]"}, "a=pending m=pending n=pending", false},
        {"play and prepareNext always append", true, true,
         {"play a", "next b", "prepareNext", "play c", "finish", "finish", "finish"},
         {"play(a)", "next(b)", "prepareNext()", "play(c)"}, {"play[c]"}, "a=ok b=ok c=pending", false},
        {"a play-mode control starts with playModeChanged", true, true, {"play a", "mode 3 m", "finish"},
         {"play(a)", "mode3"}, {"playMode3[m]"}, "a=ok m=pending", false},
        {"a new queue is stopped", true, true, {"next a", "previous b", "mode 1 c", "prepareNext"},
         {}, {}, "a=" + kStopped + " b=" + kStopped + " c=" + kStopped, true},
        {"stop refuses later skips, play clears it", true, true,
         {"play a", "stop s", "next b", "play c", "next d"}, {"play(a)"},
         {"play[a]", "stop[s]", "play[c]", "next[d]"},
         "a=pending s=pending b=" + kStopped + " c=pending d=pending", false},
        {"clear cancels the active and every waiting reply", false, false,
         {"play a", "next b", "next c", "mode 1 m", "prepareNext", "clear"}, {"play(a)", "empty"}, {},
         "a=cancelled b=cancelled c=cancelled m=cancelled", true},
        // A failed play drops the commands behind it, up to the next play, which starts.
        {"failed play: a dropped play mode is announced before the next play", true, true,
         {"play a", "mode 2 m", "next b", "play c", "fail"},
         {"play(a)", "mode2", "play(c)"}, {"play[c]"}, "a=boom m=pending b=" + kFailed + " c=pending", false},
        {"failed play: a queued stop fails too", true, true, {"play a", "next b", "stop s", "play c", "fail"},
         {"play(a)", "play(c)"}, {"play[c]"}, "a=boom b=cancelled s=" + kFailed + " c=pending", false},
        {"failed play, nothing left: stopped and empty, no play mode", true, true,
         {"play a", "mode 2 m", "next b", "fail"}, {"play(a)", "empty"}, {},
         "a=boom m=pending b=" + kFailed, true},
        {"failed play: each reply of a merged skip fails", true, true, {"play a", "next b", "next c", "fail"},
         {"play(a)", "empty"}, {}, "a=boom b=" + kFailed + " c=" + kFailed, true},
        {"a failed skip drops nothing", false, true, {"play a", "next b", "next c", "finish", "fail"},
         {"play(a)", "next(b)", "next(c)"}, {"next[c]"}, "a=ok b=boom c=pending", false},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Harness h(c.skipMerging, c.playModeCollapsing);
        h.run(c.steps);
        const bool idle = h.queue.activeControl() == Command::none;
        EXPECT_EQ(std::make_tuple(h.started, h.replyStates(), h.queue.stopped(), idle),
                  std::make_tuple(c.started, c.replies, c.stopped, c.queued.isEmpty()));
        EXPECT_EQ(h.drain(), c.queued);
    }
}

// A refusal is a plain error, destruction cancels the active and the waiting
// replies, and the command type travels through queued connections.
TEST(ControlQueue, RefusalDestructionAndQueuedConnections) {
    auto queue = std::make_unique<ControlQueue>(true, true);
    const CMReply<QVariant> refused, active, waiting;
    queue->next(QVariant(), refused);
    EXPECT_EQ(std::make_tuple(refused.error().name(), refused.error().title()),
              std::make_tuple(CMError::DefaultName(), CMError::DefaultTitle().toString()));
    QStringList received;
    QObject::connect(
        queue.get(), &ControlQueue::control, queue.get(),
        [&](Command command, const QVariant& value) {
            received << ControlQueue::toString(command) + value.toString();
        },
        Qt::QueuedConnection);
    queue->play(QStringLiteral("X"), active);
    queue->play(QVariant(), waiting);
    EXPECT_TRUE(received.isEmpty());
    EXPECT_TRUE(zuvotest::waitUntil([&] { return !received.isEmpty(); }));
    EXPECT_EQ(received, QStringList({"playX"}));
    queue.reset();
    EXPECT_EQ(std::make_tuple(active.error().name(), waiting.error().name()),
              std::make_tuple(CMVoidReply::ErrorCancel(), CMVoidReply::ErrorCancel()));
}
