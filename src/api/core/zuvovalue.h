#pragma once

#include "zuvoenums.h"
#include "zuvohash.h"
#include "zuvonotification.h"

// The value held by a value node of the model tree. A scalar travels under
// its own key ("i64_", "double_", ...); a record value is the record's hash
// itself, so ZuvoValue(record.__hash()) and SomeRecord(value.__hash())
// convert between the two. Requests to the notification player carry their
// record nested under its own key (notificationPlayerItem,
// notificationPlayerResponse).
#define ZUVO_VALUE_FIELDS(F)                                                                                 \
    F(qint64, i64_, I64_)                                                                                    \
    F(double, double_, Double_)                                                                              \
    F(bool, bool_, Bool_)                                                                                    \
    F(QString, string_, String_)                                                                             \
    F(QVariant, variant, Variant)                                                                            \
    F(ZuvoPlayerPlayMode::Enum, playerPlayMode, PlayerPlayMode)                                              \
    F(ZuvoNotificationPlayerItem, notificationPlayerItem, NotificationPlayerItem)                            \
    F(ZuvoNotificationPlayerResponse, notificationPlayerResponse, NotificationPlayerResponse)
ZUVO_RECORD(ZuvoValue, ZUVO_VALUE_FIELDS)

Q_DECLARE_METATYPE(ZuvoValue)
