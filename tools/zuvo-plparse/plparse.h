#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// The two roads by which zuvo-plparse hands a playlist to the library.

// One parsed entry as the tool prints it; absent fields are empty.
struct PlParseRow {
    QString title;
    QString uri;
    QString mimeType;
    QString artist;
};

// What a parse came to: every row in the library's order, or an error.
struct PlParseOutcome {
    bool ok = false;
    QList<PlParseRow> rows;
    QString errorName;
    QString errorMessage;
};

// The real road: a PlayListParseNode in the current model tree is asked to
// parse url (HTTP fetch, parsers in order) and every row is read back from
// the list node it answers with. Runs the event loop until the answer is in;
// the fetch's own time-out bounds the wait. Call on the main thread with a
// QCoreApplication.
PlParseOutcome parsePlaylistUrl(const QString& url);

// The local road: the file's first 5242880 bytes (the fetch's size cap)
// given to the same parsers in the same order, as if served from the file's
// file:// URL with contentType as its "Content-Type" header (null: none).
// Relative entries resolve against the file's directory.
PlParseOutcome parsePlaylistFile(const QString& path, const QString& contentType);
