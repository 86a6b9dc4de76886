#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <tuple>
#include <vector>

#include "model/cmnodes.h"
#include "playlogicinterface.h"
#include "support/eventloop.h"
#include "support/records.h"
#include "support/streamerplaylogicfixture.h"

// Each call sends its control record; pause, next, seeks, play mode, current
// track and ping: the streamer and track-list play-logic tests send them.
TEST(PlayLogicInterface, ControlCallsSendTheirRecords) {
    CMRootScope root;
    TestServiceNode recorder(root.nodes(), CMPath("/zone1/control"));
    recorder.answer = [](const CMSetDataRequest& r) { r.reply().setValue(QVariant(QStringLiteral("done"))); };
    PlayLogicInterface* pl = PlayLogicInterface::instance(CMPath("/zone1"));
    const ZuvoRoles media = zuvotest::rolesTitled(QStringLiteral("album"));
    const ZuvoRoles track = zuvotest::rolesTitled(QStringLiteral("track"));
    using C = ZuvoPlayLogicControl;
    using Play = ZuvoPlayLogicPlayArgs;
    // The call, its control and the fields it sends besides the control.
    // clang-format off
    const std::vector<std::tuple<std::function<CMReply<QVariant>()>, C::Enum, QVariantHash>> cases = {
        {[&] { return pl->play(media, true); }, C::play,
         {{Play::MediaRoles(), media.__variant()}, {Play::StartPaused(), true}}},
        {[&] { return pl->playContainer(media, track, 3, 7, false); }, C::play,
         {{Play::Type(), 1}, {Play::MediaRoles(), media.__variant()}, {Play::TrackRoles(), track.__variant()},
          {Play::Index(), 3}, {Play::Version(), 7}, {Play::StartPaused(), false}}},
        {[&] { return pl->stop(ZuvoPlayLogicStopReason::newPlayRequest); }, C::stop,
         {{ZuvoPlayLogicStopArgs::Reason(), 4}}},
        {[&] { return pl->previous(true); }, C::previous,
         {{ZuvoPlayLogicPreviousArgs::ForceSkipPrevious(), true}}},
        {[&] { return pl->like(); }, C::like, {}},
        {[&] { return pl->dislike(); }, C::dislike, {}},
    };
    // clang-format on
    for (const auto& [call, control, fields] : cases) {
        SCOPED_TRACE(int(control));
        recorder.requests.clear();
        const CMReply<QVariant> reply = call();
        ASSERT_TRUE(zuvotest::waitUntil([&] { return reply.isFinished(); }));
        QVariantHash expected = fields;
        expected.insert(ZuvoPlayLogicControlArgs::Control(), int(control));
        ASSERT_EQ(recorder.requests.size(), 1);
        EXPECT_EQ(std::make_tuple(reply.value().toString(), recorder.requests[0].role(),
                                  recorder.requests[0].data().toHash()),
                  std::make_tuple(QStringLiteral("done"), ZuvoRoles::Activate(), expected));
    }
}

TEST(PlayLogicInterface, OneInstancePerPathWhateverTheParametersAndThreads) {
    PlayLogicInterface* first = PlayLogicInterface::instance(CMPath("/zone3?client=a"));
    EXPECT_EQ(PlayLogicInterface::instance(CMPath("/zone3?client=b")), first);
    EXPECT_EQ(PlayLogicInterface::instance(CMPath("/zone3")), first);
    EXPECT_EQ(PlayLogicInterface::playerInstance(), PlayLogicInterface::instance(ZuvoPlayerPath()));

    // Threads racing for a path nobody asked for yet get one instance.
    std::vector<PlayLogicInterface*> seen(8, nullptr);
    std::vector<std::thread> workers;
    for (size_t i = 0; i < seen.size(); ++i)
        workers.emplace_back([&seen, i] {
            seen[i] = PlayLogicInterface::instance(CMPath(QStringLiteral("/race?t=%1").arg(i)));
        });
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_NE(seen.front(), nullptr);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), seen.front()), 8);
}
