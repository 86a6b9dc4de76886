#pragma once

#include <QMetaType>

#include "zuvohash.h"

// Enumerations of the play-logic records. The numeric values travel in
// records and value nodes (as int) and are fixed; the names are what
// toString() writes into log lines.

// Playback state of a play logic or of the streamer. Only stopped (0) means
// "not active"; every other value counts as active.
#define ZUVO_PLAY_LOGIC_STATE_VALUES(V)                                                                      \
    V(stopped, 0)                                                                                            \
    V(loading, 1)                                                                                            \
    V(playing, 2)                                                                                            \
    V(paused, 3)
ZUVO_ENUM(ZuvoPlayLogicState, ZUVO_PLAY_LOGIC_STATE_VALUES)

// Command selected by the `control` field of a control invocation.
#define ZUVO_PLAY_LOGIC_CONTROL_VALUES(V)                                                                    \
    V(play, 0)                                                                                               \
    V(pause, 1)                                                                                              \
    V(stop, 2)                                                                                               \
    V(next, 3)                                                                                               \
    V(previous, 4)                                                                                           \
    V(like, 5)                                                                                               \
    V(dislike, 6)                                                                                            \
    V(seekTime, 7)                                                                                           \
    V(seekBytes, 8)                                                                                          \
    V(setCurrentTrack, 9)                                                                                    \
    V(changePlayMode, 10)                                                                                    \
    V(ping, 11)
ZUVO_ENUM(ZuvoPlayLogicControl, ZUVO_PLAY_LOGIC_CONTROL_VALUES)

// Why a stop was requested. The library itself sends none on a ping time-out
// and newPlayRequest when it stops playback to make room for a delayed play.
#define ZUVO_PLAY_LOGIC_STOP_REASON_VALUES(V)                                                                \
    V(none, 0)                                                                                               \
    V(user, 1)                                                                                               \
    V(endOfQueue, 2)                                                                                         \
    V(error, 3)                                                                                              \
    V(newPlayRequest, 4)
ZUVO_ENUM(ZuvoPlayLogicStopReason, ZUVO_PLAY_LOGIC_STOP_REASON_VALUES)

// What a play request names: a single item, or an item inside a container.
#define ZUVO_PLAY_LOGIC_PLAY_ARGS_TYPE_VALUES(V)                                                             \
    V(single, 0)                                                                                             \
    V(container, 1)
ZUVO_ENUM(ZuvoPlayLogicPlayArgsType, ZUVO_PLAY_LOGIC_PLAY_ARGS_TYPE_VALUES)

#define ZUVO_PLAYER_PLAY_MODE_VALUES(V)                                                                      \
    V(normal, 0)                                                                                             \
    V(shuffle, 1)                                                                                            \
    V(repeatOne, 2)                                                                                          \
    V(shuffleRepeatOne, 3)                                                                                   \
    V(repeatAll, 4)                                                                                          \
    V(shuffleRepeatAll, 5)
ZUVO_ENUM(ZuvoPlayerPlayMode, ZUVO_PLAYER_PLAY_MODE_VALUES)

// Kind of a browsable entry; audio (3) is a playable item.
#define ZUVO_ROLES_TYPE_VALUES(V)                                                                            \
    V(none, 0)                                                                                               \
    V(container, 1)                                                                                          \
    V(query, 2)                                                                                              \
    V(audio, 3)
ZUVO_ENUM(ZuvoRolesType, ZUVO_ROLES_TYPE_VALUES)

// Kind of audio an item carries. A clip is short and is never replaced by
// another resource or an alternate when it fails.
#define ZUVO_AUDIO_TYPE_VALUES(V)                                                                            \
    V(unknown, 0)                                                                                            \
    V(stream, 1)                                                                                             \
    V(clip, 2)
ZUVO_ENUM(ZuvoAudioType, ZUVO_AUDIO_TYPE_VALUES)

Q_DECLARE_METATYPE(ZuvoPlayLogicState::Enum)
Q_DECLARE_METATYPE(ZuvoPlayLogicControl::Enum)
Q_DECLARE_METATYPE(ZuvoPlayLogicStopReason::Enum)
Q_DECLARE_METATYPE(ZuvoPlayLogicPlayArgsType::Enum)
Q_DECLARE_METATYPE(ZuvoPlayerPlayMode::Enum)
Q_DECLARE_METATYPE(ZuvoRolesType::Enum)
Q_DECLARE_METATYPE(ZuvoAudioType::Enum)
