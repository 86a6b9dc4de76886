#pragma once

#include "zuvohash.h"

// Answer of a get-rows request: rows is a QVariantList with one entry per row
// (each a QVariantList of the requested roles' values, in request order);
// rowsCount is the total number of rows the node holds.
#define ZUVO_ROWS_ROLES_FIELDS(F)                                                                            \
    F(QVariant, rows, Rows)                                                                                  \
    F(int, rowsCount, RowsCount)
ZUVO_RECORD(ZuvoRowsRoles, ZUVO_ROWS_ROLES_FIELDS)

Q_DECLARE_METATYPE(ZuvoRowsRoles)
