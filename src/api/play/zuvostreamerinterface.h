#pragma once

#include "model/cmpath.h"
#include "streamerinterface.h"

class CMValueItem;

// StreamerInterface over the model tree: commands are invocations on the
// streamer's nodes below ZuvoStreamerDefaultPrefixPath() (sent through
// CMRoot(), each with a fresh reply), values are CMValueItems watching its
// data node and the values below it.
//
// Owns up to four value items, all children of this object: data and play
// time (always present, watching only between initialize() and
// deinitialize()), buffering level and buffered bytes (present only while
// listening). A value that is not watched reads as its type's default; the
// buffering level and the buffered bytes read as -1 while not listening.
//
// Thread: the event-loop thread that CMRoot()'s registry and this object
// live in.
class ZuvoStreamerInterface : public StreamerInterface {
    Q_OBJECT
public:
    explicit ZuvoStreamerInterface(QObject* parent = nullptr);
    ~ZuvoStreamerInterface() override;
    Q_DISABLE_COPY(ZuvoStreamerInterface)

    bool initialize() override;
    void deinitialize() override;

    CMReply<QVariant> play(const ZuvoStreamerPlayArgs& args) override;
    CMReply<QVariant> setNextMedia(const ZuvoStreamerPlayArgs& args) override;
    CMReply<QVariant> pause() override;
    CMReply<QVariant> resume() override;
    CMReply<QVariant> stop() override;
    CMReply<QVariant> seek(const ZuvoStreamerSeekPosition& position) override;
    void clearNextMedia() override;
    void setAttributes(const ZuvoStreamerSetAttributesArgs& args) override;

    ZuvoStreamerData data() const override;
    qint64 playTime() const override;
    double bufferingLevel() const override;
    qint64 bufferedBytes() const override;

    void listenBufferingLevel(bool on) override;
    bool listeningBufferingLevel() const override;
    void listenBufferedBytes(bool on) override;
    bool listeningBufferedBytes() const override;

private Q_SLOTS:
    void on_streamerData_changed(const ZuvoValue& newValue, const ZuvoValue& oldValue);
    void on_streamerPlayTime_changed(const ZuvoValue& newValue, const ZuvoValue& oldValue);
    void on_streamerBufferingLevel_changed(const ZuvoValue& newValue, const ZuvoValue& oldValue);
    void on_streamerBufferedBytes_changed(const ZuvoValue& newValue, const ZuvoValue& oldValue);

private:
    using ItemSlot = void (ZuvoStreamerInterface::*)(const ZuvoValue&, const ZuvoValue&);

    // A new child item on path whose changes go to slot.
    CMValueItem* createItem(const CMPath& path, ItemSlot slot);
    // Creates (on) or disposes of (off) an optional item; other combinations do nothing.
    void listen(CMValueItem*& item, bool on, const CMPath& relative, ItemSlot slot);
    // The streamer's data path; the other values live below it.
    static CMPath dataPath();
    static CMReply<QVariant> invoke(const CMPath& relative, const QVariant& arguments);
    static CMReply<QVariant> invoke(const CMPath& relative, const ZuvoHash& arguments);

    CMValueItem* m_dataItem = nullptr;
    CMValueItem* m_playTimeItem = nullptr;
    CMValueItem* m_bufferingLevelItem = nullptr;
    CMValueItem* m_bufferedBytesItem = nullptr;
};
