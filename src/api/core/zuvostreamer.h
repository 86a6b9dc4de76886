#pragma once

#include <QMetaType>

#include "zuvoenums.h"
#include "zuvohash.h"
#include "zuvoplaylogic.h"
#include "zuvoroles.h"

// Records exchanged with the streamer service (see zuvopaths.h for its paths
// and attribute keys).

// What to play (or queue as next media) and the play attributes, a hash keyed
// by the ZuvoStreamerAttributes...() keys.
#define ZUVO_STREAMER_PLAY_ARGS_FIELDS(F)                                                                    \
    F(ZuvoRoles, roles, Roles)                                                                               \
    F(QVariant, attributes, Attributes)
ZUVO_RECORD(ZuvoStreamerPlayArgs, ZUVO_STREAMER_PLAY_ARGS_FIELDS)

// Target of a seek: exactly one of the two fields is set.
#define ZUVO_STREAMER_SEEK_POSITION_FIELDS(F)                                                                \
    F(qint64, bytes, Bytes)                                                                                  \
    F(qint64, timeMs, TimeMs)
ZUVO_RECORD(ZuvoStreamerSeekPosition, ZUVO_STREAMER_SEEK_POSITION_FIELDS)

// Attributes to change on a playback; playbackId -1 addresses every playback.
#define ZUVO_STREAMER_SET_ATTRIBUTES_ARGS_FIELDS(F)                                                          \
    F(int, playbackId, PlaybackId)                                                                           \
    F(QVariant, attributes, Attributes)
ZUVO_RECORD(ZuvoStreamerSetAttributesArgs, ZUVO_STREAMER_SET_ATTRIBUTES_ARGS_FIELDS)

// The streamer's published state: its playback state (stopped is 0), the
// playback the data belongs to, the error of the last failure (an empty record
// when none), the current and the queued next track, the current track's
// status and whether it is about to end (time to queue the next media).
#define ZUVO_STREAMER_DATA_FIELDS(F)                                                                         \
    F(ZuvoPlayLogicState::Enum, state, State)                                                                \
    F(int, playbackId, PlaybackId)                                                                           \
    F(ZuvoError, error, Error)                                                                               \
    F(ZuvoRoles, trackRoles, TrackRoles)                                                                     \
    F(ZuvoRoles, nextTrackRoles, NextTrackRoles)                                                             \
    F(ZuvoPlayLogicStatus, status, Status)                                                                   \
    F(bool, trackNearEnd, TrackNearEnd)
ZUVO_RECORD(ZuvoStreamerData, ZUVO_STREAMER_DATA_FIELDS)

Q_DECLARE_METATYPE(ZuvoStreamerPlayArgs)
Q_DECLARE_METATYPE(ZuvoStreamerSeekPosition)
Q_DECLARE_METATYPE(ZuvoStreamerSetAttributesArgs)
Q_DECLARE_METATYPE(ZuvoStreamerData)
