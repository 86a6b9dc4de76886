#include "playlistparsenode.h"

#include "zuvoassert.h"

#include <QMutexLocker>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "dbglog.h"
#include "logging.h"
#include "model/cmunusednodetimer.h"
#include "playlistdata.h"
#include "playlistparsers.h"

static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("PlayListParser"));

namespace {

// The playlist URL of an item: its active resource's URI, else its first
// resource's.
QString playlistUrl(const ZuvoRoles& roles) {
    const ZuvoMediaData mediaData = roles.mediaData();
    QString url;
    const ZuvoResource active = mediaData.activeResource();
    if (!active.isEmpty())
        url = active.uri();
    if (url.isEmpty())
        url = mediaData.resources().value(0).uri();
    return url;
}

} // namespace

PlayListParseNode::PlayListParseNode(const CMPath& path)
    : CMNode(path) {
    // The order of trial: the XML and header-tagged formats first, the
    // catch-all URL list last.
    m_parsers = {QSharedPointer<PlayListParser>(new PlayListParserASX),
                 QSharedPointer<PlayListParser>(new PlayListParserINI),
                 QSharedPointer<PlayListParser>(new PlayListParserM3U),
                 QSharedPointer<PlayListParser>(new PlayListParserPLS),
                 QSharedPointer<PlayListParser>(new PlayListParserWPL),
                 QSharedPointer<PlayListParser>(new PlayListParserURL)};
}

PlayListParseNode::~PlayListParseNode() {
    QSet<PlayListData*> jobs;
    {
        QMutexLocker locker(&m_mutex);
        jobs.swap(m_requests);
    }
    // Outside the lock: a reply's watcher may call back into the tree.
    for (PlayListData* job : qAsConst(jobs)) {
        job->cancelFetch();
        job->request().reply().setError(CMError(QStringLiteral("PlayListParseNodeIsDeleted"),
                                                ZUVO_TR("PlayListParseNode is being destroyed")));
        delete job;
    }
}

bool PlayListParseNode::setDataRequest(const CMSetDataRequest& request) {
    dbglog_scopedFunction(logger);
    const QString url = playlistUrl(ZuvoRoles(request.data().toHash()));
    if (url.isEmpty()) {
        LOG4CPLUS_ERROR(logger, "URL is empty in request!");
        request.reply().setError(CMError(QStringLiteral("emptyUrl"), ZUVO_TR("URL is empty in request!")));
        return true;
    }

    LOG4CPLUS_INFO(logger, "Parsing playlist at uri: " << url);
    auto* job = new PlayListData(url, request); // owned through m_requests
    job->setAllowLocalFiles(allowLocalFiles());
    {
        QMutexLocker locker(&m_mutex);
        m_requests.insert(job);
    }
    const bool connected = static_cast<bool>(
        connect(job, &PlayListData::fetchDone, this, &PlayListParseNode::on_plData_fetchDone));
    Q_ASSERT(connected);
    Q_UNUSED(connected)
    job->fetch();
    return true;
}

PlayListParser::Result PlayListParseNode::parse(const ZuvoRoles& roles, const PlayListData& data) {
    QMutexLocker locker(&m_mutex);
    const QList<QSharedPointer<PlayListParser>> parsers = m_parsers;
    for (const QSharedPointer<PlayListParser>& parser : parsers) {
        PlayListParser::Result result = parser->parse(roles, data);
        if (result.ok)
            return result;
    }
    return PlayListParser::Result();
}

void PlayListParseNode::on_plData_fetchDone() {
    dbglog_scopedFunction(logger);
    auto* plData = qobject_cast<PlayListData*>(sender());
    if (!plData)
        return;
    LOG4CPLUS_TRACE(logger, plData->url());
    {
        QMutexLocker locker(&m_mutex);
        zuvoAssert(m_requests.contains(plData), "PlayListParseNode", "m_requests.contains(plData)");
        if (!m_requests.remove(plData))
            return; // not a job of this node
    }

    const CMSetDataRequest request = plData->request();
    const PlayListParser::Result result = parse(ZuvoRoles(request.data().toHash()), *plData);
    plData->deleteLater();

    // Completing the reply is the last thing done: a watcher may delete this node.
    if (!result.ok) {
        LOG4CPLUS_ERROR(logger, "Unknown format found.");
        request.reply().setError(
            CMError(QStringLiteral("unknownFormat"), ZUVO_TR("Unknown playlist format detected.")));
        return;
    }
    LOG4CPLUS_TRACE(logger, "rows: " << QVariant(result.rows));
    const CMPath childPath =
        path() + (QStringLiteral("/") + QString::number(m_childCounter.fetchAndAddRelaxed(1)));
    auto* listNode = new PlayListListNode(childPath, result.rows); // owned by the registry
    listNode->setNodes(nodes());
    new CMUnusedNodeTimer(listNode, ListNodeUnusedIntervalMs); // child of listNode
    request.reply().setValue(QVariant(childPath.toEncoded()));
}

PlayListListNode::PlayListListNode(const CMPath& path, const QList<QVariant>& rows)
    : CMNode(path)
    , m_rows(rows) {}

bool PlayListListNode::getRowsRequest(const CMGetRowsRequest& request) {
    dbglog_scopedFunction(logger);
    if (!request.path().equals(path(), CMPath::CompareWithoutParams))
        return CMNode::getRowsRequest(request);
    LOG4CPLUS_TRACE(logger, "fromRow=" << request.fromRow() << " toRow=" << request.toRow());

    const int toRow = qMin(request.toRow(), m_rows.size() - 1);
    // Indices outside the list cost an entry each: bound them before building.
    const qint64 entries = qint64(toRow) - request.fromRow() + 1;
    if (entries > qint64(m_rows.size()) + MaxRowsOutsideList) {
        LOG4CPLUS_WARN(logger, "Refusing rows " << request.fromRow() << ".." << request.toRow() << " of "
                                                << path().toEncoded() << ": " << entries << " entries for "
                                                << m_rows.size() << " rows");
        request.reply().setError(
            CMError(QStringLiteral("rowRangeTooLarge"), ZUVO_TR("Requested row range is too large.")));
        return true;
    }
    const QStringList roles = request.roles();
    QVariantList rows;
    for (qint64 index = request.fromRow(); index <= toRow; ++index) {
        const QVariantHash row = m_rows.value(int(index)).toHash();
        QVariantList values;
        values.reserve(roles.size());
        for (const QString& role : roles)
            values.append(row.value(role));
        rows.append(QVariant(values));
    }

    ZuvoRowsRoles answer;
    answer.setRows(rows);
    answer.setRowsCount(m_rows.size());
    request.reply().setValue(answer);
    return true;
}
