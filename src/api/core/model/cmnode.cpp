#include "cmnode.h"

#include "cmnodes.h"

CMNode::CMNode(const CMPath& path, QObject* parent)
    : QObject(parent)
    , m_path(path) {}

CMNode::~CMNode() {
    if (m_nodes)
        m_nodes->remove(this);
}

CMNodes* CMNode::nodes() const {
    return m_nodes.data();
}

void CMNode::setNodes(CMNodes* nodes) {
    if (m_nodes == nodes)
        return;
    if (m_nodes)
        m_nodes->remove(this);
    m_nodes = nodes;
    if (nodes)
        nodes->insert(this);
}

void CMNode::deleteLater() {
    setNodes(nullptr);
    QObject::deleteLater();
}

QMutex* CMNode::mutex() const {
    return &m_mutex;
}

bool CMNode::request(CMRequest request) {
    switch (request.type()) {
    case CMRequest::GetData:
        return getDataRequest(CMGetDataRequest(request));
    case CMRequest::GetRows:
        return getRowsRequest(CMGetRowsRequest(request));
    case CMRequest::MatchRow:
        return matchRowRequest(CMMatchRowRequest(request));
    case CMRequest::SetData:
        return setDataRequest(CMSetDataRequest(request));
    }
    refuse(request, "request");
    return false;
}

void CMNode::refuse(const CMRequest& request, const char* what) {
    request.voidReply().setError(CMError(QStringLiteral("NotSupported"),
                                         TrString(QStringLiteral("Node %1 does not support %2")
                                                      .arg(m_path.toEncoded(), QString::fromLatin1(what)))));
}

bool CMNode::getDataRequest(const CMGetDataRequest& request) {
    refuse(request, "get-data requests");
    return false;
}

bool CMNode::getRowsRequest(const CMGetRowsRequest& request) {
    refuse(request, "get-rows requests");
    return false;
}

bool CMNode::matchRowRequest(const CMMatchRowRequest& request) {
    refuse(request, "match-row requests");
    return false;
}

bool CMNode::setDataRequest(const CMSetDataRequest& request) {
    refuse(request, "set-data requests");
    return false;
}

void CMNode::valuePathAdd(const CMPath&) {}
void CMNode::valuePathRemove(const CMPath&) {}
void CMNode::dataPathAdd(const CMPath&) {}
void CMNode::dataPathRemove(const CMPath&) {}
void CMNode::rowsPathAdd(const CMPath&) {}
void CMNode::rowsPathRemove(const CMPath&) {}

void CMNode::watchAdded(const CMPath& path) {
    ++m_watchers;
    valuePathAdd(path);
    Q_EMIT watchersChanged(m_watchers);
}

void CMNode::watchRemoved(const CMPath& path) {
    if (m_watchers > 0)
        --m_watchers;
    valuePathRemove(path);
    Q_EMIT watchersChanged(m_watchers);
}
