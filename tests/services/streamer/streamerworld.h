#pragma once

// A streamer service in a registry of its own and what it published;
// commands go through the model tree on the streamer's default paths.

#include <functional>
#include <memory>

#include "model/cmnodes.h"
#include "simulatedstreamer.h"
#include "support/eventloop.h"

namespace simtest {

// An audio track of one resource (durationMs 0: none given).
inline ZuvoRoles track(const QString& uri, const QString& mimeType = QString(), qint64 durationMs = 0) {
    ZuvoResource resource;
    resource.setUri(uri);
    if (!mimeType.isEmpty())
        resource.setMimeType(mimeType);
    if (durationMs != 0)
        resource.setDuration(durationMs);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    mediaData.setActiveResource(resource);
    ZuvoRoles roles;
    roles.setTitle(uri);
    roles.setType(ZuvoRolesType::audio);
    roles.setMediaData(mediaData);
    return roles;
}

inline QVariant playArgs(const QString& uri, bool startPaused = false, const QString& mimeType = QString()) {
    ZuvoStreamerPlayArgs args;
    args.setRoles(track(uri, mimeType));
    args.setAttributes(QVariantHash{{ZuvoStreamerAttributesStartPaused(), startPaused}});
    return args.__variant();
}

inline QVariant attributeArgs(int playbackId, const QVariant& attributes) {
    ZuvoStreamerSetAttributesArgs args;
    args.setPlaybackId(playbackId);
    args.setAttributes(attributes);
    return args.__variant();
}

inline bool isStopped(const ZuvoStreamerData& data) {
    return data.state() == ZuvoPlayLogicState::stopped;
}

// A record in short: its state (Stopped, Loading, Playing, paused (Z)), its
// playback id (0: none), n with next media, e near its end, then its error's
// code (! for an error without one).
inline QString summary(const ZuvoStreamerData& d) {
    const int code = d.error().code();
    return QLatin1Char("SLPZ"[int(d.state())]) + QString::number(d.isSetPlaybackId() ? d.playbackId() : 0) +
           QLatin1String(d.isSetNextTrackRoles() ? "n" : "") + QLatin1String(d.trackNearEnd() ? "e" : "") +
           (code ? QString::number(code) : QLatin1String(d.error().isEmpty() ? "" : "!"));
}

// "ok" for a success without value, "id:N" for a playback id, else the
// error's name.
inline QString answerOf(const CMReply<QVariant>& reply) {
    if (!reply.isFinished())
        return QStringLiteral("unanswered");
    if (reply.hasError())
        return reply.error().name();
    return reply.value().isValid() ? QStringLiteral("id:%1").arg(reply.value().toInt())
                                   : QStringLiteral("ok");
}

struct World {
    using Make = std::function<std::unique_ptr<StreamerService>(CMNodes*)>;
    explicit World(const Make& make =
                       [](CMNodes* nodes) { return std::make_unique<SimulatedStreamer>(nodes); })
        : service(make(root.nodes()))
        , streamer(*service) {
        QObject::connect(&streamer, &StreamerService::dataPublished, &streamer,
                         [this](const ZuvoStreamerData& data) { records.append(data); });
    }

    CMReply<QVariant> send(const CMPath& command, const QVariant& payload = QVariant()) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(ZuvoStreamerDefaultPrefixPath() + command, payload, reply);
        return reply;
    }
    // Sends and waits for the answer.
    QString call(const CMPath& command, const QVariant& payload = QVariant()) {
        const CMReply<QVariant> reply = send(command, payload);
        zuvotest::waitUntil([&] { return reply.isFinished(); });
        return answerOf(reply);
    }
    // The summary() of every record published so far.
    QString story() const {
        QStringList all;
        for (const ZuvoStreamerData& record : records)
            all << summary(record);
        return all.join(QLatin1Char(' '));
    }
    bool waitFor(const std::function<bool(const ZuvoStreamerData&)>& cond, int timeoutMs = 5000) {
        return zuvotest::waitUntil([&] { return cond(streamer.data()); }, timeoutMs);
    }

    CMRootScope root;
    std::unique_ptr<StreamerService> service;
    StreamerService& streamer;
    QList<ZuvoStreamerData> records;
};

} // namespace simtest
