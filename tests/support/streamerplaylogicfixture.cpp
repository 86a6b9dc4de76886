#include "streamerplaylogicfixture.h"

#include "eventloop.h"
#include "model/cmactivatenode.h"

TestServiceNode::TestServiceNode(CMNodes* nodes, const CMPath& path) {
    CMActivateNode::create(nodes, path)->setInvoke(this, &TestServiceNode::onInvoked, Qt::QueuedConnection);
}

void TestServiceNode::onInvoked(const CMSetDataRequest& request) {
    requests.append(request);
    if (!hold)
        answer ? answer(request) : request.reply().setValue(QVariant());
}

namespace spltest {

ZuvoRoles item(const QStringList& uris, const CMPath& stateChangePath, bool live) {
    ZuvoList<ZuvoResource> resources;
    for (const QString& uri : uris) {
        ZuvoResource resource;
        resource.setUri(uri);
        resources.append(resource);
    }
    ZuvoMediaData mediaData;
    mediaData.setResources(resources);
    if (!resources.isEmpty())
        mediaData.setActiveResource(resources.first());
    ZuvoRoles roles;
    roles.setTitle(uris.isEmpty() ? QStringLiteral("empty") : uris.first());
    roles.setType(ZuvoRolesType::audio);
    roles.setMediaData(mediaData);
    return withMetaData(roles, [&](ZuvoMetaData& m) {
        m.setLive(live);
        if (!stateChangePath.isEmpty())
            m.setPlaybackStateChangePath(stateChangePath);
    });
}

ZuvoRoles withMetaData(ZuvoRoles roles, const std::function<void(ZuvoMetaData&)>& change) {
    ZuvoMediaData mediaData = roles.mediaData();
    ZuvoMetaData metaData = mediaData.metaData();
    change(metaData);
    mediaData.setMetaData(metaData);
    roles.setMediaData(mediaData);
    return roles;
}

ZuvoStreamerData streamerData(int playbackId, ZuvoPlayLogicState::Enum state, const ZuvoRoles& trackRoles) {
    ZuvoStreamerData data = TestStreamerService::makeData(playbackId, state);
    data.setTrackRoles(trackRoles);
    return data;
}

ZuvoStreamerData stoppedWith(ZuvoStreamerData data, int code, const QString& name, const QString& message) {
    data.setError(TestStreamerService::makeError(code, name, message));
    data.setState(ZuvoPlayLogicState::stopped);
    return data;
}

} // namespace spltest

ZuvoPlayLogicData TestStreamerPlayLogic::mediaPlaybackStarted(const ZuvoRoles& newTrackRoles,
                                                              const ZuvoRoles& previousTrackRoles) {
    ++mediaStarts;
    ZuvoPlayLogicData result = StreamerPlayLogic::mediaPlaybackStarted(newTrackRoles, previousTrackRoles);
    if (!controls)
        return result;
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

ZuvoStreamerPlayArgs SplWorld::sent(Command command, int i) const {
    return ZuvoStreamerPlayArgs(streamer.invocations(command).value(i).args());
}

ZuvoStreamerData SplWorld::playAndStart(const ZuvoRoles& track, const ZuvoRoles& media) {
    const int playsBefore = count(Command::play);
    const int id = streamer.nextPlaybackId();
    client->playContainer(media, track, 0, 0);
    if (!waitForCount(Command::play, playsBefore + 1))
        return ZuvoStreamerData();
    ZuvoStreamerData data =
        spltest::streamerData(id, ZuvoPlayLogicState::playing, sent(Command::play, playsBefore).roles());
    ZuvoPlayLogicStatus status;
    status.setDuration(60000);
    data.setStatus(status);
    streamer.publishData(data);
    if (!zuvotest::waitUntil([&] { return published().streamId() == id; }))
        return ZuvoStreamerData();
    return data;
}
