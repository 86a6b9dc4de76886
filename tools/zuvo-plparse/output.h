#pragma once

#include <QByteArray>

#include "plparse.h"

// The two output forms of zuvo-plparse.

// One JSON object and a newline: {"ok": true, "rows": [{"title", "uri",
// "mimeType", "artist"}, ...]} with every row in order, or {"ok": false,
// "error": {"name", "message"}}.
QByteArray plParseJson(const PlParseOutcome& outcome);

// A readable table of the rows with a count line, in UTF-8; for a failure
// the line "error: <name>: <message>".
QByteArray plParseTable(const PlParseOutcome& outcome);
