// The URI conventions through which tests, playlists and demos choose how a
// simulated stream behaves.

#include <gtest/gtest.h>

#include <vector>

#include "simulatedmedia.h"
#include "streamererrors.h"
#include "support/logcapture.h"

namespace {

constexpr qint64 DefaultMs = 12345;

ZuvoRoles rolesFor(const QString& uri, const QString& mimeType = QString(), qint64 duration = 0) {
    ZuvoResource resource;
    resource.setUri(uri);
    if (!mimeType.isEmpty())
        resource.setMimeType(mimeType);
    if (duration != 0)
        resource.setDuration(duration);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    mediaData.setActiveResource(resource);
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

} // namespace

TEST(SimulatedMediaTest, UriAndResourceChooseDurationFailureAndCrash) {
    struct Case {
        const char* uri;
        const char* mimeType;
        qint64 resourceDuration; // 0: not set
        qint64 durationMs;
        int failureCode;
        qint64 failureAtMs;
        bool crashes;
        qint64 crashAtMs;
        int warnings;
    };
    const std::vector<Case> cases = {
        // Duration: query first, then the resource, then the default.
        {"http://h/a.mp3", "", 0, DefaultMs, 0, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-duration=8000", "", 0, 8000, 0, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-duration=live", "", 0, -1, 0, 0, false, 0, 0},
        {"http://h/a.mp3", "", -1, -1, 0, 0, false, 0, 0},
        {"http://h/a.mp3", "", 42000, 42000, 0, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-duration=1000", "", 42000, 1000, 0, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-duration=5000", "", -1, 5000, 0, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-duration=0", "", 0, DefaultMs, 0, 0, false, 0, 1},
        {"http://h/a.mp3?zuvo-duration=soon", "", 0, DefaultMs, 0, 0, false, 0, 1},
        // Failures: every failure code, at once or after a playing time.
        {"http://h/a.mp3?zuvo-error=-14", "", 0, DefaultMs, -14, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-error=-22", "", 0, DefaultMs, -22, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-error=-13", "", 0, DefaultMs, 0, 0, false, 0, 1},
        {"http://h/a.mp3?zuvo-error=-23", "", 0, DefaultMs, 0, 0, false, 0, 1},
        {"http://h/a.mp3?zuvo-error=bad", "", 0, DefaultMs, 0, 0, false, 0, 1},
        {"http://h/a.mp3?zuvo-error=-19&zuvo-error-after=2500", "", 0, DefaultMs, -19, 2500, false, 0, 0},
        {"http://h/a.mp3?zuvo-error-after=700", "", 0, DefaultMs, -18, 700, false, 0, 0},
        {"http://h/a.mp3?zuvo-error=-16&zuvo-error-after=-5", "", 0, DefaultMs, -16, 0, false, 0, 1},
        // Crash.
        {"http://h/a.mp3?zuvo-crash", "", 0, DefaultMs, 0, 0, true, 0, 0},
        {"http://h/a.mp3?zuvo-crash=1500&zuvo-duration=live", "", 0, -1, 0, 0, true, 1500, 0},
        {"http://h/a.mp3?zuvo-crash=later", "", 0, DefaultMs, 0, 0, false, 0, 1},
        // Playlists by suffix (any case, query ignored) or by MIME type.
        {"http://h/list.m3u", "", 0, DefaultMs, -15, 0, false, 0, 0},
        {"HTTP://h/Radio.PLS?station=1", "", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/hls/index.m3u8", "", 0, DefaultMs, -15, 0, false, 0, 0},
        {"sim://demo/station.asx", "", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/urls.txt", "audio/mpeg", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/stream", "Audio/X-MpegURL; charset=utf-8", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/stream", "application/vnd.ms-wpl", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/stream", "audio/mpeg", 0, DefaultMs, 0, 0, false, 0, 0},
        {"http://h/m3u", "", 0, DefaultMs, 0, 0, false, 0, 0},
        {"http://h/a.m3u/track.mp3", "", 0, DefaultMs, 0, 0, false, 0, 0},
        {"http://h/play?file=a.pls", "", 0, DefaultMs, 0, 0, false, 0, 0},
        {"http://h/list.m3u?zuvo-error=-19", "", 0, DefaultMs, -19, 0, false, 0, 0},
        // Unknown zuvo-* parameters warn; the others still count.
        {"http://h/a.mp3?zuvo-speed=3&zuvo-duration=900&other=1", "", 0, 900, 0, 0, false, 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.uri);
        LogCapture log;
        const SimulatedMedia media = SimulatedMedia::fromRoles(
            rolesFor(QString::fromUtf8(c.uri), QString::fromUtf8(c.mimeType), c.resourceDuration), DefaultMs);
        EXPECT_EQ(media.uri, QString::fromUtf8(c.uri));
        EXPECT_EQ(media.durationMs, c.durationMs);
        EXPECT_EQ(media.failureCode, c.failureCode);
        EXPECT_EQ(media.failureAtMs, c.failureAtMs);
        EXPECT_EQ(media.crashes, c.crashes);
        EXPECT_EQ(media.crashAtMs, c.crashAtMs);
        EXPECT_EQ(log.count(QStringLiteral("Ignoring")), c.warnings) << log.toString().toStdString();
        if (c.warnings > 0) {
            EXPECT_TRUE(log.contains(log4cplus::WARN_LOG_LEVEL, QStringLiteral("Ignoring")));
        }
    }
}

TEST(SimulatedMediaTest, PlayedUriIsTheActiveResourceElseTheFirstWithAUri) {
    ZuvoResource noUri;
    noUri.setUid(QStringLiteral("x"));
    ZuvoResource first;
    first.setUri(QStringLiteral("http://h/first.mp3"));
    ZuvoResource second;
    second.setUri(QStringLiteral("http://h/second.mp3?zuvo-duration=live"));

    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{noUri, first, second});
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    EXPECT_EQ(SimulatedMedia::fromRoles(roles, DefaultMs).uri, first.uri());

    mediaData.setActiveResource(second);
    roles.setMediaData(mediaData);
    const SimulatedMedia active = SimulatedMedia::fromRoles(roles, DefaultMs);
    EXPECT_EQ(active.uri, second.uri());
    EXPECT_TRUE(active.isLive());

    EXPECT_TRUE(SimulatedMedia::fromRoles(ZuvoRoles(), DefaultMs).uri.isEmpty());
}

TEST(SimulatedMediaTest, ErrorRecordsCarryCodeNameAndMessage) {
    for (int code = StreamerErrorCode::EndOfStream; code >= StreamerErrorCode::LastFailure; --code) {
        SCOPED_TRACE(code);
        const ZuvoError error = streamerError(code);
        EXPECT_EQ(error.code(), code);
        EXPECT_FALSE(error.name().isEmpty());
        EXPECT_FALSE(error.message().isEmpty());
        EXPECT_EQ(StreamerErrorCode::isFailure(code), code != StreamerErrorCode::EndOfStream);
    }
    EXPECT_EQ(streamerError(-15).name(), QStringLiteral("gstStreamTypeNotFound"));
    EXPECT_TRUE(streamerError(0).isEmpty());
    EXPECT_TRUE(streamerError(-23).isEmpty());
    EXPECT_FALSE(StreamerErrorCode::isFailure(-23));
}
