#pragma once

#include <QString>

// Version of libzuvo_api_play as "major.minor.patch".
QString zuvoPlayVersion();
