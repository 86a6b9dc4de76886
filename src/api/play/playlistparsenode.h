#pragma once

#include <QAtomicInteger>
#include <QList>
#include <QMutex>
#include <QSet>
#include <QSharedPointer>
#include <QVariant>

#include "model/cmnode.h"
#include "playlistparser.h"

class PlayListData;

// A model node that parses playlists on request.
//
// A client sends a set-data request whose value is the hash of a ZuvoRoles;
// the playlist URL is the URI of its media data's active resource, or of its
// first resource when the active one has none. The node downloads the
// playlist, offers it to the format parsers in the order ASX, INI, M3U, PLS,
// WPL, URL, publishes the entries of the first parser that accepts it as a
// new child PlayListListNode at path() + "/<n>" (n counting from 0 per parse
// node) and answers the request with that child's encoded path.
//
// The reply completes exactly once, from the event loop, never inside
// setDataRequest() except for a request without URL:
// - value: the encoded path of the list node (also for an accepted playlist
//   without entries);
// - error "emptyUrl": the roles name no URL;
// - error "unknownFormat": no parser accepted the body, which includes every
//   HTTP failure (refused, 404, time-out, oversize, redirect loop);
// - error "PlayListParseNodeIsDeleted": this node was destroyed first.
//
// Thread: event-loop thread only. Ownership: the owner of the node chooses
// its path and registry; each list node is owned by the registry (and by
// nothing when this node is in none) and deletes itself after 10000 ms
// without use. Running downloads belong to this node.
class PlayListParseNode : public CMNode {
    Q_OBJECT
public:
    static constexpr int ListNodeUnusedIntervalMs = 10000;

    explicit PlayListParseNode(const CMPath& path);
    // Cancels every running download and fails its request with
    // "PlayListParseNodeIsDeleted".
    ~PlayListParseNode() override;
    Q_DISABLE_COPY(PlayListParseNode)

    // Starts a parse job; always returns true, the answer travels through the
    // request's reply (see the class comment).
    bool setDataRequest(const CMSetDataRequest& request) override;

    // Whether playlist URLs of the file: scheme are read (off by default, as
    // on a device: only http and https are fetched). A host that plays local
    // playlists turns it on. Applies to parse requests that arrive later.
    void setAllowLocalFiles(bool allow) { m_allowLocalFiles.storeRelaxed(allow); }
    bool allowLocalFiles() const { return m_allowLocalFiles.loadRelaxed(); }

    // The result of the first parser that accepts data; not ok with no rows
    // when none does. Parsers run one document at a time.
    PlayListParser::Result parse(const ZuvoRoles& roles, const PlayListData& data);

public Q_SLOTS:
    // Connected to each job's fetchDone(); the job is the sender.
    void on_plData_fetchDone();

private:
    QAtomicInteger<quint32> m_childCounter{0};
    QAtomicInteger<bool> m_allowLocalFiles{false};
    QMutex m_mutex; // guards m_parsers and m_requests
    QList<QSharedPointer<PlayListParser>> m_parsers;
    QSet<PlayListData*> m_requests; // owned: the jobs whose download runs
};

// A read-only list of parsed playlist rows, each the variant form of a
// ZuvoRoles, fixed at creation.
//
// Get-rows requests for its own path (parameters ignored) are answered at
// once: rowsCount is the number of rows, rows one value list per row from
// fromRow up to toRow clamped to the last row, holding for each requested
// role name, in order, the row's value under that key or an invalid QVariant
// when the row lacks it. An index below 0 reads as a row without any key.
// Requests for other paths go to CMNode.
//
// One answer holds at most the number of rows plus MaxRowsOutsideList
// entries: a request that would need more (fromRow far below 0, say INT_MIN)
// is refused at once with the error "rowRangeTooLarge" and a warning naming
// the range, rather than built entry by entry on the event-loop thread.
class PlayListListNode : public CMNode {
    Q_OBJECT
public:
    static constexpr int MaxRowsOutsideList = 1024;

    PlayListListNode(const CMPath& path, const QList<QVariant>& rows);
    Q_DISABLE_COPY(PlayListListNode)

    bool getRowsRequest(const CMGetRowsRequest& request) override;

    QList<QVariant> rows() const { return m_rows; }

private:
    const QList<QVariant> m_rows;
};
