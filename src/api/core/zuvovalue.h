#pragma once

#include "zuvohash.h"

// The value held by a value node of the model tree. A scalar travels under
// its own key ("i64_", "double_", ...); a record value is the record's hash
// itself, so ZuvoValue(record.__hash()) and SomeRecord(value.__hash())
// convert between the two.
#define ZUVO_VALUE_FIELDS(F)                                                                                 \
    F(qint64, i64_, I64_)                                                                                    \
    F(double, double_, Double_)                                                                              \
    F(bool, bool_, Bool_)                                                                                    \
    F(QString, string_, String_)                                                                             \
    F(QVariant, variant, Variant)
ZUVO_RECORD(ZuvoValue, ZUVO_VALUE_FIELDS)

Q_DECLARE_METATYPE(ZuvoValue)
