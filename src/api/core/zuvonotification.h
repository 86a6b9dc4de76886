#pragma once

#include <QMetaType>

#include "model/cmpath.h"
#include "zuvohash.h"

// Records of the notification services: short sounds played by the
// notification player, and on-screen notices.

#define ZUVO_NOTIFICATION_PLAYER_ITEM_TYPE_VALUES(V)                                                         \
    V(file, 0)                                                                                               \
    V(url, 1)
ZUVO_ENUM(ZuvoNotificationPlayerItemType, ZUVO_NOTIFICATION_PLAYER_ITEM_TYPE_VALUES)

#define ZUVO_NOTIFICATION_ITEM_PRIORITY_VALUES(V)                                                            \
    V(low, 0)                                                                                                \
    V(normal, 1)                                                                                             \
    V(high, 2)
ZUVO_ENUM(ZuvoNotificationItemPriority, ZUVO_NOTIFICATION_ITEM_PRIORITY_VALUES)

// Playback states the notification player reports for an item: finished (played
// to the end), cancelled and error end it.
#define ZUVO_NOTIFICATION_PLAYER_RESPONSE_TYPE_VALUES(V)                                                     \
    V(queued, 0)                                                                                             \
    V(started, 1)                                                                                            \
    V(finished, 2)                                                                                           \
    V(cancelled, 3)                                                                                          \
    V(error, 4)
ZUVO_ENUM(ZuvoNotificationPlayerResponseType, ZUVO_NOTIFICATION_PLAYER_RESPONSE_TYPE_VALUES)

// A sound to play: content is a file path or a URL (see type); the player
// reports the item's playback states, tagged with id, to playbackResponsePath.
#define ZUVO_NOTIFICATION_PLAYER_ITEM_FIELDS(F)                                                              \
    F(QString, id, Id)                                                                                       \
    F(QString, content, Content)                                                                             \
    F(ZuvoNotificationPlayerItemType::Enum, type, Type)                                                      \
    F(ZuvoNotificationItemPriority::Enum, priority, Priority)                                                \
    F(CMPath, playbackResponsePath, PlaybackResponsePath)
ZUVO_RECORD(ZuvoNotificationPlayerItem, ZUVO_NOTIFICATION_PLAYER_ITEM_FIELDS)

// One playback state of the item id; errorReason explains an error state.
#define ZUVO_NOTIFICATION_PLAYER_RESPONSE_FIELDS(F)                                                          \
    F(QString, id, Id)                                                                                       \
    F(ZuvoNotificationPlayerResponseType::Enum, type, Type)                                                  \
    F(QString, errorReason, ErrorReason)
ZUVO_RECORD(ZuvoNotificationPlayerResponse, ZUVO_NOTIFICATION_PLAYER_RESPONSE_FIELDS)

// An on-screen notice, shown for timeout ms.
#define ZUVO_NOTIFICATION_DISPLAY_ITEM_FIELDS(F)                                                             \
    F(QString, title, Title)                                                                                 \
    F(QString, message, Message)                                                                             \
    F(int, timeout, Timeout)
ZUVO_RECORD(ZuvoNotificationDisplayItem, ZUVO_NOTIFICATION_DISPLAY_ITEM_FIELDS)

Q_DECLARE_METATYPE(ZuvoNotificationPlayerItemType::Enum)
Q_DECLARE_METATYPE(ZuvoNotificationItemPriority::Enum)
Q_DECLARE_METATYPE(ZuvoNotificationPlayerResponseType::Enum)
Q_DECLARE_METATYPE(ZuvoNotificationPlayerItem)
Q_DECLARE_METATYPE(ZuvoNotificationPlayerResponse)
Q_DECLARE_METATYPE(ZuvoNotificationDisplayItem)
