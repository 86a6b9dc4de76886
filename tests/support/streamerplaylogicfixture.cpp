#include "streamerplaylogicfixture.h"

#include "model/cmactivatenode.h"

TestServiceNode::TestServiceNode(CMNodes* nodes, const CMPath& path, QObject* parent)
    : QObject(parent) {
    CMActivateNode* node = CMActivateNode::create(nodes, path);
    node->setInvoke(this, &TestServiceNode::onInvoked, Qt::QueuedConnection);
}

void TestServiceNode::onInvoked(const CMSetDataRequest& request) {
    m_requests.append(request);
    if (m_hold)
        return;
    if (m_answer)
        m_answer(request);
    else
        request.reply().setValue(QVariant());
}

#include "eventloop.h"
#include "model/cmvaluenode.h"
#include "zuvo.h"

ScriptedStreamer::ScriptedStreamer(CMNodes* nodes, QObject* parent)
    : QObject(parent) {
    const auto answerId = [this](const CMSetDataRequest& request) {
        request.reply().setValue(QVariant(m_nextId++));
    };
    m_play = makeNode(nodes, ZuvoStreamerPlayPath());
    m_play->setAnswer(answerId);
    m_setNextMedia = makeNode(nodes, ZuvoStreamerSetNextMediaPath());
    m_setNextMedia->setAnswer(answerId);
    m_clearNextMedia = makeNode(nodes, ZuvoStreamerClearNextMediaPath());
    m_pause = makeNode(nodes, ZuvoStreamerPausePath());
    m_resume = makeNode(nodes, ZuvoStreamerResumePath());
    m_stop = makeNode(nodes, ZuvoStreamerStopPath());
    m_seek = makeNode(nodes, ZuvoStreamerSeekPath());
    makeNode(nodes, ZuvoStreamerSetAttributesPath());
    const CMPath dataPath = ZuvoStreamerDefaultPrefixPath() + ZuvoStreamerDataPath();
    m_data = CMValueNode::create(nodes, dataPath);
    m_playTime = CMValueNode::create(nodes, dataPath + ZuvoPlayLogicPlayTimePath());
    m_bufferingLevel = CMValueNode::create(nodes, dataPath + ZuvoPlayLogicBufferingLevelPath());
}

TestServiceNode* ScriptedStreamer::makeNode(CMNodes* nodes, const CMPath& relative) {
    return new TestServiceNode(nodes, ZuvoStreamerDefaultPrefixPath() + relative, this);
}

void ScriptedStreamer::publish(const ZuvoStreamerData& data) {
    m_data->setValue(ZuvoValue(data.__hash()));
}

void ScriptedStreamer::publishBufferingLevel(double percentage) {
    ZuvoValue value;
    value.setDouble_(percentage);
    m_bufferingLevel->setValue(value);
}

void ScriptedStreamer::publishPlayTime(qint64 ms) {
    ZuvoValue value;
    value.setI64_(ms);
    m_playTime->setValue(value);
}

namespace spltest {

ZuvoRoles item(const QStringList& uris, const CMPath& stateChangePath, bool live) {
    ZuvoList<ZuvoResource> resources;
    for (const QString& uri : uris) {
        ZuvoResource resource;
        resource.setUri(uri);
        resources.append(resource);
    }
    ZuvoMetaData metaData;
    metaData.setLive(live);
    if (!stateChangePath.isEmpty())
        metaData.setPlaybackStateChangePath(stateChangePath);
    ZuvoMediaData mediaData;
    mediaData.setMetaData(metaData);
    mediaData.setResources(resources);
    if (!resources.isEmpty())
        mediaData.setActiveResource(resources.first());
    ZuvoRoles roles;
    roles.setTitle(uris.isEmpty() ? QStringLiteral("empty") : uris.first());
    roles.setType(ZuvoRolesType::audio);
    roles.setMediaData(mediaData);
    return roles;
}

ZuvoRoles withPrePlay(ZuvoRoles roles, const CMPath& prePlayPath) {
    ZuvoMediaData mediaData = roles.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    metaData.setPrePlayPath(prePlayPath);
    mediaData.setMetaData(metaData);
    roles.setMediaData(mediaData);
    return roles;
}

ZuvoStreamerData streamerData(int playbackId, ZuvoPlayLogicState::Enum state, const ZuvoRoles& trackRoles) {
    ZuvoStreamerData data;
    data.setPlaybackId(playbackId);
    data.setState(state);
    data.setTrackRoles(trackRoles);
    return data;
}

ZuvoStreamerData withError(ZuvoStreamerData data, const QString& name, int code, const QString& message) {
    ZuvoError error;
    error.setName(name);
    error.setCode(code);
    error.setMessage(message);
    data.setError(error);
    data.setState(ZuvoPlayLogicState::stopped);
    return data;
}

} // namespace spltest

ZuvoPlayLogicData TestStreamerPlayLogic::mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                                              const ZuvoRoles& previousTrackRoles) {
    ZuvoPlayLogicData result = StreamerPlayLogic::mediaPlaybackStarted(newTrackRoles, previousTrackRoles);
    ZuvoPlayLogicControls controls;
    for (const QString& key :
         {ZuvoMetaDataControl::Pause(), ZuvoMetaDataControl::Next_(), ZuvoMetaDataControl::Previous(),
          ZuvoMetaDataControl::Like(), ZuvoMetaDataControl::Dislike(), ZuvoMetaDataControl::SeekTime(),
          ZuvoMetaDataControl::SeekBytes(), ZuvoMetaDataControl::SeekTrack()})
        controls.__insert(key, true);
    ZuvoPlayLogicPlayModesSupported modes;
    modes.setShuffle(true);
    controls.setPlayMode(modes);
    result.setControls(controls);
    return result;
}

void TestStreamerPlayLogic::prepareNextMedia() {
    ++prepareNextMediaCalls;
    if (upcoming.isEmpty()) {
        StreamerPlayLogic::prepareNextMedia();
        return;
    }
    sendSetNextMediaCommand(upcoming.takeFirst(), QVariantHash());
}

ZuvoStreamerData spltest::playAndStart(SplHarness& h, const ZuvoRoles& track) {
    const int playsBefore = h.streamer.playNode().count();
    const int id = h.streamer.nextPlaybackId();
    h.client->playContainer(ZuvoRoles(), track, 0, 0);
    if (!zuvotest::waitUntil([&] { return h.streamer.playNode().count() == playsBefore + 1; }))
        return ZuvoStreamerData();
    ZuvoStreamerData data = streamerData(id, ZuvoPlayLogicState::playing, track);
    ZuvoPlayLogicStatus status;
    status.setDuration(60000);
    data.setStatus(status);
    h.streamer.publish(data);
    if (!zuvotest::waitUntil([&] { return h.client->data().streamId() == id; }))
        return ZuvoStreamerData();
    return data;
}
