// Stream errors reported by the streamer, their published names and
// messages, and the delayed error report.

#include <QTimer>
#include <gtest/gtest.h>
#include <memory>

#include "support/eventloop.h"
#include "support/logcapture.h"
#include "support/streamerplaylogicfixture.h"

using zuvotest::waitUntil;

namespace {

class ErrorsTest : public ::testing::Test {
protected:
    void SetUp() override {
        logic = std::make_unique<TestStreamerPlayLogic>(h.scope.nodes(), h.basePath);
        timer = logic->findChild<QTimer*>(QStringLiteral("errorReportTimer"));
        ASSERT_NE(timer, nullptr);
    }

    ZuvoPlayLogicData published() const { return h.client->data(); }

    ZuvoStreamerData playAndStart(const ZuvoRoles& track) {
        const ZuvoStreamerData data = spltest::playAndStart(h, track);
        EXPECT_FALSE(data.isEmpty());
        return data;
    }

    SplHarness h;
    std::unique_ptr<TestStreamerPlayLogic> logic;
    QTimer* timer = nullptr;
};

struct ErrorRow {
    int code;
    const char* streamerErrorName;
    bool radioService;
    const char* errorName; // sent to the state-change node; empty: no error entry
    const char* message;   // published error text; empty: none
    log4cplus::LogLevel level;
    const char* logLine;
    bool notice;
};

const ErrorRow errorRows[] = {
    {-16, "e", false, "couldNotOpenStream", "Could not open stream!", log4cplus::WARN_LOG_LEVEL,
     "Could not open stream!", false},
    {-17, "e", false, "notAuthorized", "Access to this stream is not authorized by the content provider",
     log4cplus::WARN_LOG_LEVEL, "Unauthorized access", false},
    {-18, "e", false, "couldNotRead", "Could not read source!", log4cplus::TRACE_LOG_LEVEL,
     "Couldn't read source!", false},
    {-19, "e", false, "couldNotFind", "Could not find source!", log4cplus::TRACE_LOG_LEVEL,
     "Couldn't find source", false},
    {-19, "e", true, "couldNotFind", "Could not find source!", log4cplus::TRACE_LOG_LEVEL,
     "Couldn't find source", true},
    {-20, "e", false, "streamDecryptionIsNotSupported",
     "The stream is encrypted and decryption is not supported.", log4cplus::TRACE_LOG_LEVEL,
     "The stream is encrypted and decryption is not supported.", false},
    {-21, "e", false, "streamDecryptionNoKey",
     "The stream is encrypted and can't be decrypted because no suitable key is available.",
     log4cplus::TRACE_LOG_LEVEL,
     "The stream is encrypted and can't be decrypted because no suitable key is available.", false},
    {-5, "crashed", false, "streamCrashed", "The streamer crashed", log4cplus::TRACE_LOG_LEVEL,
     "The streamer crashed", false},
    {-99, "odd", false, "unknownError", "Unknown streamer error!", log4cplus::TRACE_LOG_LEVEL,
     "Unknown streamer error!", false},
    {-14, "e", false, "failedParseUrl", "Returned data does not contain any URL after parsing playlist file!",
     log4cplus::TRACE_LOG_LEVEL,
     "Streamer can not play current url: gstCoreMissingPlugin, gstStreamTypeNotFound or gstWrongType.",
     false},
    {-15, "e", false, "failedParseUrl", "Returned data does not contain any URL after parsing playlist file!",
     log4cplus::TRACE_LOG_LEVEL,
     "Streamer can not play current url: gstCoreMissingPlugin, gstStreamTypeNotFound or gstWrongType.",
     false},
    {-22, "e", false, "failedParseUrl", "Returned data does not contain any URL after parsing playlist file!",
     log4cplus::TRACE_LOG_LEVEL,
     "Streamer can not play current url: gstCoreMissingPlugin, gstStreamTypeNotFound or gstWrongType.",
     false},
    {-13, "eos", false, "", "", log4cplus::TRACE_LOG_LEVEL, "End of stream reached!", false},
};

TEST_F(ErrorsTest, StreamerErrorCodesArePublishedByName) {
    for (const ErrorRow& row : errorRows) {
        SCOPED_TRACE(testing::Message() << "code " << row.code << " radio " << row.radioService);
        // A fresh world per row.
        SplHarness h;
        const auto logic = std::make_unique<TestStreamerPlayLogic>(h.scope.nodes(), h.basePath);
        QTimer* const timer = logic->findChild<QTimer*>(QStringLiteral("errorReportTimer"));
        const auto published = [&h] { return h.client->data(); };

        ZuvoRoles track = spltest::item({QStringLiteral("http://a/1")}, CMPath("/service/stateChange"));
        if (row.radioService) {
            ZuvoMediaData mediaData = track.mediaData();
            ZuvoMetaData metaData = mediaData.metaData();
            metaData.setServiceID(ZuvoService_AirableRadios_Id());
            mediaData.setMetaData(metaData);
            track.setMediaData(mediaData);
        }
        LogCapture log;
        const ZuvoStreamerData data = spltest::playAndStart(h, track);
        ASSERT_FALSE(data.isEmpty());
        const QString streamerErrorName = QString::fromUtf8(row.streamerErrorName) == QLatin1String("crashed")
                                              ? ZuvoStreamerErrorCrashed()
                                              : QString::fromUtf8(row.streamerErrorName);
        h.streamer.publish(spltest::withError(data, streamerErrorName, row.code, QStringLiteral("gst text")));

        ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 2; })) << log.toString().toStdString();
        const ZuvoPlayLogicData report(h.stateChange.valueAt(1));
        EXPECT_EQ(report.state(), ZuvoPlayLogicState::stopped);
        EXPECT_EQ(report.error(), QString::fromUtf8(row.errorName));
        EXPECT_EQ(report.isSetError(), *row.errorName != '\0');
        EXPECT_TRUE(log.contains(row.level, QString::fromUtf8(row.logLine))) << log.toString().toStdString();
        if (*row.message != '\0') {
            ASSERT_TRUE(waitUntil([&] { return !published().error().isEmpty(); }));
            EXPECT_EQ(published().error(), QString::fromUtf8(row.message));
            // An error with a message leaves the playback state as it is.
            EXPECT_NE(published().state(), ZuvoPlayLogicState::stopped);
            EXPECT_TRUE(timer->isActive());
        } else {
            ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }));
            EXPECT_TRUE(published().error().isEmpty());
        }
        zuvotest::drainEvents();
        EXPECT_EQ(h.display.count(), row.notice ? 1 : 0);
        if (row.notice) {
            const ZuvoNotificationDisplayItem notice(h.display.valueAt(0));
            EXPECT_EQ(notice.title(), QStringLiteral("Failed to start"));
            EXPECT_EQ(notice.message(), QStringLiteral("Radio station is not available!"));
            EXPECT_EQ(notice.timeout(), 3000);
        }
    }
}

TEST_F(ErrorsTest, PlaylistCodeWithoutResourceFailsToParseUrl) {
    LogCapture log;
    const ZuvoRoles track = spltest::item({}, CMPath("/service/stateChange"));
    const ZuvoStreamerData data = playAndStart(track);
    h.streamer.publish(spltest::withError(data, QStringLiteral("e"), -22, QString()));
    ASSERT_TRUE(waitUntil([&] { return !published().error().isEmpty(); }));
    EXPECT_EQ(published().error(), QStringLiteral("Can not parse url: resource not found!"));
    EXPECT_TRUE(log.contains(log4cplus::ERROR_LOG_LEVEL,
                             QStringLiteral("Resource not found in trackroles, returning.")));
    ASSERT_TRUE(waitUntil([&] { return h.stateChange.count() == 2; }));
    EXPECT_EQ(ZuvoPlayLogicData(h.stateChange.valueAt(1)).error(), QStringLiteral("failedParseUrl"));
}

TEST_F(ErrorsTest, ErrorReportShowsMessageOrNameAndIsWithdrawn) {
    playAndStart(spltest::item({QStringLiteral("http://a/1")}));
    timer->setInterval(30);

    logic->reportError(CMError(QStringLiteral("first"), QString(), QString()));
    EXPECT_EQ(published().error(), QStringLiteral("first"));
    EXPECT_TRUE(timer->isActive());

    // A second report replaces the text and restarts the count.
    logic->reportError(
        CMError(QStringLiteral("second"), QStringLiteral("t"), QStringLiteral("Second message")));
    EXPECT_EQ(published().error(), QStringLiteral("Second message"));
    ASSERT_TRUE(waitUntil([&] { return published().error().isEmpty(); }));
    EXPECT_EQ(logic->tryResumeCalls, 1);
    EXPECT_NE(published().state(), ZuvoPlayLogicState::stopped);
}

TEST_F(ErrorsTest, EndOfPlaybackKeepsAReportedError) {
    const ZuvoStreamerData data = playAndStart(spltest::item({QStringLiteral("http://a/1")}));
    logic->reportError(CMError(QStringLiteral("late"), QStringLiteral("t"), QStringLiteral("Late error")));
    h.streamer.publish(spltest::withError(data, QStringLiteral("eos"), -13, QString()));
    ASSERT_TRUE(waitUntil([&] { return published().state() == ZuvoPlayLogicState::stopped; }));
    EXPECT_FALSE(timer->isActive());
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
    int publications = 0;
    const QObject counter; // disconnects before publications goes out of scope
    QObject::connect(logic.get(), &PlayLogicBase::playbackDataChanged, &counter,
                     [&publications] { ++publications; });
    logic->setStopFlag(StreamerPlayLogic::NoNextMedia);
    EXPECT_EQ(publications, 0);
}

} // namespace
