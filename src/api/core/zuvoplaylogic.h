#pragma once

#include <QMetaType>
#include <QString>

#include "zuvocontrols.h"
#include "zuvoenums.h"
#include "zuvohash.h"
#include "zuvoroles.h"

// The published state of a play logic (the value of its "/data" node) and the
// records it is made of.

// Identifier of one play request.
using ZuvoPlayLogicPlayId = QString;

// An error as reported by a service (the streamer): a name that identifies
// the kind of failure, a service-specific code and a message for people.
#define ZUVO_ERROR_FIELDS(F)                                                                                 \
    F(QString, name, Name)                                                                                   \
    F(int, code, Code)                                                                                       \
    F(QString, message, Message)
ZUVO_RECORD(ZuvoError, ZUVO_ERROR_FIELDS)

// Length of the current track (ms) and whether it can be sought by time or by
// byte position.
#define ZUVO_PLAY_LOGIC_STATUS_FIELDS(F)                                                                     \
    F(qint64, duration, Duration)                                                                            \
    F(bool, timeSeek, TimeSeek)                                                                              \
    F(bool, byteSeek, ByteSeek)
ZUVO_RECORD(ZuvoPlayLogicStatus, ZUVO_PLAY_LOGIC_STATUS_FIELDS)

// Shared with the ping arguments: a ping carries the number that the play
// logic then publishes under the same key.
#define ZUVO_PING_SEQUENCE_NUMBER_FIELD(F) F(int, pingSequenceNumber, PingSequenceNumber)

// state: stopped (0) or active. trackRoles: the item playing; mediaRoles: the
// container it was started from; matchingMediaRoles: further containers the
// item matches. streamId: the streamer's playback id of the current track.
// error: name of the last failure; streamerError: the streamer's own error
// record. keepActive: the play logic counts as active although stopped (stop
// and pause are still accepted, the ping sequence is kept on stop).
#define ZUVO_PLAY_LOGIC_DATA_FIELDS(F)                                                                       \
    F(ZuvoPlayLogicState::Enum, state, State)                                                                \
    F(ZuvoPlayLogicStatus, status, Status)                                                                   \
    F(ZuvoRoles, trackRoles, TrackRoles)                                                                     \
    F(ZuvoRoles, mediaRoles, MediaRoles)                                                                     \
    F(ZuvoList<ZuvoRoles>, matchingMediaRoles, MatchingMediaRoles)                                           \
    F(ZuvoPlayLogicPlayId, playId, PlayId)                                                                   \
    F(int, streamId, StreamId)                                                                               \
    F(QString, error, Error)                                                                                 \
    F(ZuvoError, streamerError, StreamerError)                                                               \
    F(bool, keepActive, KeepActive)                                                                          \
    ZUVO_PING_SEQUENCE_NUMBER_FIELD(F)                                                                       \
    F(ZuvoPlayLogicControls, controls, Controls)
ZUVO_RECORD(ZuvoPlayLogicData, ZUVO_PLAY_LOGIC_DATA_FIELDS)

Q_DECLARE_METATYPE(ZuvoError)
Q_DECLARE_METATYPE(ZuvoPlayLogicStatus)
Q_DECLARE_METATYPE(ZuvoPlayLogicData)
