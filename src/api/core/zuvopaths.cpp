#include "zuvopaths.h"

// Each path is parsed once, on first use (thread-safe static), and handed out
// as an implicitly shared copy.
#define ZUVO_FIXED_PATH(Function, text)                                                                      \
    CMPath Function() {                                                                                      \
        static const CMPath path(QStringLiteral(text));                                                      \
        return path;                                                                                         \
    }
#define ZUVO_FIXED_STRING(Function, text)                                                                    \
    QString Function() {                                                                                     \
        return QStringLiteral(text);                                                                         \
    }

ZUVO_FIXED_PATH(ZuvoPlayerPath, "/player")

ZUVO_FIXED_PATH(ZuvoPlayLogicPlayTimePath, "/playTime")
ZUVO_FIXED_PATH(ZuvoPlayLogicPlayBytePath, "/playByte")
ZUVO_FIXED_PATH(ZuvoPlayLogicBufferingLevelPath, "/bufferingLevel")
ZUVO_FIXED_PATH(ZuvoPlayLogicPlayModePath, "/playMode")
ZUVO_FIXED_PATH(ZuvoPlayLogicBufferBytesPath, "/bufferBytes")

int ZuvoPlayLogicPingTimeout() {
    return 10000;
}

ZUVO_FIXED_PATH(ZuvoPlayerContentPlayLogicPlaylistPath, "/player/content/playlist")
ZUVO_FIXED_PATH(ZuvoPlayerStreamBufferingConfigPath, "/player/config/streamBuffering")

ZUVO_FIXED_STRING(ZuvoService_AirableRadios_Id, "airableRadios")

ZUVO_FIXED_PATH(ZuvoStreamerDefaultPrefixPath, "/streamer")
ZUVO_FIXED_PATH(ZuvoStreamerPlayPath, "/play")
ZUVO_FIXED_PATH(ZuvoStreamerSetNextMediaPath, "/setNextMedia")
ZUVO_FIXED_PATH(ZuvoStreamerClearNextMediaPath, "/clearNextMedia")
ZUVO_FIXED_PATH(ZuvoStreamerPausePath, "/pause")
ZUVO_FIXED_PATH(ZuvoStreamerResumePath, "/resume")
ZUVO_FIXED_PATH(ZuvoStreamerStopPath, "/stop")
ZUVO_FIXED_PATH(ZuvoStreamerSeekPath, "/seek")
ZUVO_FIXED_PATH(ZuvoStreamerSetAttributesPath, "/setAttributes")
ZUVO_FIXED_PATH(ZuvoStreamerDataPath, "/data")

ZUVO_FIXED_STRING(ZuvoStreamerAttributesStartPaused, "startPaused")
ZUVO_FIXED_STRING(ZuvoStreamerAttributesBufferLevelReportsEnabled, "bufferLevelReportsEnabled")
ZUVO_FIXED_STRING(ZuvoStreamerAttributesBufferingConfig, "bufferingConfig")

ZUVO_FIXED_STRING(ZuvoStreamerErrorCrashed, "streamerCrashed")

ZUVO_FIXED_PATH(ZuvoNotificationPlayerEnqueuePath, "/notifications/player/enqueue")
ZUVO_FIXED_PATH(ZuvoNotificationPlayerCancelPath, "/notifications/player/cancel")
ZUVO_FIXED_PATH(ZuvoNotificationDisplayOpenPath, "/notifications/display/open")
