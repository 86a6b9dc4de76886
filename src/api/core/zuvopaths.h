#pragma once

#include <QString>

#include "model/cmpath.h"

// Well-known model paths, keys and constants shared by the play logics, the
// streamer and the notification services. Each function returns the same
// fixed value on every call; any thread may call them. Paths marked relative
// are appended to a base path with CMPath::operator+ (they begin with "/").

// Base path of the player's play logic.
CMPath ZuvoPlayerPath();

// Relative paths of the values below a play logic's "/data" node (and below
// the streamer's data path): play time (ms), played bytes, buffer fill level,
// play mode and buffered bytes.
CMPath ZuvoPlayLogicPlayTimePath();
CMPath ZuvoPlayLogicPlayBytePath();
CMPath ZuvoPlayLogicBufferingLevelPath();
CMPath ZuvoPlayLogicPlayModePath();
CMPath ZuvoPlayLogicBufferBytesPath();

// Interval of a play logic's ping watchdog, in milliseconds.
int ZuvoPlayLogicPingTimeout();

// The player's playlist parse node.
CMPath ZuvoPlayerContentPlayLogicPlaylistPath();
// The player's default stream-buffering configuration (a value node).
CMPath ZuvoPlayerStreamBufferingConfigPath();

// Service identifier (ZuvoMetaData::serviceID) of the Airable radio service.
QString ZuvoService_AirableRadios_Id();

// The streamer service: its base path, and the relative paths of its command
// nodes and of its data value.
CMPath ZuvoStreamerDefaultPrefixPath();
CMPath ZuvoStreamerPlayPath();
CMPath ZuvoStreamerSetNextMediaPath();
CMPath ZuvoStreamerClearNextMediaPath();
CMPath ZuvoStreamerPausePath();
CMPath ZuvoStreamerResumePath();
CMPath ZuvoStreamerStopPath();
CMPath ZuvoStreamerSeekPath();
CMPath ZuvoStreamerSetAttributesPath();
CMPath ZuvoStreamerDataPath();

// Keys of the streamer's play attributes (ZuvoStreamerPlayArgs::attributes)
// and set-attributes arguments: start paused (bool), send buffer-level reports
// (bool), the buffering configuration.
QString ZuvoStreamerAttributesStartPaused();
QString ZuvoStreamerAttributesBufferLevelReportsEnabled();
QString ZuvoStreamerAttributesBufferingConfig();

// Name of the error that marks a crashed or restarted streamer.
QString ZuvoStreamerErrorCrashed();

// The notification player's enqueue and cancel nodes, and the node that opens
// an on-screen notice.
CMPath ZuvoNotificationPlayerEnqueuePath();
CMPath ZuvoNotificationPlayerCancelPath();
CMPath ZuvoNotificationDisplayOpenPath();
