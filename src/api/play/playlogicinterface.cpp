#include "playlogicinterface.h"

#include <QHash>
#include <QMutex>

#include "model/cmnodes.h"
#include "model/cmrequest.h"

namespace {

struct Registry {
    QMutex mutex;
    QHash<CMPath, PlayLogicInterface*> instances;
};

// Created on first use (thread-safe) and deliberately never destroyed, like
// the instances it holds: they stay valid until the process ends.
Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

} // namespace

PlayLogicInterface::PlayLogicInterface(const CMPath& path)
    : m_base(path)
    , m_control(path + QStringLiteral("/control"))
    , m_data(path + QStringLiteral("/data"))
    , m_playTime(m_data + ZuvoPlayLogicPlayTimePath())
    , m_playByte(m_data + ZuvoPlayLogicPlayBytePath())
    , m_bufferingLevel(m_data + ZuvoPlayLogicBufferingLevelPath())
    , m_playMode(m_data + ZuvoPlayLogicPlayModePath()) {}

PlayLogicInterface* PlayLogicInterface::instance(const CMPath& path) {
    Registry& r = registry();
    const CMPath key = path.withoutParams();
    QMutexLocker locker(&r.mutex);
    PlayLogicInterface*& slot = r.instances[key];
    if (!slot)
        slot = new PlayLogicInterface(path); // lives for the rest of the process
    return slot;
}

PlayLogicInterface* PlayLogicInterface::playerInstance() {
    return instance(ZuvoPlayerPath());
}

ZuvoValue PlayLogicInterface::valueAt(const CMPath& path) const {
    return ZuvoValue(zuvo_detail::toHash(CMRoot()->getValue(path)));
}

ZuvoPlayLogicData PlayLogicInterface::data() const {
    return ZuvoPlayLogicData(valueAt(m_data).__hash());
}

qint64 PlayLogicInterface::playTime() const {
    return valueAt(m_playTime).i64_();
}

qint64 PlayLogicInterface::playByte() const {
    return valueAt(m_playByte).i64_();
}

double PlayLogicInterface::bufferLevel() const {
    return valueAt(m_bufferingLevel).double_();
}

ZuvoPlayerPlayMode::Enum PlayLogicInterface::playMode() const {
    return valueAt(m_playMode).playerPlayMode();
}

CMReply<QVariant> PlayLogicInterface::control(const ZuvoHash& arguments, CMReply<QVariant> reply) {
    CMRoot()->setData(CMSetDataRequest(m_control, ZuvoRoles::Activate(), arguments.__variant(), reply));
    return reply;
}

template <typename Args>
CMReply<QVariant> PlayLogicInterface::send(Args args, ZuvoPlayLogicControl::Enum control) {
    args.setControl(control);
    return this->control(args, CMReply<QVariant>());
}

CMReply<QVariant> PlayLogicInterface::play(const ZuvoRoles& mediaRoles, bool startPaused) {
    ZuvoPlayLogicPlayArgs args;
    args.setMediaRoles(mediaRoles);
    args.setStartPaused(startPaused);
    return send(args, ZuvoPlayLogicControl::play);
}

CMReply<QVariant> PlayLogicInterface::playContainer(const ZuvoRoles& mediaRoles, const ZuvoRoles& trackRoles,
                                                    int index, int version, bool startPaused) {
    ZuvoPlayLogicPlayArgs args;
    args.setType(ZuvoPlayLogicPlayArgsType::container);
    args.setMediaRoles(mediaRoles);
    args.setTrackRoles(trackRoles);
    args.setIndex(index);
    args.setVersion(version);
    args.setStartPaused(startPaused);
    return send(args, ZuvoPlayLogicControl::play);
}

CMReply<QVariant> PlayLogicInterface::stop(ZuvoPlayLogicStopReason::Enum reason) {
    ZuvoPlayLogicStopArgs args;
    args.setReason(reason);
    return send(args, ZuvoPlayLogicControl::stop);
}

CMReply<QVariant> PlayLogicInterface::pause() {
    return send(ZuvoPlayLogicControlArgs(), ZuvoPlayLogicControl::pause);
}

CMReply<QVariant> PlayLogicInterface::next() {
    return send(ZuvoPlayLogicControlArgs(), ZuvoPlayLogicControl::next);
}

CMReply<QVariant> PlayLogicInterface::previous(bool forceSkipPrevious) {
    ZuvoPlayLogicPreviousArgs args;
    args.setForceSkipPrevious(forceSkipPrevious);
    return send(args, ZuvoPlayLogicControl::previous);
}

CMReply<QVariant> PlayLogicInterface::like() {
    return send(ZuvoPlayLogicControlArgs(), ZuvoPlayLogicControl::like);
}

CMReply<QVariant> PlayLogicInterface::dislike() {
    return send(ZuvoPlayLogicControlArgs(), ZuvoPlayLogicControl::dislike);
}

CMReply<QVariant> PlayLogicInterface::seekTime(qint64 ms) {
    ZuvoPlayLogicSeekArgs args;
    args.setTime(ms);
    return send(args, ZuvoPlayLogicControl::seekTime);
}

CMReply<QVariant> PlayLogicInterface::seekBytes(qint64 bytes) {
    ZuvoPlayLogicSeekArgs args;
    args.setBytes(bytes);
    return send(args, ZuvoPlayLogicControl::seekBytes);
}

CMReply<QVariant> PlayLogicInterface::setCurrentTrack(int index) {
    ZuvoPlayLogicSetCurrentTrackArgs args;
    args.setCurrentTrack(index);
    return send(args, ZuvoPlayLogicControl::setCurrentTrack);
}

CMReply<QVariant> PlayLogicInterface::changePlayMode(ZuvoPlayerPlayMode::Enum mode) {
    ZuvoPlayLogicChangePlayModeArgs args;
    args.setPlayMode(mode);
    return send(args, ZuvoPlayLogicControl::changePlayMode);
}

CMReply<QVariant> PlayLogicInterface::ping(int sequenceNumber) {
    ZuvoPlayLogicPingArgs args;
    args.setPingSequenceNumber(sequenceNumber);
    return send(args, ZuvoPlayLogicControl::ping);
}
