#pragma once

#include <QMetaType>

#include "zuvohash.h"

// Which controls an item allows. The same keys are used in an item's meta
// data (ZuvoMetaDataControl) and in the `controls` field of the published
// play-logic data (ZuvoPlayLogicControls): a play logic looks a control up in
// its published controls by the ZuvoMetaDataControl key, so both records
// take their flags from this one list.
#define ZUVO_CONTROL_FLAG_FIELDS(F)                                                                          \
    F(bool, pause, Pause)                                                                                    \
    F(bool, next_, Next_)                                                                                    \
    F(bool, previous, Previous)                                                                              \
    F(bool, like, Like)                                                                                      \
    F(bool, dislike, Dislike)                                                                                \
    F(bool, seekTime, SeekTime)                                                                              \
    F(bool, seekBytes, SeekBytes)                                                                            \
    F(bool, seekTrack, SeekTrack)
ZUVO_RECORD(ZuvoMetaDataControl, ZUVO_CONTROL_FLAG_FIELDS)

// Play modes a play logic supports besides normal play (always supported).
// An empty record supports none.
#define ZUVO_PLAY_LOGIC_PLAY_MODES_SUPPORTED_FIELDS(F)                                                       \
    F(bool, shuffle, Shuffle)                                                                                \
    F(bool, repeatOne, RepeatOne)                                                                            \
    F(bool, repeatAll, RepeatAll)                                                                            \
    F(bool, shuffleRepeatOne, ShuffleRepeatOne)                                                              \
    F(bool, shuffleRepeatAll, ShuffleRepeatAll)
ZUVO_RECORD(ZuvoPlayLogicPlayModesSupported, ZUVO_PLAY_LOGIC_PLAY_MODES_SUPPORTED_FIELDS)

#define ZUVO_PLAY_LOGIC_CONTROLS_FIELDS(F)                                                                   \
    ZUVO_CONTROL_FLAG_FIELDS(F)                                                                              \
    F(ZuvoPlayLogicPlayModesSupported, playMode, PlayMode)
ZUVO_RECORD(ZuvoPlayLogicControls, ZUVO_PLAY_LOGIC_CONTROLS_FIELDS)

Q_DECLARE_METATYPE(ZuvoMetaDataControl)
Q_DECLARE_METATYPE(ZuvoPlayLogicPlayModesSupported)
Q_DECLARE_METATYPE(ZuvoPlayLogicControls)
