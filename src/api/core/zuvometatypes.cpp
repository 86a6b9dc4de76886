#include "zuvometatypes.h"

#include "zuvo.h"

namespace {

// Registration under the spelling used in signal signatures: the type name
// itself, and for an enumeration its Type::Enum form.
#define ZUVO_REGISTER(Type) qRegisterMetaType<Type>(#Type);

void registerAll() {
    ZUVO_REGISTER(ZuvoPlayLogicState::Enum)
    ZUVO_REGISTER(ZuvoPlayLogicControl::Enum)
    ZUVO_REGISTER(ZuvoPlayLogicStopReason::Enum)
    ZUVO_REGISTER(ZuvoPlayLogicPlayArgsType::Enum)
    ZUVO_REGISTER(ZuvoPlayerPlayMode::Enum)
    ZUVO_REGISTER(ZuvoRolesType::Enum)
    ZUVO_REGISTER(ZuvoAudioType::Enum)
    ZUVO_REGISTER(ZuvoNotificationPlayerItemType::Enum)
    ZUVO_REGISTER(ZuvoNotificationItemPriority::Enum)
    ZUVO_REGISTER(ZuvoNotificationPlayerResponseType::Enum)

    ZUVO_REGISTER(ZuvoValue)
    ZUVO_REGISTER(ZuvoRowsRoles)
    ZUVO_REGISTER(ZuvoResource)
    ZUVO_REGISTER(ZuvoRoles)
    ZUVO_REGISTER(ZuvoMetaData)
    ZUVO_REGISTER(ZuvoMediaData)
    ZUVO_REGISTER(ZuvoMetaDataControl)
    ZUVO_REGISTER(ZuvoPlayLogicPlayModesSupported)
    ZUVO_REGISTER(ZuvoPlayLogicControls)
    ZUVO_REGISTER(ZuvoError)
    ZUVO_REGISTER(ZuvoPlayLogicStatus)
    ZUVO_REGISTER(ZuvoPlayLogicData)
    ZUVO_REGISTER(ZuvoPlayLogicControlArgs)
    ZUVO_REGISTER(ZuvoPlayLogicPlayArgs)
    ZUVO_REGISTER(ZuvoPlayLogicStopArgs)
    ZUVO_REGISTER(ZuvoPlayLogicPreviousArgs)
    ZUVO_REGISTER(ZuvoPlayLogicSeekArgs)
    ZUVO_REGISTER(ZuvoPlayLogicSetCurrentTrackArgs)
    ZUVO_REGISTER(ZuvoPlayLogicChangePlayModeArgs)
    ZUVO_REGISTER(ZuvoPlayLogicPingArgs)
    ZUVO_REGISTER(ZuvoStreamerPlayArgs)
    ZUVO_REGISTER(ZuvoStreamerSeekPosition)
    ZUVO_REGISTER(ZuvoStreamerSetAttributesArgs)
    ZUVO_REGISTER(ZuvoStreamerData)
    ZUVO_REGISTER(ZuvoNotificationPlayerItem)
    ZUVO_REGISTER(ZuvoNotificationPlayerResponse)
    ZUVO_REGISTER(ZuvoNotificationDisplayItem)

    qRegisterMetaType<ZuvoPlayLogicPlayId>("ZuvoPlayLogicPlayId");
}

#undef ZUVO_REGISTER

} // namespace

void zuvoRegisterMetaTypes() {
    static const bool registered = (registerAll(), true);
    Q_UNUSED(registered)
}
