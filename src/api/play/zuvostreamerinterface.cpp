#include "zuvostreamerinterface.h"

#include "zuvoassert.h"

#include <QMetaType>

#include "model/cmnodes.h"
#include "model/cmvalueitem.h"

namespace {

// Connecting and disconnecting the items are programming errors when they
// fail; they stop the program in every build type.
void check(bool condition, const char* what) {
    zuvoAssert(condition, "ZuvoStreamerInterface", what);
}

} // namespace

ZuvoStreamerInterface::ZuvoStreamerInterface(QObject* parent)
    : StreamerInterface(parent) {
    qRegisterMetaType<ZuvoValue>("ZuvoValue");
    m_dataItem = createItem(CMPath(), &ZuvoStreamerInterface::on_streamerData_changed);
    m_playTimeItem = createItem(CMPath(), &ZuvoStreamerInterface::on_streamerPlayTime_changed);
}

ZuvoStreamerInterface::~ZuvoStreamerInterface() = default;

CMPath ZuvoStreamerInterface::dataPath() {
    return ZuvoStreamerDefaultPrefixPath() + ZuvoStreamerDataPath();
}

CMValueItem* ZuvoStreamerInterface::createItem(const CMPath& path, ItemSlot slot) {
    auto* item = new CMValueItem(this, path);
    check(static_cast<bool>(connect(item, &CMValueItem::changed, this, slot)), "connection");
    return item;
}

void ZuvoStreamerInterface::listen(CMValueItem*& item, bool on, const CMPath& relative, ItemSlot slot) {
    if (on && !item) {
        item = createItem(dataPath() + relative, slot);
    } else if (!on && item) {
        const bool disconnectSucceeded = disconnect(item, &CMValueItem::changed, this, slot);
        check(disconnectSucceeded, "disconnectSucceeded");
        item->deleteLater();
        item = nullptr;
    }
}

bool ZuvoStreamerInterface::initialize() {
    m_dataItem->setPath(dataPath());
    m_playTimeItem->setPath(m_dataItem->path() + ZuvoPlayLogicPlayTimePath());
    return true;
}

void ZuvoStreamerInterface::deinitialize() {
    m_playTimeItem->setPath(CMPath());
    m_dataItem->setPath(CMPath());
}

CMReply<QVariant> ZuvoStreamerInterface::invoke(const CMPath& relative, const QVariant& arguments) {
    CMReply<QVariant> reply;
    CMRoot()->invoke(ZuvoStreamerDefaultPrefixPath() + relative, arguments, reply);
    return reply;
}

CMReply<QVariant> ZuvoStreamerInterface::invoke(const CMPath& relative, const ZuvoHash& arguments) {
    CMReply<QVariant> reply;
    CMRoot()->invoke(ZuvoStreamerDefaultPrefixPath() + relative, arguments, reply);
    return reply;
}

CMReply<QVariant> ZuvoStreamerInterface::play(const ZuvoStreamerPlayArgs& args) {
    return invoke(ZuvoStreamerPlayPath(), args);
}

CMReply<QVariant> ZuvoStreamerInterface::setNextMedia(const ZuvoStreamerPlayArgs& args) {
    return invoke(ZuvoStreamerSetNextMediaPath(), args);
}

CMReply<QVariant> ZuvoStreamerInterface::pause() {
    return invoke(ZuvoStreamerPausePath(), QVariant());
}

CMReply<QVariant> ZuvoStreamerInterface::resume() {
    return invoke(ZuvoStreamerResumePath(), QVariant());
}

CMReply<QVariant> ZuvoStreamerInterface::stop() {
    return invoke(ZuvoStreamerStopPath(), QVariant());
}

CMReply<QVariant> ZuvoStreamerInterface::seek(const ZuvoStreamerSeekPosition& position) {
    return invoke(ZuvoStreamerSeekPath(), position);
}

void ZuvoStreamerInterface::clearNextMedia() {
    invoke(ZuvoStreamerClearNextMediaPath(), QVariant());
}

void ZuvoStreamerInterface::setAttributes(const ZuvoStreamerSetAttributesArgs& args) {
    invoke(ZuvoStreamerSetAttributesPath(), args);
}

ZuvoStreamerData ZuvoStreamerInterface::data() const {
    return ZuvoStreamerData(m_dataItem->value().__hash());
}

qint64 ZuvoStreamerInterface::playTime() const {
    return m_playTimeItem->value().i64_();
}

double ZuvoStreamerInterface::bufferingLevel() const {
    return m_bufferingLevelItem ? m_bufferingLevelItem->value().double_() : -1.0;
}

qint64 ZuvoStreamerInterface::bufferedBytes() const {
    return m_bufferedBytesItem ? m_bufferedBytesItem->value().i64_() : -1;
}

void ZuvoStreamerInterface::listenBufferingLevel(bool on) {
    listen(m_bufferingLevelItem, on, ZuvoPlayLogicBufferingLevelPath(),
           &ZuvoStreamerInterface::on_streamerBufferingLevel_changed);
}

bool ZuvoStreamerInterface::listeningBufferingLevel() const {
    return m_bufferingLevelItem != nullptr;
}

void ZuvoStreamerInterface::listenBufferedBytes(bool on) {
    listen(m_bufferedBytesItem, on, ZuvoPlayLogicBufferBytesPath(),
           &ZuvoStreamerInterface::on_streamerBufferedBytes_changed);
}

bool ZuvoStreamerInterface::listeningBufferedBytes() const {
    return m_bufferedBytesItem != nullptr;
}

void ZuvoStreamerInterface::on_streamerData_changed(const ZuvoValue& newValue, const ZuvoValue& oldValue) {
    Q_EMIT dataChanged(ZuvoStreamerData(newValue.__hash()), ZuvoStreamerData(oldValue.__hash()));
}

void ZuvoStreamerInterface::on_streamerPlayTime_changed(const ZuvoValue& newValue,
                                                        const ZuvoValue& oldValue) {
    Q_EMIT playTimeChanged(newValue.i64_(), oldValue.i64_());
}

void ZuvoStreamerInterface::on_streamerBufferingLevel_changed(const ZuvoValue& newValue,
                                                              const ZuvoValue& oldValue) {
    Q_EMIT bufferingLevelChanged(newValue.double_(), oldValue.double_());
}

void ZuvoStreamerInterface::on_streamerBufferedBytes_changed(const ZuvoValue& newValue,
                                                             const ZuvoValue& oldValue) {
    Q_EMIT bufferedBytesChanged(newValue.i64_(), oldValue.i64_());
}
