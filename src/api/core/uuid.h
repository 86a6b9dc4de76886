#pragma once

#include <QString>

// A fresh random (version 4) UUID in its 36-character text form, lower case,
// without braces: "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx". Callable from any
// thread.
QString zuvoGenerateUuid();
