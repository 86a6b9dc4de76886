#pragma once

// Registers every record and enumeration of zuvo.h with Qt's meta-type system
// by name, and ZuvoPlayLogicPlayId as an alias of QString. Needed before a
// record travels through a queued connection or QMetaObject::invokeMethod that
// names its type as text; QVariant::fromValue needs no registration.
// Idempotent and thread-safe; the host calls it once at start-up.
void zuvoRegisterMetaTypes();
