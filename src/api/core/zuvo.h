#pragma once

// Everything the play library needs from the host framework's records: the
// record machinery, every record and enumeration, the well-known paths and
// keys, and the play-logic error names.

#include "zuvocontrolargs.h"
#include "zuvocontrols.h"
#include "zuvoenums.h"
#include "zuvoerrornames.h"
#include "zuvohash.h"
#include "zuvometatypes.h"
#include "zuvonotification.h"
#include "zuvopaths.h"
#include "zuvoplaylogic.h"
#include "zuvoroles.h"
#include "zuvorowsroles.h"
#include "zuvostreamer.h"
#include "zuvovalue.h"
