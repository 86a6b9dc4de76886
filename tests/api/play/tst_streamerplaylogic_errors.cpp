// How a stopping streamer ends (or does not end) the playback: the streamer's
// error codes with their published names, messages and log lines, the stop
// flags, and the delayed error report.

#include <QTimer>
#include <gtest/gtest.h>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using zuvotest::waitUntil;
using Command = TestStreamerService::Command;

namespace {

// What the play logic does with a stopped streamer.
enum class Outcome {
    Shown,    // the error message is published for a while; the playback is not ended
    Ended,    // the playback ends (state 0) without an error
    ToParser, // the URL is handed to the playlist parser; nothing is published yet
};

// How the stop comes about.
enum class Setup {
    Plain,       // a playing item with one resource
    RadioItem,   // the same, from the radio service that gets the station notice
    NoResources, // an item without any resource
    UserStop,    // the user stopped; the streamer then reports stopped without error
};

struct ErrorRow {
    int code; // 0: the stopped record carries no error
    const char* streamerErrorName;
    Setup setup;
    Outcome outcome;
    const char* errorName; // sent to the state-change node with the stop; empty: no error entry
    const char* message;   // published error text (Shown only)
    log4cplus::LogLevel level;
    const char* logLine;
    bool notice = false;
};

const char* const notAPlayableUrl =
    "Streamer can not play current url: gstCoreMissingPlugin, gstStreamTypeNotFound or gstWrongType.";

const ErrorRow errorRows[] = {
    {-16, "e", Setup::Plain, Outcome::Shown, "couldNotOpenStream", "Could not open stream!",
     log4cplus::WARN_LOG_LEVEL, "Could not open stream!"},
    {-17, "e", Setup::Plain, Outcome::Shown, "notAuthorized",
     "Access to this stream is not authorized by the content provider", log4cplus::WARN_LOG_LEVEL,
     "Unauthorized access"},
    {-18, "e", Setup::Plain, Outcome::Shown, "couldNotRead", "Could not read source!",
     log4cplus::TRACE_LOG_LEVEL, "Couldn't read source!"},
    {-19, "e", Setup::Plain, Outcome::Shown, "couldNotFind", "Could not find source!",
     log4cplus::TRACE_LOG_LEVEL, "Couldn't find source"},
    {-19, "e", Setup::RadioItem, Outcome::Shown, "couldNotFind", "Could not find source!",
     log4cplus::TRACE_LOG_LEVEL, "Couldn't find source", true},
    {-20, "e", Setup::Plain, Outcome::Shown, "streamDecryptionIsNotSupported",
     "The stream is encrypted and decryption is not supported.", log4cplus::TRACE_LOG_LEVEL,
     "The stream is encrypted and decryption is not supported."},
    {-21, "e", Setup::Plain, Outcome::Shown, "streamDecryptionNoKey",
     "The stream is encrypted and can't be decrypted because no suitable key is available.",
     log4cplus::TRACE_LOG_LEVEL,
     "The stream is encrypted and can't be decrypted because no suitable key is available."},
    // The crash is recognised by name, whatever the code.
    {-5, "crashed", Setup::Plain, Outcome::Shown, "streamCrashed", "The streamer crashed",
     log4cplus::TRACE_LOG_LEVEL, "The streamer crashed"},
    {-99, "odd", Setup::Plain, Outcome::Shown, "unknownError", "Unknown streamer error!",
     log4cplus::TRACE_LOG_LEVEL, "Unknown streamer error!"},
    // A nameless error is the user's stop only after a stop of the user.
    {-99, "", Setup::Plain, Outcome::Shown, "unknownError", "Unknown streamer error!",
     log4cplus::TRACE_LOG_LEVEL, "Unknown streamer error!"},
    {0, "", Setup::UserStop, Outcome::Ended, "userStop", "", log4cplus::TRACE_LOG_LEVEL,
     "Stream stopped due the user request"},
    {-13, "eos", Setup::Plain, Outcome::Ended, "", "", log4cplus::TRACE_LOG_LEVEL, "End of stream reached!"},
    // The URL may be a playlist: tested before any other rule.
    {-14, "e", Setup::Plain, Outcome::ToParser, "", "", log4cplus::TRACE_LOG_LEVEL, notAPlayableUrl},
    {-15, "crashed", Setup::Plain, Outcome::ToParser, "", "", log4cplus::TRACE_LOG_LEVEL, notAPlayableUrl},
    {-22, "e", Setup::Plain, Outcome::ToParser, "", "", log4cplus::TRACE_LOG_LEVEL, notAPlayableUrl},
    {-22, "e", Setup::NoResources, Outcome::Shown, "failedParseUrl", "Can not parse url: resource not found!",
     log4cplus::ERROR_LOG_LEVEL, "Resource not found in trackroles, returning."},
};

ZuvoRoles trackFor(Setup setup) {
    const ZuvoRoles track =
        spltest::item(setup == Setup::NoResources ? QStringList() : QStringList{QStringLiteral("http://a/1")},
                      SplWorld::stateChangePath());
    if (setup != Setup::RadioItem)
        return track;
    return spltest::withMetaData(
        track, [](ZuvoMetaData& metaData) { metaData.setServiceID(ZuvoService_AirableRadios_Id()); });
}

TEST(StreamerPlayLogicErrors, StoppedStreamerByCode) {
    for (const ErrorRow& row : errorRows) {
        SCOPED_TRACE(testing::Message() << "code " << row.code << " name '" << row.streamerErrorName
                                        << "' setup " << int(row.setup));
        SplWorld h;
        const auto logic = std::make_unique<TestStreamerPlayLogic>(h.scope.nodes(), h.basePath);
        QTimer* const timer = spltest::errorReportTimer(*logic);
        ASSERT_NE(timer, nullptr);

        const ZuvoRoles track = trackFor(row.setup);
        const ZuvoStreamerData data = h.playAndStart(track);
        ASSERT_FALSE(data.isEmpty());
        ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 1; }));
        if (row.setup == Setup::UserStop) {
            h.client->stop(ZuvoPlayLogicStopReason::user);
            ASSERT_TRUE(h.waitForCount(Command::stop, 1));
        }

        LogCapture log;
        ZuvoStreamerData stopped = data;
        stopped.setState(ZuvoPlayLogicState::stopped);
        if (row.code != 0) {
            const QString name = qstrcmp(row.streamerErrorName, "crashed") == 0
                                     ? ZuvoStreamerErrorCrashed()
                                     : QString::fromUtf8(row.streamerErrorName);
            stopped = spltest::stoppedWith(data, row.code, name, QStringLiteral("gst text"));
        }
        h.streamer.publishData(stopped);

        switch (row.outcome) {
        case Outcome::Shown:
            ASSERT_TRUE(waitUntil([&] { return !h.published().error().isEmpty(); }))
                << log.toString().toStdString();
            EXPECT_EQ(h.published().error(), QString::fromUtf8(row.message));
            // The stopped streamer shows as loading; the playback has not ended.
            EXPECT_EQ(h.published().state(), ZuvoPlayLogicState::loading);
            EXPECT_TRUE(timer->isActive());
            break;
        case Outcome::Ended:
            ASSERT_TRUE(waitUntil([&] { return h.published().state() == ZuvoPlayLogicState::stopped; }))
                << log.toString().toStdString();
            EXPECT_TRUE(h.published().error().isEmpty());
            break;
        case Outcome::ToParser:
            ASSERT_TRUE(waitUntil([&] { return h.parser.count() == 1; })) << log.toString().toStdString();
            EXPECT_EQ(ZuvoRoles(h.parser.valueAt(0)), logic->currentTrackRoles());
            EXPECT_EQ(spltest::activeUri(ZuvoRoles(h.parser.valueAt(0))), QStringLiteral("http://a/1"));
            EXPECT_TRUE(h.published().error().isEmpty());
            EXPECT_EQ(h.published().state(), ZuvoPlayLogicState::loading);
            break;
        }
        EXPECT_TRUE(log.contains(row.level, QString::fromUtf8(row.logLine))) << log.toString().toStdString();
        if (row.code != 0) {
            EXPECT_EQ(h.published().streamerError().code(), row.code);
        }

        zuvotest::drainEvents();
        if (row.outcome == Outcome::ToParser) {
            EXPECT_EQ(h.stateChange.count(), 1);
            EXPECT_EQ(h.parser.count(), 1);
        } else {
            ASSERT_EQ(h.stateChange.count(), 2);
            const ZuvoPlayLogicData report(h.stateChange.valueAt(1));
            EXPECT_EQ(report.state(), ZuvoPlayLogicState::stopped);
            EXPECT_EQ(report.error(), QString::fromUtf8(row.errorName));
            EXPECT_EQ(report.isSetError(), *row.errorName != '\0');
            EXPECT_EQ(h.parser.count(), 0);
        }
        // Nothing else is tried for a single resource.
        EXPECT_EQ(h.count(Command::play), 1);
        EXPECT_EQ(h.display.count(), row.notice ? 1 : 0);
        if (row.notice) {
            const ZuvoNotificationDisplayItem notice(h.display.valueAt(0));
            EXPECT_EQ(notice.title(), QStringLiteral("Failed to start"));
            EXPECT_EQ(notice.message(), QStringLiteral("Radio station is not available!"));
            EXPECT_EQ(notice.timeout(), 3000);
        }
    }
}

using ErrorsTest = SplTest<>;

TEST_F(ErrorsTest, ErrorReportShowsMessageOrNameAndIsWithdrawn) {
    playAndStart(spltest::item({QStringLiteral("http://a/1")}));
    QTimer* const timer = spltest::errorReportTimer(*logic);
    timer->setInterval(400);

    logic->reportError(CMError(QStringLiteral("first"), QString(), QString()));
    EXPECT_EQ(published().error(), QStringLiteral("first"));
    ASSERT_TRUE(waitUntil([&] { return timer->remainingTime() <= 250; }));

    // A second report replaces the text and counts the interval from itself.
    logic->reportError(
        CMError(QStringLiteral("second"), QStringLiteral("t"), QStringLiteral("Second message")));
    EXPECT_EQ(published().error(), QStringLiteral("Second message"));
    EXPECT_GT(timer->remainingTime(), 250);
    EXPECT_EQ(logic->tryResumeCalls, 0);
    ASSERT_TRUE(waitUntil([&] { return published().error().isEmpty(); }));
    EXPECT_EQ(logic->tryResumeCalls, 1);
    EXPECT_NE(published().state(), ZuvoPlayLogicState::stopped);
}

TEST_F(ErrorsTest, EndOfPlaybackKeepsAReportedError) {
    const ZuvoStreamerData data = playAndStart(spltest::item({QStringLiteral("http://a/1")}));
    logic->reportError(CMError(QStringLiteral("late"), QStringLiteral("t"), QStringLiteral("Late error")));
    EXPECT_TRUE(spltest::errorReportTimer(*logic)->isActive());
    h.streamer.publishData(spltest::stoppedWith(data, -13, QStringLiteral("eos")));
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }));
    EXPECT_FALSE(spltest::errorReportTimer(*logic)->isActive());
    EXPECT_EQ(published().error(), QStringLiteral("Late error"));
    EXPECT_EQ(logic->tryResumeCalls, 0);
}

TEST_F(ErrorsTest, PlaybackEndsOnlyWhenBothStopFlagsAreSet) {
    ASSERT_FALSE(playAndStart(spltest::item({QStringLiteral("http://a/1")})).isEmpty());
    logic->setStopFlag(StreamerPlayLogic::StreamerStopped);
    logic->setStopFlag(StreamerPlayLogic::StreamerStopped);
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);

    // A new play between the two reasons forgets the first one.
    logic->sendPlayCommand(spltest::item({QStringLiteral("http://a/2")}), {});
    logic->setStopFlag(StreamerPlayLogic::NoNextMedia);
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::playing);

    logic->setStopFlag(StreamerPlayLogic::StreamerStopped);
    EXPECT_EQ(published().state(), ZuvoPlayLogicState::stopped);
    EXPECT_EQ(h.client->bufferLevel(), -1.0);
    // The set was emptied: a further flag alone publishes nothing.
    PublishedStates states(logic.get());
    logic->setStopFlag(StreamerPlayLogic::NoNextMedia);
    EXPECT_TRUE(states.states.isEmpty());
}

// A track that ends by itself, whether or not the streamer reported its near
// end first: the playback ends exactly once, and the streamer is told that
// nothing follows only while the playback still runs.
TEST_F(ErrorsTest, TrackEndingByItselfEndsThePlaybackOnce) {
    for (const bool nearEndFirst : {true, false}) {
        SCOPED_TRACE(nearEndFirst ? "near end first" : "no near end");
        h.streamer.clearInvocations();
        const int reportsBefore = h.stateChange.count();
        ZuvoStreamerData data = playAndStart(
            spltest::item({QStringLiteral("http://a/%1").arg(nearEndFirst)}, SplWorld::stateChangePath()));
        if (nearEndFirst) {
            data.setTrackNearEnd(true);
            h.streamer.publishData(data);
            ASSERT_TRUE(h.waitForCount(Command::clearNextMedia, 1));
        }
        PublishedStates states(logic.get());
        h.streamer.publishData(spltest::stoppedWith(data, -13, QStringLiteral("eos")));
        ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }));
        zuvotest::drainEvents();

        EXPECT_EQ(states.states.count(ZuvoPlayLogicState::stopped), 1);
        EXPECT_EQ(states.states.last(), ZuvoPlayLogicState::stopped);
        EXPECT_EQ(h.count(Command::clearNextMedia), nearEndFirst ? 1 : 0);
        EXPECT_EQ(h.count(Command::stop), 0);
        ASSERT_EQ(h.stateChange.count(), reportsBefore + 2);
        EXPECT_EQ(ZuvoPlayLogicData(h.stateChange.valueAt(reportsBefore + 1)).state(),
                  ZuvoPlayLogicState::stopped);
    }
}

} // namespace
