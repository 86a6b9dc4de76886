#pragma once

// A streamer service in a registry of its own, with what it published, for
// the tests of this folder. Commands go through the model tree
// (CMRoot()->invoke) on the streamer's default paths, like any client's.

#include <QList>
#include <QStringList>
#include <functional>
#include <memory>

#include "model/cmnodes.h"
#include "model/cmvalueitem.h"
#include "simulatedstreamer.h"
#include "support/eventloop.h"

namespace simtest {

inline ZuvoRoles track(const QString& uri, const QString& mimeType = QString()) {
    ZuvoResource resource;
    resource.setUri(uri);
    if (!mimeType.isEmpty())
        resource.setMimeType(mimeType);
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

inline QVariant seekArgs(qint64 timeMs, qint64 bytes = -1) {
    ZuvoStreamerSeekPosition position;
    if (timeMs >= 0)
        position.setTimeMs(timeMs);
    if (bytes >= 0)
        position.setBytes(bytes);
    return position.__variant();
}

inline QVariant attributeArgs(int playbackId, const QVariant& attributes) {
    ZuvoStreamerSetAttributesArgs args;
    args.setPlaybackId(playbackId);
    args.setAttributes(attributes);
    return args.__variant();
}

inline bool isPlaying(const ZuvoStreamerData& data) {
    return data.state() == ZuvoPlayLogicState::playing;
}

inline bool isStopped(const ZuvoStreamerData& data) {
    return data.state() == ZuvoPlayLogicState::stopped;
}

// "ok" for a success without value, "id:N" for a playback id, else the
// error's name.
inline QString answerOf(const CMReply<QVariant>& reply) {
    if (!reply.isFinished())
        return QStringLiteral("unanswered");
    if (reply.hasError())
        return reply.error().name();
    const QVariant value = reply.value();
    return value.isValid() ? QStringLiteral("id:") + QString::number(value.toInt()) : QStringLiteral("ok");
}

// Collects every value a value path reports, read by convert.
template <typename T> class ValueLog {
public:
    ValueLog(const CMPath& path, std::function<T(const ZuvoValue&)> convert)
        : m_item(nullptr, path) {
        QObject::connect(&m_item, &CMValueItem::changed, &m_item,
                         [this, convert](const ZuvoValue& value) { values.append(convert(value)); });
    }
    QList<T> values;

private:
    CMValueItem m_item;
};

// Service: StreamerService or one of its kinds; make builds it in the
// world's registry (by default Service(nodes)).
template <typename Service> struct BasicWorld {
    using Make = std::function<std::unique_ptr<Service>(CMNodes*)>;

    CMRootScope root;
    std::unique_ptr<Service> service;
    Service& streamer;
    QList<ZuvoStreamerData> records;
    QStringList commands;

    explicit BasicWorld(const Make& make = [](CMNodes* nodes) { return std::make_unique<Service>(nodes); })
        : service(make(root.nodes()))
        , streamer(*service) {
        QObject::connect(&streamer, &StreamerService::dataPublished, &streamer,
                         [this](const ZuvoStreamerData& data) { records.append(data); });
        QObject::connect(&streamer, &StreamerService::commandReceived, &streamer,
                         [this](const QString& command) { commands.append(command); });
    }

    static CMPath dataPath() { return ZuvoStreamerDefaultPrefixPath() + ZuvoStreamerDataPath(); }
    static CMPath playTimePath() { return dataPath() + ZuvoPlayLogicPlayTimePath(); }

    CMReply<QVariant> send(const CMPath& command, const QVariant& payload = QVariant()) {
        CMReply<QVariant> reply;
        CMRoot()->invoke(ZuvoStreamerDefaultPrefixPath() + command, payload, reply);
        return reply;
    }
    // Sends and waits for the answer.
    CMReply<QVariant> call(const CMPath& command, const QVariant& payload = QVariant()) {
        const CMReply<QVariant> reply = send(command, payload);
        zuvotest::waitUntil([&] { return reply.isFinished(); });
        return reply;
    }
    bool waitFor(const std::function<bool(const ZuvoStreamerData&)>& cond, int timeoutMs = 5000) {
        return zuvotest::waitUntil([&] { return cond(streamer.data()); }, timeoutMs);
    }
    // The record the data node holds, as a client reads it.
    ZuvoStreamerData nodeRecord() const { return ZuvoStreamerData(CMRoot()->getValue(dataPath()).toHash()); }
};

using World = BasicWorld<SimulatedStreamer>;

inline qint64 toI64(const ZuvoValue& value) {
    return value.i64_();
}
inline double toDouble(const ZuvoValue& value) {
    return value.double_();
}

} // namespace simtest
