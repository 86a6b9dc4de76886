#pragma once

#include <QMetaType>

#include "zuvoenums.h"
#include "zuvohash.h"
#include "zuvoplaylogic.h"
#include "zuvoroles.h"

// Arguments of a control invocation on a play logic's "/control" node. Every
// invocation's hash has a `control` field selecting the command; each
// command's record adds its own fields to it, so any of them can be read
// through ZuvoPlayLogicControlArgs to find out which command it is.
#define ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F) F(ZuvoPlayLogicControl::Enum, control, Control)
ZUVO_RECORD(ZuvoPlayLogicControlArgs, ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS)

// play: mediaRoles alone plays an item; type container plays trackRoles at
// index inside mediaRoles (version: the container's version). id names the
// request.
#define ZUVO_PLAY_LOGIC_PLAY_ARGS_FIELDS(F)                                                                  \
    ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F)                                                                   \
    F(ZuvoRoles, mediaRoles, MediaRoles)                                                                     \
    F(ZuvoRoles, trackRoles, TrackRoles)                                                                     \
    F(int, index, Index)                                                                                     \
    F(int, version, Version)                                                                                 \
    F(ZuvoPlayLogicPlayArgsType::Enum, type, Type)                                                           \
    F(bool, startPaused, StartPaused)                                                                        \
    F(ZuvoPlayLogicPlayId, id, Id)
ZUVO_RECORD(ZuvoPlayLogicPlayArgs, ZUVO_PLAY_LOGIC_PLAY_ARGS_FIELDS)

#define ZUVO_PLAY_LOGIC_STOP_ARGS_FIELDS(F)                                                                  \
    ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F)                                                                   \
    F(ZuvoPlayLogicStopReason::Enum, reason, Reason)
ZUVO_RECORD(ZuvoPlayLogicStopArgs, ZUVO_PLAY_LOGIC_STOP_ARGS_FIELDS)

#define ZUVO_PLAY_LOGIC_PREVIOUS_ARGS_FIELDS(F)                                                              \
    ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F)                                                                   \
    F(bool, forceSkipPrevious, ForceSkipPrevious)
ZUVO_RECORD(ZuvoPlayLogicPreviousArgs, ZUVO_PLAY_LOGIC_PREVIOUS_ARGS_FIELDS)

// seekTime: time is absolute (ms); timeRelative (ms from the current play
// time) takes precedence when present. seekBytes: bytes.
#define ZUVO_PLAY_LOGIC_SEEK_ARGS_FIELDS(F)                                                                  \
    ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F)                                                                   \
    F(qint64, time, Time)                                                                                    \
    F(qint64, timeRelative, TimeRelative)                                                                    \
    F(qint64, bytes, Bytes)
ZUVO_RECORD(ZuvoPlayLogicSeekArgs, ZUVO_PLAY_LOGIC_SEEK_ARGS_FIELDS)

#define ZUVO_PLAY_LOGIC_SET_CURRENT_TRACK_ARGS_FIELDS(F)                                                     \
    ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F)                                                                   \
    F(int, currentTrack, CurrentTrack)
ZUVO_RECORD(ZuvoPlayLogicSetCurrentTrackArgs, ZUVO_PLAY_LOGIC_SET_CURRENT_TRACK_ARGS_FIELDS)

#define ZUVO_PLAY_LOGIC_CHANGE_PLAY_MODE_ARGS_FIELDS(F)                                                      \
    ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F)                                                                   \
    F(ZuvoPlayerPlayMode::Enum, playMode, PlayMode)
ZUVO_RECORD(ZuvoPlayLogicChangePlayModeArgs, ZUVO_PLAY_LOGIC_CHANGE_PLAY_MODE_ARGS_FIELDS)

#define ZUVO_PLAY_LOGIC_PING_ARGS_FIELDS(F)                                                                  \
    ZUVO_PLAY_LOGIC_CONTROL_ARGS_FIELDS(F)                                                                   \
    ZUVO_PING_SEQUENCE_NUMBER_FIELD(F)
ZUVO_RECORD(ZuvoPlayLogicPingArgs, ZUVO_PLAY_LOGIC_PING_ARGS_FIELDS)

Q_DECLARE_METATYPE(ZuvoPlayLogicControlArgs)
Q_DECLARE_METATYPE(ZuvoPlayLogicPlayArgs)
Q_DECLARE_METATYPE(ZuvoPlayLogicStopArgs)
Q_DECLARE_METATYPE(ZuvoPlayLogicPreviousArgs)
Q_DECLARE_METATYPE(ZuvoPlayLogicSeekArgs)
Q_DECLARE_METATYPE(ZuvoPlayLogicSetCurrentTrackArgs)
Q_DECLARE_METATYPE(ZuvoPlayLogicChangePlayModeArgs)
Q_DECLARE_METATYPE(ZuvoPlayLogicPingArgs)
