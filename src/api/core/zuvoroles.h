#pragma once

#include <QMetaType>

#include "model/cmpath.h"
#include "zuvoenums.h"
#include "zuvohash.h"

// Browsable items and what is needed to play them.
//
// ZuvoRoles holds ZuvoMediaData, which holds ZuvoMetaData, which holds a list
// of ZuvoRoles: ZuvoRoles is therefore declared first with its accessors
// defined at the end of this file, once the records it returns are complete.

// One way to fetch an item's audio. Times are in milliseconds.
#define ZUVO_RESOURCE_FIELDS(F)                                                                              \
    F(QString, uri, Uri)                                                                                     \
    F(QString, uid, Uid)                                                                                     \
    F(QVariant, data, Data)                                                                                  \
    F(QString, mimeType, MimeType)                                                                           \
    F(qint64, duration, Duration)       /* -1: unknown */                                                    \
    F(qint64, maxIdleTime, MaxIdleTime) /* a pause this long needs a fresh resource */                       \
    F(qint64, validUntil, ValidUntil)   /* ms since the epoch; fetched again once passed */
ZUVO_RECORD(ZuvoResource, ZUVO_RESOURCE_FIELDS)

// A browsable item or container. activate and prePlay are also the role
// names of set-data requests: Activate() for invocations, PrePlay() for
// asking an item's pre-play node for a fresh resource.
#define ZUVO_ROLES_FIELDS(F)                                                                                 \
    F(QString, path, Path)                                                                                   \
    F(QString, title, Title)                                                                                 \
    F(QString, query, Query)                                                                                 \
    F(QVariant, activate, Activate)                                                                          \
    F(ZuvoMediaData, mediaData, MediaData)                                                                   \
    F(QVariant, prePlay, PrePlay)                                                                            \
    F(ZuvoRolesType::Enum, type, Type)                                                                       \
    F(ZuvoAudioType::Enum, audioType, AudioType)
class ZuvoMediaData;
ZUVO_RECORD_DECLARE(ZuvoRoles, ZUVO_ROLES_FIELDS)

// Descriptive data of an item and the service paths that look after it:
// prePlayPath fetches a fresh resource before playing (starting
// prePlayTimeOffset ms into the media), playbackStateChangePath and
// contentStateChangePath receive the play logic's reports.
#define ZUVO_META_DATA_FIELDS(F)                                                                             \
    F(QString, serviceID, ServiceID)                                                                         \
    F(bool, live, Live)                                                                                      \
    F(ZuvoList<ZuvoRoles>, matchingMediaRoles, MatchingMediaRoles)                                           \
    F(CMPath, prePlayPath, PrePlayPath)                                                                      \
    F(CMPath, playbackStateChangePath, PlaybackStateChangePath)                                              \
    F(CMPath, contentStateChangePath, ContentStateChangePath)                                                \
    F(qint64, prePlayTimeOffset, PrePlayTimeOffset)                                                          \
    F(QString, artist, Artist)
ZUVO_RECORD(ZuvoMetaData, ZUVO_META_DATA_FIELDS)

// The playable side of an item: its meta data, the resources it can be played
// from and the one in use.
#define ZUVO_MEDIA_DATA_FIELDS(F)                                                                            \
    F(ZuvoMetaData, metaData, MetaData)                                                                      \
    F(ZuvoList<ZuvoResource>, resources, Resources)                                                          \
    F(ZuvoResource, activeResource, ActiveResource)
ZUVO_RECORD(ZuvoMediaData, ZUVO_MEDIA_DATA_FIELDS)

#define ZUVO_RECORD_SELF ZuvoRoles
ZUVO_RECORD_DEFINE(ZuvoRoles, ZUVO_ROLES_FIELDS)
#undef ZUVO_RECORD_SELF

Q_DECLARE_METATYPE(ZuvoResource)
Q_DECLARE_METATYPE(ZuvoRoles)
Q_DECLARE_METATYPE(ZuvoMetaData)
Q_DECLARE_METATYPE(ZuvoMediaData)
