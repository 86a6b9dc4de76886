#pragma once

#include <QList>
#include <QVariant>

#include "zuvo.h"

class PlayListData;

// Interface of the playlist format parsers: turns a fetched playlist document
// into one row per entry, each row the variant form of a ZuvoRoles that holds
// the entry's title and a single resource (URI and MIME type).
//
// Each parser decides by itself, from the document's first line or first XML
// token, whether the document is in its format; nothing is decided by file
// extension. Any byte sequence is accepted as input: a parser never fails
// other than by answering "not my format", and its time and memory stay
// bounded: a document gives at most MaxRows rows (a row costs a few hundred
// bytes whatever the entry's size, so a few bytes per entry would otherwise
// let a 5 MiB document fill gigabytes); the entries past the limit are
// dropped with one warning.
//
// Thread: a parser instance keeps the request roles of the current call, so
// one instance must not parse two documents at once; callers serialise.
class PlayListParser {
public:
    struct Result {
        // The document is in this parser's format: true as soon as the
        // format's header test passed, also when no entry follows or the
        // document turns out malformed later.
        bool ok = false;
        // The entries as ZuvoRoles variants; empty when ok is false.
        QList<QVariant> rows;
    };

    static constexpr int MaxRows = 10000;

    PlayListParser() = default;
    virtual ~PlayListParser();
    Q_DISABLE_COPY(PlayListParser)

    // Keeps roles (the roles of the item whose resource is the playlist) for
    // this call, then parses data.
    Result parse(const ZuvoRoles& roles, const PlayListData& data);
    virtual Result parse(const PlayListData& data) = 0;

protected:
    // roles as a playable entry (type audio) whose media data holds a copy of
    // metaData, with the service id of the request roles, and resource as its
    // only resource.
    ZuvoRoles createMediaRow(ZuvoRoles roles, const ZuvoMetaData& metaData,
                             const ZuvoResource& resource) const;
    // The resource of an entry at uri, its MIME type guessed from the URI
    // (unknown audio when the URI does not tell).
    static ZuvoResource entryResource(const QString& uri);
    // createMediaRow(roles, metaData, entryResource(uri)) as a row variant.
    QVariant createMediaRowVariant(const ZuvoRoles& roles, const ZuvoMetaData& metaData,
                                   const QString& uri) const;
    // Whether a document that already gave rowCount rows must stop before its
    // next entry (rowCount reached MaxRows); logs the warning when it must.
    static bool rowLimitReached(int rowCount);

private:
    ZuvoRoles m_requestRoles;
};
