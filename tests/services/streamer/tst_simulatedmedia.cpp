// The URI conventions through which tests, playlists and demos choose how a
// simulated stream behaves.

#include <gtest/gtest.h>

#include <vector>

#include "simulatedmedia.h"
#include "support/logcapture.h"

namespace {

constexpr qint64 DefaultMs = 12345;

ZuvoResource resource(const QString& uri, const QString& mimeType = QString(), qint64 duration = 0) {
    ZuvoResource r;
    r.setUri(uri);
    if (!mimeType.isEmpty())
        r.setMimeType(mimeType);
    if (duration != 0)
        r.setDuration(duration);
    return r;
}

ZuvoRoles rolesWith(const ZuvoList<ZuvoResource>& resources, const ZuvoResource& active = ZuvoResource()) {
    ZuvoMediaData mediaData;
    mediaData.setResources(resources);
    mediaData.setActiveResource(active);
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
        {"http://h/a.mp3?zuvo-duration=live", "", 0, -1, 0, 0, false, 0, 0},
        {"http://h/a.mp3", "", -1, -1, 0, 0, false, 0, 0},
        {"http://h/a.mp3", "", 42000, 42000, 0, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-duration=5000", "", -1, 5000, 0, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-duration=0", "", 0, DefaultMs, 0, 0, false, 0, 1},
        // Failures at once or after a playing time; codes outside -14 ... -22 warn.
        {"http://h/a.mp3?zuvo-error=-14", "", 0, DefaultMs, -14, 0, false, 0, 0},
        {"http://h/a.mp3?zuvo-error=-13", "", 0, DefaultMs, 0, 0, false, 0, 1},
        {"http://h/a.mp3?zuvo-error=-23", "", 0, DefaultMs, 0, 0, false, 0, 1},
        {"http://h/a.mp3?zuvo-error=-19&zuvo-error-after=2500", "", 0, DefaultMs, -19, 2500, false, 0, 0},
        {"http://h/a.mp3?zuvo-error-after=700", "", 0, DefaultMs, -18, 700, false, 0, 0},
        // Crash.
        {"http://h/a.mp3?zuvo-crash", "", 0, DefaultMs, 0, 0, true, 0, 0},
        {"http://h/a.mp3?zuvo-crash=1500", "", 0, DefaultMs, 0, 0, true, 1500, 0},
        {"http://h/a.mp3?zuvo-crash=later", "", 0, DefaultMs, 0, 0, false, 0, 1},
        // Playlists by suffix (any case, query ignored) or by MIME type.
        {"HTTP://h/Radio.PLS?station=1", "", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/urls.txt", "audio/mpeg", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/stream", "Audio/X-MpegURL; charset=utf-8", 0, DefaultMs, -15, 0, false, 0, 0},
        {"http://h/a.m3u/track.mp3", "", 0, DefaultMs, 0, 0, false, 0, 0},
        {"http://h/play?file=a.pls", "", 0, DefaultMs, 0, 0, false, 0, 0},
        {"http://h/list.m3u?zuvo-error=-19", "", 0, DefaultMs, -19, 0, false, 0, 0},
        // Unknown zuvo-* parameters warn; the others still count.
        {"http://h/a.mp3?zuvo-speed=3&zuvo-duration=900&other=1", "", 0, 900, 0, 0, false, 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.uri);
        LogCapture log;
        const QString uri = QString::fromUtf8(c.uri);
        const ZuvoResource r = resource(uri, QString::fromUtf8(c.mimeType), c.resourceDuration);
        const SimulatedMedia media = SimulatedMedia::fromRoles(rolesWith({r}, r), DefaultMs);
        EXPECT_EQ(media.uri, uri);
        EXPECT_EQ(media.durationMs, c.durationMs);
        EXPECT_EQ(media.failureCode, c.failureCode);
        EXPECT_EQ(media.failureAtMs, c.failureAtMs);
        EXPECT_EQ(media.crashes, c.crashes);
        EXPECT_EQ(media.crashAtMs, c.crashAtMs);
        EXPECT_EQ(log.count(QStringLiteral("Ignoring")), c.warnings) << log.toString().toStdString();
    }
}

TEST(SimulatedMediaTest, PlayedUriIsTheActiveResourceElseTheFirstWithAUri) {
    const ZuvoResource first = resource(QStringLiteral("http://h/first.mp3"));
    const ZuvoResource second = resource(QStringLiteral("http://h/second.mp3?zuvo-duration=live"));
    const ZuvoList<ZuvoResource> resources{resource(QString()), first, second};
    EXPECT_EQ(SimulatedMedia::fromRoles(rolesWith(resources), DefaultMs).uri, first.uri());
    EXPECT_TRUE(SimulatedMedia::fromRoles(rolesWith(resources, second), DefaultMs).isLive());
    EXPECT_TRUE(SimulatedMedia::fromRoles(ZuvoRoles(), DefaultMs).uri.isEmpty());
}
