#include "fetching.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>
#include <sys/resource.h>

#include "playlistparsenode.h"
#include "support/eventloop.h"
#include "timing.h"
#include "zuvo.h"

namespace zuvobench {

namespace {

constexpr int WaitMs = 120000;
const CMPath NodePath("/bench/playlistParser");

ZuvoRoles itemAt(const QString& url) {
    ZuvoResource resource;
    resource.setUri(url);
    ZuvoMediaData mediaData;
    mediaData.setResources(ZuvoList<ZuvoResource>{resource});
    ZuvoRoles roles;
    roles.setMediaData(mediaData);
    return roles;
}

} // namespace

FetchSubject::FetchSubject(const PlaylistDocument& document)
    : m_document(document)
    , m_file(QDir::temp().filePath(
          QStringLiteral("zuvo-bench-fetch-%1").arg(QCoreApplication::applicationPid()))) {
    const QString path = QStringLiteral("/list.") + document.fileSuffix;
    m_server.setResponse(path, 200, document.body, {{"Content-Type", document.contentType.toUtf8()}});
    m_url = m_server.url(path);
}

FetchSubject::~FetchSubject() {
    QFile::remove(m_file);
}

FetchSubject::Outcome FetchSubject::fetchAndParse() {
    return parseThroughNode(m_url, Clock::now());
}

FetchSubject::Outcome FetchSubject::parseThroughNode(const QString& url, Clock::time_point start) {
    Outcome outcome;
    CMRootScope scope;
    auto* const node = new PlayListParseNode(NodePath); // owned by the registry
    node->setNodes(scope.nodes());
    node->setAllowLocalFiles(true);
    CMReply<QVariant> reply;
    CMRoot()->invoke(NodePath, itemAt(url), reply);
    if (!zuvotest::waitUntil([&] { return reply.isFinished(); }, WaitMs) || reply.hasError())
        return outcome;
    outcome.seconds = seconds(Clock::now() - start);
    CMReply<ZuvoRowsRoles> rows;
    CMRoot()->getRows(CMPath::fromEncoded(reply.value().toString()), 0, 0, 0, {ZuvoRoles::MediaData()}, rows);
    if (rows.isFinished() && !rows.hasError())
        outcome.rows = rows.value().rowsCount();
    return outcome;
}

FetchSubject::Outcome FetchSubject::curlAndParse() {
    static const QString curl = QStandardPaths::findExecutable(QStringLiteral("curl"));
    if (curl.isEmpty())
        return Outcome();
    const Clock::time_point start = Clock::now();
    QProcess process;
    bool finished = false;
    QObject::connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished),
                     [&finished] { finished = true; });
    process.start(curl, {QStringLiteral("-s"), QStringLiteral("-o"), m_file, m_url});
    if (!zuvotest::waitUntil([&] { return finished; }, WaitMs) || process.exitCode() != 0)
        return Outcome();
    const double curlSeconds = seconds(Clock::now() - start);
    Outcome outcome = parseThroughNode(QUrl::fromLocalFile(m_file).toString(), start);
    outcome.curlSeconds = curlSeconds;
    return outcome;
}

std::size_t FetchSubject::childPeakResident() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return std::size_t(usage.ru_maxrss) * 1024;
}

} // namespace zuvobench
